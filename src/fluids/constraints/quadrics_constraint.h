// Falloffs of simple shapes.
#pragma once
#include "framework/constraint.h"
#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures from 1 in the middle of a simple shape to 0 at its surface, in the place of the node
/// and turned and scaled with it. Of a ball it goes on below 0 outside.
class QuadricsConstraint : public MeasuredConstraint<QuadricsConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 32;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kShapeRow = 1000;
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Open() override;

 private:
  enum Shape : i32 { kBall = 0, kEllipsoid = 1, kBox = 2, kTorus = 3, kCylinder = 4 };

  i32 mShape = kBall;
  Vec3d mRadii{50, 20, 50};  ///< host units
  double mRadius = 20;       ///< of a ball, host units

  // For one run of a stage.
  Matrix mToNode;    ///< from simulation space to the axes of the node, in host units
  Vec3d mInverse{};  ///< 1 / radii
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
