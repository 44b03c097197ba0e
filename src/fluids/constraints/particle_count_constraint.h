// How many particles are near.
#pragma once
#include "fluids/particles/particle_group.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures how many particles of a kind lie about a point, from 0 for the fewest that count to 1
/// for the most.
class ParticleCountConstraint : public MeasuredConstraint<ParticleCountConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 24;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kMostRow = 1004, kLeastRow = 1005, kOverflowRow = 1007;
  enum Overflow : i32 { kGoOn = 0, kStayAtMost = 1, kBackToLeast = 2 };
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Open() override;
  bool Fetch() override;

 private:
  ParticleGroup* mGroup = nullptr;
  double mRadiusCells = 1;
  i32 mKind = kLiquid;
  i32 mLeast = 0, mMost = 5;
  bool mRamp = true;
  i32 mOverflow = kStayAtMost;

  // For one run of a stage.
  double mRadius = 1;  ///< simulation units
  i32 mLimit = 0;      ///< no more are counted
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
