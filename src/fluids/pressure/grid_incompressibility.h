// The projection: velocity without divergence, up to a wanted source.
#pragma once
#include <array>
#include <span>
#include <string>
#include <vector>

#include "fluids/fields/channel.h"
#include "fluids/pressure/closed_regions.h"
#include "fluids/pressure/grid_cg_solver.h"
#include "fluids/pressure/grid_gauss_solver.h"
#include "fluids/pressure/grid_multigrid_solver.h"
#include "fluids/pressure/solid_push.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class FluidSolver;
class VolumeBase;

/// What a projection left behind, for the statistics.
struct ProjectionReport {
  i32 iterations = 0;
  double residual = 0;  ///< largest residual that is left over the largest right-hand side
};

/// The fields that a projection works on, for one step.
struct ProjectionFields {
  std::array<EGrid<double>*, 3> velocity{};   ///< faces, simulation units per second
  std::array<const EGrid<float>*, 3> open{};  ///< open fractions of faces
  const EGrid<float>* openCell = nullptr;     ///< open fractions of cells
  const EGrid<double>* source = nullptr;      ///< wanted divergence, cells, 1/s; may be null
  const EGrid<double>* density = nullptr;     ///< cells; null means constant density
  double dt = 0;                              ///< seconds
};

/// Makes the owner's velocity divergence-free on the cut cells that the face fractions tell
/// (Batty, Bertails and Bridson 2007), and lets moving solids push the fluid.
///
/// The owner runs the passes: `while (NextPass()) { Prepare(); <Evaluate on workers>; Finish(); }`.
/// `Evaluate` may be called with any z slabs of the velocity layout's cells: results don't depend
/// on them. Pass 3, the linear solve, runs on the worker pool from `Prepare`; its `Evaluate` does
/// nothing. With Gauss-Seidel pass 3 repeats, one sweep each.
class Grid_Incompressibility : public iObject {
 public:
  Grid_Incompressibility() { mPassCount = 5; }
  Grid_Incompressibility(const Grid_Incompressibility& other);
  bool ReadParameters(void* context = nullptr) override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void Reset() override;
  void Release(bool full) override;
  bool NextPass() override;
  void Prepare(void* context = nullptr) override;
  void Evaluate(const EvaluationThreadData& block) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;

  /// Pass 1: right-hand side and matrix.
  virtual void BuildSystem(const EvaluationThreadData& block);
  /// Pass 4: the velocity update; each face is written by the block of the cell above it.
  virtual void SubtractGradient(const EvaluationThreadData& block);
  /// Entry of pass 2: makes the right-hand sides of closed regions add up to 0.
  virtual void BalanceRegions();
  /// Pass 0: what moving solids add to the right-hand side.
  virtual void AddBodyCoupling(const EvaluationThreadData& block);

  /// The current pass is the linear solve, which `Prepare` runs by itself.
  bool IsSolving() const { return mPass == kSolve; }
  /// Reports since the last call, one per projection.
  std::vector<ProjectionReport> TakeReports();
  /// Largest absolute residual, in 1/s, of the balance that the last projection solved, over the
  /// cells 1 to n-2 with an open face: source, moving solids and the shift of closed regions
  /// included.
  double DivergenceMax() const { return mDivergenceMax; }
  /// Pressures of the last projection by cell, 0 in cells without an open face.
  std::span<const double> GetPressure() const;
  /// What went wrong in solves since the start, each kind told once, the first time: a clause with
  /// the place and the time.
  std::span<const std::string> Warnings() const { return mWarnings; }

  FluidSolver* mSolver = nullptr;
  i32 mLinearSolver = 1;  ///< 0 conjugate gradients, 1 Gauss-Seidel, 2 multigrid
  double mDensity = 1.23;
  Grid_CGSolver mCG;
  Grid_GaussSolver mGauss;
  Grid_MultigridSolver mMultigrid;

 protected:
  enum Pass : i16 { kCouple, kBuild, kBalance, kSolve, kUpdate };

  enum WarningKind : u32 { kSqueezed = 1, kUnsolved = 2 };

  /// The owner's fields of this step; false when one is missing.
  virtual bool GatherFields(ProjectionFields& fields) const;
  /// The bodies that move in this step.
  virtual void GatherMovingBodies(std::vector<MovingBody>& bodies) const;

  bool PrepareSystem();
  void Solve();
  void MeasureDivergence();
  double MeasureLayer(i32 z) const;
  /// Warns when moving solids squeeze or stretch a closed region.
  void CheckRegions();
  void CheckSolve(SolveEnd end);
  /// Keeps a warning unless one of its kind is there.
  void Warn(WarningKind kind, std::string text);
  double SecondsSoFar() const { return mTime ? mTime->elapsed : 0.0; }
  /// The linear solver in use.
  LatticeSolver& Used();
  const LatticeSolver& Used() const { return const_cast<Grid_Incompressibility*>(this)->Used(); }
  std::array<LatticeSolver*, 3> LinearSolvers() { return {&mCG, &mGauss, &mMultigrid}; }
  i32 Threads() const;

  /// What the moving solids added to a cell.
  struct CouplingTerm {
    i32 cell;
    double value;
  };

  ScalarField* mDensityChannel = nullptr;
  std::vector<VolumeBase*> mBodies;
  Duration* mDuration = nullptr;
  double mMinTheta = 0.01;  ///< lower limit of the surface fraction in a free-surface solve
  ProjectionFields mFields;
  VecInt3D mCells{};
  double mCellSize = 0;
  std::vector<MovingBody> mMoving;
  std::vector<std::vector<CouplingTerm>> mCoupling;  ///< by layer, in cell order
  ClosedRegions mRegions;
  double mDivergenceMax = 0;
  double mLargestRhs = 0;  ///< before the last solve
  std::vector<ProjectionReport> mReports;
  u32 mWarned = 0;  ///< bits of the kinds of warnings given
  std::vector<std::string> mWarnings;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
