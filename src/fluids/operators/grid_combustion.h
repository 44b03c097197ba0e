// Burns fuel, or shapes a flame.
#pragma once
#include <atomic>
#include <memory>

#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/flow/ifluid_solver.h"
#include "fluids/operators/channel_work.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Turns the fuel of hot cells into fire, heat, smoke and expansion, in stage 7. Without a fuel
/// channel the fire is the flame: its age sets temperature and smoke by curves.
class GridCombustion : public iObject {
 public:
  static constexpr i32 kTypeId = 63;
  GridCombustion(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  ConstraintList* Constraints() override { return &mConstraints; }
  static const host::ParameterTable& Parameters();
  static constexpr i32 kTemperatureRow = 1000, kFireRow = 1001, kFuelRow = 1002, kSmokeRow = 1003,
                       kSolverRow = 12, kModeRow = 1004, kBurnRateRow = 2, kRatioRow = 3,
                       kHeatRow = 5, kSmokeAmountRow = 7, kExpansionRow = 9;
  /// The temperature from which a fuel burns, kelvin.
  static double IgnitionOf(const host::BaseNode& fuel);
  bool ResolveLinks() override;
  bool AfterLinks() override;
  void CheckDirty() override;
  void Release(bool full) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  /// A row of cells, by x. What isn't there is null.
  struct Row {
    double *temperature, *fire, *fuel, *smoke, *expansion;
    i32 first, last, y, z;
    u32 worker;
  };
  bool GatherGrids();
  bool PlaceExpansion();
  /// What stands in a row that was worked on.
  struct Found {
    bool fuel = false, heat = false, flame = false;  ///< some; so hot that it burns; that burns
  };
  Found BurnRow(const Row& row) const;
  Found BurnRowWithOxygen(const Row& row) const;
  Found ShapeRow(const Row& row) const;
  /// Why nothing burned in this step, for `iBase::Deactivate`; null where something did.
  const char* WhyNothingBurned() const;
  /// f(x) for the cells of a row that are wanted, where constraints let them burn.
  template <class Wants, class F>
  void ForEachAllowed(const Row& row, Wants&& wants, F&& f) const;
  /// A cell with fuel that is hot enough.
  bool IsHot(const Row& row, i32 x, Found& found) const;
  /// Spreads what the cells gave over a divergence of another layout.
  void SplatExpansion() const;

  ScalarField* mTemperature = nullptr;
  FireField* mFire = nullptr;
  ScalarField* mFuel = nullptr;
  FuelField* mKindled = nullptr;  ///< the same where it says at which heat it burns
  ScalarField* mSmoke = nullptr;
  iFluidSolver* mSolver = nullptr;
  ConstraintList mConstraints;

  i32 mMode = 0;  ///< 0 simple burn, else the burn that oxygen limits
  double mBurnRate = 1;
  double mRatio = 0.19;  ///< fuel per unit of oxygen
  double mBaseTemperature = 500;
  double mHeat = 1000;
  double mSmokeAmount = 0.2;
  double mExpansion = 0.2;
  const host::SplineData* mTemperatureCurve = nullptr;
  const host::SplineData* mSmokeCurve = nullptr;

  // For one step.
  bool mBurnsFuel = false;
  EGrid<double>*mT = nullptr, *mF = nullptr, *mFuelGrid = nullptr, *mS = nullptr, *mE = nullptr;
  const EGrid<double>* mCellGrid = nullptr;  ///< its cells are walked
  double mIgnition = 0, mThreshold = 0;
  double mBurnStep = 0, mExpansionStep = 0, mSmokeStep = 0;
  double mAgeSpan = 1, mTemperatureSpan = 1;
  bool mIsConstrained = false;
  /// Expansion by cell, where the divergence has another layout; written by the workers, spread in
  /// `Finish`.
  std::unique_ptr<EGrid<double>> mCellExpansion;
  /// In this step, by all workers.
  std::atomic<bool> mHasFuel = false, mHasHeat = false, mHasFlame = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
