// A property of particles.
#pragma once
#include "fluids/particles/particle_property.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures a property of a particle: a number, the length of a vector, or whether a switch stands
/// as wanted; of ages the part of its life that a particle has behind it. Mere places pass.
class ParticleConstraint_Property : public MeasuredConstraint<ParticleConstraint_Property> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 27;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool IsOfParticles() const override { return true; }
  bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) override;
  void TestRow(const ConstraintRow& row, const ConstraintUse& use) override;
  double Measure(const Vec3d&, const ConstraintUse& use) const;

 protected:
  bool Open() override;

 private:
  iProperty* mProperty = nullptr;
  double mLow = 0, mHigh = 1;
  bool mMatch = true;

  // For one run of a stage.
  enum class Case { Age, Scalar, Vector, Switch };
  Case mCase = Case::Scalar;
  PropertyKey mKey;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
