// Moves particles.
#pragma once
#include "fluids/advection/particle_motion.h"
#include "fluids/flow/ifluid_solver.h"
#include "fluids/particles/particle_group.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Moves the particles of one kind of a group in stage 6: along the flows of solvers, free under
/// forces, or as bubbles, stops them at walls, obstacles and volumes, and lets them grow older.
///
/// All paths go through the velocity as it was before the stage, which is free of divergence.
class ParticleAdvection : public iObject {
 public:
  enum Motion : i32 { kOff = 0, kGrid = 1, kBallistic = 2, kGridThenBallistic = 3 };

  ParticleAdvection(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kGroupRow = 1000, kSolversRow = 1004, kSolverListRow = 1007,
                       kMotionRow = 1008, kIntegratorRow = 1010, kCollisionRow = 1011,
                       kKillOutsideRow = 1012, kKindRow = 1014, kRestitutionRow = 1017,
                       kDragRow = 1018;
  static constexpr const char* kOffReason = "its 'motion' is off";
  static constexpr const char* kNoFlowReason =
      "no flow carries its particles: there is no solver that is switched on; give it one, or "
      "another 'motion'";
  static constexpr const char* kNoFlowLeftReason =
      "no flow carries its particles: by 'solvers' and 'solver_list' no solver that is switched on "
      "is left";
  static constexpr const char* kNoGridReason =
      "no flow carries its particles: none of the solvers has a grid; there they neither move nor "
      "age";
  void ClearLinks() override;
  void CheckDirty() override;
  bool CommutesWith(const iBase& other) const override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  bool UsesFlows() const { return mMode == kGrid || mMode == kGridThenBallistic; }
  /// The solvers that may carry particles, in the order of the list, or else of the scene.
  std::vector<iFluidSolver*> Solvers() const;
  /// The particles are those of this liquid.
  bool IsTheirLiquid(const iFluidSolver& solver) const;
  void CollectFlows(const std::vector<iFluidSolver*>& solvers);
  void CollectVolumes();
  /// What particles hit may wake.
  void WatchSleepers();

  ParticleGroup* mGroup = nullptr;
  std::vector<iFluidSolver*> mNamedSolvers;
  std::vector<InstantOperator*> mOperators;
  i32 mKind = kLiquid;
  i32 mListMode = 0;  ///< 0: the list names who is left out
  i32 mMode = kGrid;
  i32 mOrder = 1;
  i32 mIntegrator = ParticleMotion::kEuler;
  i32 mCollision = ParticleMotion::kLevelSet;
  i32 mExtraSubsteps = 1;
  double mOffset = 0.001;
  double mRestitution = 0;
  double mDrag = 0;
  bool mKillsOutside = true;
  bool mTakesVelocity = false;

  ParticleMotion mMotion;  ///< of one step
  HitWatch mWatch;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
