// The distance to particles.
#pragma once
#include "fluids/particles/particle_group.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures the distance of a point from the nearest particle of a kind, as a share of a radius;
/// more than 1 where none is nearer than that.
class ParticleDistanceConstraint : public MeasuredConstraint<ParticleDistanceConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 23;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  double Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Open() override;
  bool Fetch() override;

 private:
  ParticleGroup* mGroup = nullptr;
  double mRadiusCells = 10;
  i32 mKind = kLiquid;

  double mRadius = 1;  ///< simulation units, for one run of a stage
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
