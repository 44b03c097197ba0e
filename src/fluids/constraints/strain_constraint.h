// How a flow stretches and shears.
#pragma once
#include "fluids/constraints/velocity_probe.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures the rate of strain of a velocity at a point, times h^2 / dt with the size h of a cell
/// and the length dt of the step, in m^2 / s^2; 0 outside of the field and above the surface of a
/// liquid.
class StrainConstraint : public MeasuredConstraint<StrainConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 29;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Fetch() override;

 private:
  enum Mode : i32 { kMean = 0, kShear = 1, kXX = 2, kYY = 3, kZZ = 4, kXY = 5, kXZ = 6, kYZ = 7 };

  /// An entry of the scaled tensor.
  double Strain(const Vec3d& p, i32 i, i32 j) const;
  double StrainBy(const Vec3d& p) const;

  VelocityProbe mVelocity;
  i32 mMode = kMean;
  bool mAbsolute = true;

  double mScale = 0;  ///< h^2 / dt, for one holder
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
