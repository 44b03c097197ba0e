// Particles under deformers.
#pragma once
#include <vector>

#include "fluids/operators/particle_operator.h"
#include "fluids/particles/particle_property.h"
#include "host/deformer.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Says, once a frame and behind all substeps, where deformers take each particle: its place goes
/// through them one after the other, and a vector that it carries takes the result or the way
/// there. The particles stay where they are, unless that vector is their position or velocity.
class POP_Deform : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kTargetRow = 1001, kDurationRow = 1002, kModeRow = 1003,
                       kPerSecondRow = 1004, kKindRow = 1005, kStrengthRow = 1006,
                       kDeformersRow = 1007;
  enum Mode : i32 { kAdd = 0, kSet = 1 };
  void Evaluate(const EvaluationThreadData& data) override;

 protected:
  bool PrepareOperator() override;
  void FinishOperator() override;
  // What is played may be shown otherwise; its recording stays as it is.
  bool ShowsParticles() const override { return true; }

 private:
  void Deform(ParticleStore& store, i32 row, double weight);
  bool Moves() const { return mTarget && mTarget->Key().id == property_id::kPosition; }

  iProperty* mTarget = nullptr;  ///< null for the property `deformed`
  i32 mMode = kSet;
  bool mPerSecond = false;
  double mStrength = 1;
  std::vector<host::BaseNode*> mNodes;

  // For one frame.
  std::vector<host::PlacedDeformer> mDeformers;
  PropertyColumn<Vec3d>* mColumn = nullptr;  ///< null for a field of the particles
  double mScale = 1;                         ///< of every weight
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
