// The projection: velocity without divergence, up to a wanted source.
#pragma once
#include <array>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fluids/fields/drift_watch.h"
#include "fluids/flow/flow.h"
#include "fluids/flow/flow_cells.h"
#include "fluids/pressure/body_coupling.h"
#include "fluids/pressure/body_layers.h"
#include "fluids/pressure/body_ledger.h"
#include "fluids/pressure/closed_regions.h"
#include "fluids/pressure/face_densities.h"
#include "fluids/pressure/far_field.h"
#include "fluids/pressure/grid_cg_solver.h"
#include "fluids/pressure/grid_gauss_solver.h"
#include "fluids/pressure/grid_multigrid_solver.h"
#include "fluids/pressure/projection_fields.h"
#include "fluids/pressure/solid_push.h"
#include "framework/duration.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class VolumeBase;

/// What a projection left behind, for the statistics.
struct ProjectionReport {
  i32 iterations = 0;
  double residual = 0;  ///< largest residual that is left over the largest right-hand side
  double wallSeconds = 0;
};

/// Where the gas of a flow's inner cells came from and went to in some projections, in cubic
/// simulation units. `left` is made + solids + squeezed, but for what drifts.
struct VolumeLedger {
  double made = 0;      ///< by sources of divergence, such as combustion
  double solids = 0;    ///< what moving solids push out of their way, less what they leave free
  double squeezed = 0;  ///< what closed regions took up, or less, so that they come out even
  double left = 0;      ///< through the sides of the box, less what came in
  double drift = 0;     ///< what cells got or lost beyond all that, each by its magnitude
};

/// Makes the owner's velocity divergence-free on the cut cells that the face fractions tell
/// (Batty, Bertails and Bridson 2007), and lets moving solids push the fluid.
class Grid_Incompressibility : public iObject {
 public:
  void ClearLinks() override;
  void Reset() override;
  void Release(bool full) override;
  void Persist(StateArchive& archive) override;

  /// Projects the owner's velocity on all workers; the result doesn't depend on their number. False
  /// outside of its duration, and where fields or memory are missing.
  bool Project();

  // The parts of a projection, each over the cells of a block but for the balance, which looks at
  // all.
  /// Right-hand side and matrix.
  virtual void BuildSystem(const CellBox& block);
  /// Lets the pressures of the far field act on the right-hand side.
  void AddFarField();
  /// Makes the right-hand sides of closed regions add up to 0.
  virtual void BalanceRegions();
  /// The velocity update; each face is written by the block of the cell above it.
  virtual void SubtractGradient(const CellBox& block);
  /// What moving solids add to the right-hand side.
  virtual void AddBodyCoupling(const CellBox& block);

  /// Reports since the last call, one per projection.
  std::vector<ProjectionReport> TakeReports();
  /// Largest absolute residual, in 1/s, of the balance that the last projection solved, over the
  /// cells 1 to n-2 with an open face: source, moving solids and the shift of closed regions
  /// included.
  double DivergenceMax() const { return mDivergenceMax; }
  /// What became of the gas since the last call.
  VolumeLedger TakeLedger() { return std::exchange(mLedger, {}); }
  /// Pressures of the last projection by cell, 0 in cells without an open face.
  std::span<const double> GetPressure() const;
  /// What went wrong in solves and wasn't taken yet, each kind told once since the start, the first
  /// time: a clause with the place and the time.
  std::span<const std::string> Warnings() const { return mWarnings; }
  std::vector<std::string> TakeWarnings() { return std::exchange(mWarnings, {}); }

  /// Takes what its owner reads from a node.
  void SetAccuracy(const SolverAccuracy& accuracy, double modification, double minDiagonalRatio);

  Flow* mFlow = nullptr;
  /// Beyond open sides the pressure is that of the far field, and 0 without one.
  FarField* mFarField = nullptr;
  i32 mLinearSolver = 1;  ///< 0 conjugate gradients, 1 Gauss-Seidel, 2 multigrid
  double mDensity = 1.23;
  ScalarField* mDensityChannel = nullptr;   ///< takes the place of the constant density
  const BodyLedger* mBodyLedger = nullptr;  ///< of a liquid's particles; null without any
  BodyLayers mLayers;                       ///< whoever lets forces act on the flow tells it
  Duration* mDuration = nullptr;            ///< outside of it nothing is projected
  Grid_CGSolver mCG;
  Grid_GaussSolver mGauss;
  Grid_MultigridSolver mMultigrid;

 protected:
  enum WarningKind : u32 { kSqueezed = 1, kUnsolved = 2, kDrifts = 4 };

