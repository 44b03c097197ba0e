// A flag of particles.
#pragma once
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures 1 for a particle that has a flag and 0 for one that hasn't. Mere places pass.
class ParticleConstraint_Attribute : public MeasuredConstraint<ParticleConstraint_Attribute> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 26;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool IsOfParticles() const override { return true; }
  bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) override;
  void TestRow(const ConstraintRow& row, const ConstraintUse& use) override;
  double Measure(const Vec3d&, const ConstraintUse& use) const;

 private:
  i32 mBit = 2;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
