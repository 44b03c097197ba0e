// From grids to particles.
#pragma once
#include "fluids/operators/field_probe.h"
#include "fluids/operators/particle_operator.h"
#include "fluids/operators/property_operation.h"
#include "fluids/particles/property_numbers.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Reads a field at each particle and writes w (t o f) to one of its properties, with what that is,
/// t, the field's value f, an operation o and the weight w of the particle. Where the field isn't,
/// particles stay as they are.
class GridToParticles : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kSourceRow = 1001, kDurationRow = 1003, kTargetRow = 1004,
                       kOperationRow = 1005, kModeRow = 1006;
  /// With others that write another property.
  bool CommutesWith(const iBase& other) const override;
  void Evaluate(const EvaluationThreadData& data) override;

 protected:
  bool PrepareOperator() override;
  void FinishOperator() override;

 private:
  enum Mode : i32 { kSkipExcluded = 0, kWriteExcluded = 1 };
  struct Target {
    ParticleGroup* group;
    i32 kind;
    PropertyNumbers property;
  };
  FieldProbe mField;
  iProperty* mProperty = nullptr;
  PropertyOperation mOperation = PropertyOperation::Add;
  i32 mMode = kSkipExcluded;

  std::vector<Target> mTargets;  ///< for one run of a stage
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