  /// The owner's fields of this step; false when one is missing.
  virtual bool GatherFields(ProjectionFields& fields);
  /// The bodies that move in this step, and the obstacles that rest.
  virtual void GatherSolids(std::vector<MovingBody>& moving,
                            std::vector<const VolumeBase*>& resting) const;

  virtual bool PrepareSystem();
  /// Fills the system, which has no entries yet.
  void Assemble();
  void Solve();
  /// What a solve calls for before its pressures act.
  virtual void Settle() {}
  /// Solves a system that was filled anew, from the pressures at hand.
  void SolveOn();
  /// What is left of the balance in some cells, 1/s, and what went into it.
  struct Balance {
    double largest = 0;
    double made = 0, solids = 0, squeezed = 0, left = 0, drift = 0;
    double volume = 0;  ///< cells
  };
  /// Calls f(axis, inner cell, outer cell, pressure, face) for the faces between the far field and
  /// inner cells.
  template <class F>
  void ForEachFarFace(F&& f) const;
  /// Puts the pressures of the far field beside those that were found.
  void KeepFarField();
  /// What is left of the balance after a solve.
  virtual void MeasureDivergence();
  Balance MeasureLayer(i32 z) const;
  /// Enters a step into the ledger, and warns of a drift that lasts.
  void Book(const Balance& balance);
  /// Warns when moving solids, or gas that is made or taken, squeeze or stretch a closed region.
  virtual void CheckRegions();
  /// Someone is to be told when a closed region is squeezed or stretched.
  virtual bool IsConcern(const Region& /*region*/) const { return true; }
  /// What moving solids added to the cells of a region, 1/s.
  double PushedInto(const Region& region) const;
  /// Where a cell stands, in units of the scene, and how many cells of the flow a region has.
  virtual Vec3d PlaceOf(const VecInt3D& cell) const;
  virtual i64 CellsOf(const Region& region) const { return region.cells; }
  ConjugateGradients& UsedIteration() {
    return SolverInUse() == 2 ? static_cast<ConjugateGradients&>(mMultigrid) : mCG;
  }
  void SweepGauss();
  void TakeReport(const ConjugateGradients& solver);
  /// Runs a part of a projection on all layers.
  void ForEachLayer(void (Grid_Incompressibility::*work)(const CellBox&));
  void CheckSolve(SolveEnd end);
  /// Keeps a warning unless one of its kind is there.
  void Warn(WarningKind kind, std::string text);
  double SecondsSoFar() const { return mTime ? mTime->elapsed : 0.0; }
  /// Gauss-Seidel has no place for what bodies couple: conjugate gradients take its.
  i32 SolverInUse() const { return mLinearSolver == 1 && !mBodies.IsEmpty() ? 0 : mLinearSolver; }
  /// Rows of bodies that lie in closed regions add up to nothing, or else these aren't closed.
  void OpenCoupledRegions();
  void CollectBodyRows();
  /// What bodies touch presses on them from round about.
  void LetSeep();
  /// The fluid that the lattice moves with bodies counts with them.
  void BindFluid();
  /// Adds to what a body pushes into the cells round it.
  void AddPush(i32 body, const Vec3d& linear, const Vec3d& angular, std::span<double> rhs);
  /// The bodies take what the pressure does to them, and push as they then move.
  void PressBodies();
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

  /// The term of a cell in its layer, or where it would stand.
  std::vector<CouplingTerm>::iterator TermOf(i32 cell);

  ProjectionFields mFields;
  CellSamples mDensities;  ///< of the density channel
  FaceDensities mFaceDensities;
  VecInt3D mCells{};
  double mCellSize = 0;
  std::vector<MovingBody> mMoving;
  std::vector<const VolumeBase*> mResting;
  BodyCoupling mBodies;                              ///< of those that the pressure moves
  std::vector<bool> mIsBound;                        ///< fluid is bound to it, by body
  std::vector<SolidPush::BodyRows> mBodyRows;        ///< by layer, before they go to their bodies
  std::vector<std::vector<CouplingTerm>> mCoupling;  ///< by layer, in cell order
  std::span<const SideLayer> mFarLayers;
  ClosedRegions mRegions;
  double mDivergenceMax = 0;
  double mLargestRhs = 0;  ///< before the last solve
  std::vector<ProjectionReport> mReports;
  VolumeLedger mLedger;
  DriftWatch mWatch;
  std::string mMatter = "gas";  ///< what flows, in warnings
  u32 mWarned = 0;              ///< bits of the kinds of warnings given
  std::vector<std::string> mWarnings;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
