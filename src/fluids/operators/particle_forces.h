// Forces on particles.
#pragma once
#include <vector>

#include "fluids/forces/force.h"
#include "fluids/operators/particle_operator.h"
#include "fluids/particles/particle_property.h"
#include "grids/grid_memory.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Sums forces at each particle of some groups and adds the sum to its velocity, or to a vector
/// that it carries, or sets that to it.
class ParticleForces : public ParticleOperator {
 public:
  using ParticleOperator::ParticleOperator;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kForcesRow = 1001, kForceListRow = 1002, kDurationRow = 1003,
                       kTargetRow = 1004, kModeRow = 1005, kPerStepRow = 1006;
  bool Commutes() const override { return mMode != kSet; }
  void Evaluate(const EvaluationThreadData& data) override;

 protected:
  bool PrepareOperator() override;
  void FinishOperator() override;

 private:
  enum Mode : i32 { kAdd = 0, kSet = 1 };
  static constexpr i32 kRun = 64;
  struct Target {
    ParticleGroup* group;
    i32 kind;
    PropertyColumn<Vec3d>* column;  ///< null for the velocity
    ParticleSurroundings around{};  ///< for forces that ask for neighbours
  };

  void CollectTargets();
  void CollectForces();
  void LookAround();
  bool SetsVelocity() const;
  void Push(const Target& target, i32 first, i32 count, u32 worker) const;

  std::vector<Force*> mNamed;
  i32 mListMode = 0;  ///< 0: the list names who is left out
  iProperty* mProperty = nullptr;
  i32 mMode = kAdd;
  bool mIsPerStep = true;

  // For one run of a stage.
  std::vector<Target> mTargets;
  std::vector<std::vector<Vec3d>> mBefore;  ///< velocities, where forces ask for neighbours
  CountedMemory mHeld;                      ///< of these
  std::vector<Force*> mForces;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
