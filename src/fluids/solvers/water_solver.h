// The liquid solver.
#pragma once
#include "fluids/flow/full_rooms.h"
#include "fluids/flow/hybrid_flip.h"
#include "fluids/flow/inflows.h"
#include "fluids/flow/loose_faces.h"
#include "fluids/particles/particle_to_levelset.h"
#include "fluids/pressure/grid_incompressibility_free_surface.h"
#include "fluids/solvers/fluid_solver.h"
#include "fluids/solvers/position_correction.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a liquid's node says beyond what a gas does.
struct LiquidSettings {
  std::vector<ParticleGroup*> groups;
  i32 transfer = 0;  ///< 1 affine
  double flipRatio = 0;
  bool gathers = false;
  double kernelRadius = 1;
  Kernel* kernel = nullptr;
  i32 surfaceMode = 2;  ///< of `SurfaceMode`
  double densityThreshold = 0.2;
  i32 countThreshold = 0;
  bool reproject = false;
  bool correctsPositions = false;
  double particlesPerCell = 8;
};

/// A liquid with a free surface, whose mass the liquid particles of its groups carry: each step
/// takes their velocity to the grid, moves it by forces and pressure, and hands the change back.
/// Emitters make the particles and an advection moves them, through the velocity of the step
/// before. The container follows them; beyond its sides there is air without pressure.
class WaterSolver : public FluidSolver, public LiquidSettings, public FillsRooms {
 public:
  WaterSolver(host::BaseNode* node, Scene* scene);

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kGroupsRow = 1201, kFlipRatioRow = 1204, kSurfaceModeRow = 1210,
                       kGatherRow = 1209, kReprojectRow = 1216, kTransferRow = 1311,
                       kEvenRow = 1312, kPerCellRow = 1313;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void Reset() override;
  void Persist(StateArchive& archive) override;
  void Release(bool full) override;
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void Evaluate(const EvaluationThreadData& data) override;
  /// What liquids share each has for itself.
  bool CommutesWith(const iBase& other) const override;
  /// As a gas without surroundings, with the level set and the cells of the sort, and the system
  /// of the correction beside that of the pressure.
  double MemoryPerCell() const override {
    return (6 + 6 + 4 + 13 + 9 + 3 + (correctsPositions ? 13 + 1 : 0) + ViscousMemory()) *
           sizeof(double);
  }
  Grid_Incompressibility& Projection() override { return mFreeSurface; }
  bool SolvePressure() override;
  void ContinueVelocity() override;
  double SurfaceSurplus() const override { return mLevelSet.mSurplus; }
  const std::vector<ParticleGroup*>* LiquidGroups() const override { return &groups; }
  const FullRooms& Full() const override { return mFull; }

 protected:
  bool HasSurroundings() const override { return false; }
  Room RoomAhead() const override;

 private:
  /// Sorts the particles, unless they are as when last sorted.
  void Sort();
  /// What it has of each group; empty where it shares none with another liquid.
  std::vector<GroupShare> Shares() const;
  void FindSurface();
  /// How many particles fill a cell by what emitters tell; 0 where they tell nothing.
  double ToldRest() const;
  /// How many particles fill a cell isn't known any more.
  void ForgetRest();
  /// How far the particles move in a step, each way along each axis, in cells.
  Room Ways() const;
  /// What the particles give to bodies, and get of them, is paid for.
  void OpenLedger();
  /// Asks the emitters where water comes in.
  void FindInflows();
  /// After a projection: where no more water fits in.
  void FindFull();
  /// Of the extrapolation: particles meet a velocity wherever they go.
  i32 Rounds() const;
  /// Whether any of its particles come from a cache in this frame.
  bool PlaysParticles() const;
  /// Gives the flow the velocity that played particles were recorded with, in which the forces of
  /// the step are already: the next step moves particles through it.
  void FollowPlayed();

  ParticleSort mSort;
  std::vector<std::pair<const ParticleGroup*, u64>> mSorted;  ///< what is sorted, at which change
  HybridFlip mFlip;
  BodyLedger mLedger;
  PositionCorrection mCorrection;
  ParticleToLevelset mLevelSet;
  i32 mRestCount = 0;         ///< particles when it was found how many fill a cell
  bool mIsRestFound = false;  ///< for good
  Grid_Incompressibility_FreeSurface mFreeSurface;
  LooseFaces mLoose;
  Inflows mInflows;
  FullRooms mFull;
  std::unique_ptr<EGrid<double>> mSurface;  ///< cells, simulation units
  bool mIsOnGrid = false;                   ///< the flow has the particles' velocity of this step
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
