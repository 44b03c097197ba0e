// Arithmetic on properties of particles.
#pragma once
#include "fluids/operators/particle_operator.h"
#include "fluids/operators/property_operation.h"
#include "fluids/particles/property_numbers.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class AlignmentVector3D;

/// Writes w (t o s) to a property of each particle, with what it is, t, a source s, an operation o
/// and the weight w of the particle. The source is another property, a direction at the particle,
/// or a constant.
class POP_Property : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kSourceRow = 1002, kTargetRow = 1004, kDurationRow = 1006, kKindRow = 1008,
                       kOperationRow = 1009, kSkipRow = 1010, kRealRow = 5001, kVectorRow = 5002,
                       kWholeRow = 5003;
  void Evaluate(const EvaluationThreadData& data) override;

 protected:
  bool PrepareOperator() override;
  void FinishOperator() override;

 private:
  Vec3d SourceAt(i32 row, const Vec3d& position, u32 worker) const;

  iProperty* mSourceProperty = nullptr;
  AlignmentVector3D* mAlignment = nullptr;
  iProperty* mProperty = nullptr;
  PropertyOperation mOperation = PropertyOperation::Add;
  bool mSkips = true;
  double mReal = 1;
  Vec3d mVector{1, 0, 0};
  i32 mWhole = 100;

  // For one run of a stage.
  PropertyNumbers mSource, mTarget;
  Vec3d mConstant{};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
