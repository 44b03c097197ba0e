// A ramp in space.
#pragma once
#include "fluids/emission/alignment_vector.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures how far a point lies from the middle of an object, along one of its axes or in all
/// directions, as a share of a length, and looks that share up in a ramp, of which red counts.
/// Linked to directions, it takes their lengths in place of that distance.
class GradientConstraint : public MeasuredConstraint<GradientConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 18;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kGradientRow = 1000;
  void Relink() override;
  double Measure(const Vec3d& position, const ConstraintUse& use) const;

 protected:
  bool Open() override;

 private:
  enum Mode : i32 { kAxisX = 0, kAxisY = 1, kAxisZ = 2, kDistance = 3 };

  const host::Gradient* mGradient = nullptr;
  i32 mMode = kAxisY;
  host::BaseNode* mObject = nullptr;  ///< whose place and axes count; the node itself without one
  double mLength = 100;               ///< host units
  bool mOneSided = false;
  AlignmentVector3D* mDirections = nullptr;
  bool mSquared = false;

  // For one run of a stage.
  Matrix mToObject;   ///< from simulation space to the axes of the object
  double mReach = 1;  ///< simulation units, or their square
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
