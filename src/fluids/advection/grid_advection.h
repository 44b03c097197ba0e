// Moves a field along a solver's velocity.
#pragma once
#include <string>
#include <utility>
#include <vector>

#include "fluids/advection/advection_kernel.h"
#include "fluids/advection/conservative_advection.h"
#include "fluids/fields/drift_watch.h"
#include "fluids/flow/field_carrier.h"
#include "fluids/flow/ifluid_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

enum class AdvectionScheme : i32 {
  SemiLagrangian = 0,
  MacCormack = 1,
  Conservative = 2,            ///< scalar targets alone; others move as by scheme 0
  ConservativeMacCormack = 3,  ///< likewise
};

/// Moves one target, a scalar channel, a vector channel or the solver's own velocity, in stage 6.
/// Values of the step before are read from the target's second buffer.
///
/// Advections that run one after the other and move scalar channels in the same way are companions:
/// the first one moves the fields of all along one set of paths, with the results of each alone.
class GridAdvection : public iObject, public FieldCarrier {
 public:
  GridAdvection(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kTargetRow = 1000, kSchemeRow = 1002, kPathRow = 1003, kSolverRow = 1005;
  /// Of `path_integration`: paths of second order for fields, whose totals whirls change with those
  /// of first order, which are enough for a velocity.
  static constexpr i32 kAutomaticPath = 4;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void CheckDirty() override;
  /// Those of solvers whose boxes lie apart: each moves what lies in its own.
  bool CommutesWith(const iBase& other) const override;
  bool HandsOver(const iBase& field) const override;
  void Reset() override;
  void Release(bool full) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void Persist(StateArchive& archive) override;
  /// That the target drifts, told once in a run.
  std::vector<std::string> TakeWarnings() override { return std::exchange(mWarnings, {}); }

 private:
  using Velocity = std::array<const EGrid<double>*, 3>;

  iBase* Target() const;
  /// The grids of the scalar target, the source ready for paths.
  AdvectedField PrepareTarget();
  /// Collects the scalar target and those of the companions behind this advection in `group`, which
  /// take no run of their own then.
  std::vector<AdvectedField> TakeCompanions(const std::vector<iObject*>& group);
  bool HasConservativeScheme() const;
  /// In this step, by its scheme, because a solid stirs the target or because it drifts.
  bool IsConservative() const { return mIsStirred || HasConservativeScheme(); }
  /// The scalar target is something of which there is a total, and none of it where nothing is.
  bool HoldsAmount() const;
  /// What air holds everywhere is a property, not an amount that lies somewhere.
  bool IsOfAllAir() const;
  /// Whether paths have changed the total by so much that steps have to wait for it.
  bool OwesTotal() const;
  /// Books a step's drift for that, of a total.
  void Owe(double drift, double total);
  /// Whether a solid that moves reaches what the scalar target holds, an amount that paths would
  /// not keep there. `held` is the grid that holds it.
  bool FindStirred(const EGrid<double>* held) const;
  /// Decides how this step moves the scalar target, which `held` holds.
  void SetStirred(const EGrid<double>* held);
  /// Of the paths, see `TracePath`.
  i32 PathOrder() const;
  bool IsCorrected() const { return mScheme == static_cast<i32>(AdvectionScheme::MacCormack); }
  bool IsSpline() const { return mSampling == static_cast<i32>(AdvectionSampling::BSpline); }
  bool IsCompanion(const GridAdvection& other) const;
  /// The values of a scalar target behind walls.
  ScalarWalls::Values WallValues() const;
  /// Continues the scalar target into what is closed, or hands over what is there: a source has to
  /// hold right values wherever paths look.
  void PrepareSource(EGrid<double>& source);
  bool IsTotalKnown() const;
  /// Books what the step did to the target, and tells of a drift that lasts.
  void BookMove();
  double ShareOfSolids(double drift) const;
  double ShareOfSides(double drift) const;
  void WarnOfSolids(double share);
  void WarnOfDrift(double share);
  /// How far cells that a solid covers look for takers, in cells.
  i32 HandOverReach() const;
  /// Moves grids of one kind by the scheme; false when it can't.
  bool AdvectGrids(std::vector<AdvectedField> fields, const Velocity& velocity);
  bool FitFields(std::vector<AdvectedField>& fields, const Velocity& velocity);
  /// Runs a pass over the inner samples, layer by layer.
  void RunPass(const AdvectionData& data, void (*pass)(const AdvectionData&, const CellBox&));
  bool PredictAndCorrect(std::vector<AdvectedField>& fields, const AdvectionData& data,
                         bool isClosed, const VecInt3D* reach);

  /// The grid covers the box of the flow and no more.
  bool IsOnFlow(const EGrid<double>& grid) const;
  /// Moves one grid as the scheme says, or the part of it inside the box of the flow; false when it
  /// can't.
  bool MoveGrid(EGrid<double>& source, EGrid<double>& destination, const Velocity& velocity);
  bool MoveOnFlow(EGrid<double>& source, EGrid<double>& destination, const Velocity& velocity);
  bool MoveConservative(const EGrid<double>& source, EGrid<double>& destination,
                        const Velocity& velocity);

  /// The outflow that thins the scalar target; null where the gas doesn't expand.
  const Grid<double>* FindThinning(const Velocity& velocity);
  /// Finds where the fields of a pass may change; false where that can't be told.
  bool FindBusy(const AdvectionData& data, VecInt3D reach);
  /// Gives fields that hold an amount a balance of what they are corrected by. `reach` of the paths
  /// in cells; null where it isn't known.
  void WatchCorrections(std::vector<AdvectedField>& fields, const AdvectionData& data,
                        const VecInt3D* reach);
  /// Finds the splines through what a pass samples; false without memory.
  bool FindSplines(std::vector<AdvectedField>& fields, bool predicted);

  ConservativeAdvection mConservative;
  std::array<std::unique_ptr<Grid<double>>, ScratchGrids::kSlots> mSplines;
  std::unique_ptr<Grid<double>> mOutflow, mThinning;
  std::array<CorrectionBalance, ScratchGrids::kSlots> mBalances;
  std::array<FieldPieces, ScratchGrids::kSlots> mPieces;
  BusyBlocks mBusy;
  ScalarField* mScalarTarget = nullptr;
  VectorField* mVectorTarget = nullptr;
  iFluidSolver* mSolverTarget = nullptr;
  iFluidSolver* mNamedSolver = nullptr;
  iFluidSolver* mSolver = nullptr;  ///< whose flow carries: the target, or the one that is named
  i32 mScheme = 1;
  i32 mTraceOrder = kAutomaticPath;
  i32 mSampling = 0;
  f32 mStrength = 1.0f;
  bool mMovedByCompanion = false;
  bool mIsStirred = false;  ///< in this step the scalar target goes as moving solids want it
  bool mMetMover = false;   ///< one reached it in this step, and so in the flow of the next
  double mOwed = 0;  ///< what paths have made too much, less what time has paid; of the total

  // What the step is known to have done to a scalar target, for its ledger.
  bool mIsBooking = false;  ///< the step isn't booked yet
  double mLeft = 0, mTrapped = 0;
  double mGain = 0;  ///< of cells that are open, in a move along paths: what they get from covered
                     ///< ones, less what left ones were given to begin with
  DriftWatch mWatch, mSolidWatch;  ///< of the move, and of what solids cover and leave
  bool mHasToldSolids = false;
  std::vector<std::string> mWarnings;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
