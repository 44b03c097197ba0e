// The gas solver: owns the velocity field and drives what happens to it inside a step.
#pragma once
#include <memory>

#include "fluids/fields/ifluid_solver.h"
#include "fluids/flow/grid_boundary.h"
#include "fluids/flow/grid_extrapolation.h"
#include "fluids/flow/scratch_grids.h"
#include "fluids/flow/solid_cells.h"
#include "fluids/flow/velocity_constrain.h"
#include "fluids/forces/velocity_grid_emitter.h"
#include "fluids/pressure/grid_incompressibility.h"
#include "fluids/volume/volume_fractions.h"
#include "framework/iobject.h"
#include "grids/control_thread.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Smoke and fire: a staggered velocity field in a box that follows the content.
class FluidSolver : public iFluidSolver {
 public:
  FluidSolver(host::BaseNode* node, Scene* scene);
  FluidSolver(const FluidSolver& other);

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ReadParameters(void* context = nullptr) override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void CheckDirty() override;
  void Reset() override;
  void Release(bool full) override;
  void UpdateRange() override;
  void GetName(std::string& out) const override;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;
  double GetMaxSpeedSq() const override { return mMaxSpeedSq; }
  std::unique_ptr<iBase> Clone() const override { return std::make_unique<FluidSolver>(*this); }

  ScalarField* GetDivergenceChannel() override { return &mDivergence; }
  VelocityField* GetVelocityChannel() override { return &mVelocity; }
  void SetStoredLayout(const GridLayout& layout) override {
    mStoredLayout = layout;
    mHasStoredBox = true;
  }

  virtual bool ApplyGridForces();
  virtual bool SolvePressure(bool);
  virtual bool ApplyViscosity();
  virtual void ReleaseWorkers();
  virtual void CreateWorkers();
  /// Strictly inside the velocity grid's box shrunk by one cell on every side.
  virtual bool ContainsPoint(const Vec3d& world) const;
  /// The liquid's level set; null for a gas.
  virtual const EGrid<double>* GetSurfaceLevelSetRead() const { return nullptr; }
  virtual EGrid<double>* GetSurfaceLevelSet() const { return nullptr; }

  /// Sets the velocity at the six sides: normal 0 at walls and copied outwards, tangential ghost
  /// layers at walls `factor` times the layer inside (1 slips freely, 0 sticks).
  void SetWallVelocities(double factor);
  /// Runs one pass of an embedded operator on the workers, over the velocity layout's cells.
  void RunOnWorkers(iObject& target);
  /// The user's box in simulation units, snapped inwards to whole cells; at least a cell wide.
  void GetUserBox(Vec3d& min, Vec3d& max) const;
  /// Layout of the velocity grids; null without grids.
  const GridLayout* GetLayout() const;
  /// Open fractions of the faces of `axis`; null before stage 5 or when they don't fit the
  /// velocity.
  const EGrid<float>* GetOpenFaces(i32 axis) const;

  VelocityField mVelocity;
  Grid_VolumeFractions mFractions;
  GridBoundary mBoundary;
  VelocityGridEmitter mForces;
  VelocityConstrain mConstrain;
  GridExtrapolation mExtrapolation;
  ScalarField mDivergence;
  Grid_Incompressibility mPressure;
  SolidCells mSolidCells;  ///< which cells are clear of solids in this step
  ScratchGrids mScratch;   ///< for the operators that work on this solver
  double mMaxSpeedSq = 0.001;

 private:
  using Workers = ScalarGridControlThread<ScalarGridThread<iObject>>;
  void BindMembers(host::BaseNode* node, Scene* scene);
  void LinkMembers();
  /// The user's box in whole cells of the domain, snapped inwards.
  void UserBox(Vec3d& lo, Vec3d& hi) const;
  void BuildSolids();
  /// Runs all passes of an embedded operator that its owner has prepared.
  void RunPasses(iObject& target);
  /// All passes of the projection, each prepared and finished.
  void Project();
  void ExtrapolateVelocity();
  bool HasVelocity() const;

  std::unique_ptr<Workers> mWorkers;
  double mPadding = 0;
  Vec3d mBoxSize{}, mBoxOffset{};
  bool mHasStoredBox = false;
  GridLayout mStoredLayout;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
