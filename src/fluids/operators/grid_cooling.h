// Cools temperature and ages fire.
#pragma once
#include "fluids/operators/channel_work.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How temperature falls.
enum class CoolingMode : i32 {
  Quartic = 0,      ///< by the fourth power of the temperature, per substep
  Exponential = 1,  ///< by a share of the temperature a second
  Linear = 2,       ///< by a share of the range a second
};

/// Cools a temperature channel towards the lower end of its range and ages a fire channel, in stage
/// 15: a fire above the threshold falls to it within its burn time, and keeps its heat; below, it
/// falls to 0 within its fade time.
class GridCooling : public iObject {
 public:
  static constexpr i32 kTypeId = 62;
  GridCooling(host::BaseNode* node, Scene* scene);

  static const NodeKind& Kind();
  ConstraintList* Constraints() override { return &mConstraints; }
  static const host::ParameterTable& Parameters();
  static constexpr i32 kTemperatureRow = 1000, kFireRow = 1001, kRateRow = 1002;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  /// Cools the cells of a row by the weights of the constraints.
  void CoolConstrained(double* t, const double* burns, const CellBox& row, u32 worker) const;

  ScalarField* mTemperature = nullptr;
  FireField* mFire = nullptr;
  ConstraintList mConstraints;
  i32 mMode = 0;
  double mRate = 0.6;

  // For one step.
  EGrid<double>*mT = nullptr, *mF = nullptr;
  double mColdest = 0, mInvSpan = 1;
  double mFactor = 0;  ///< of the mode's rule, for a weight of 1
  double mThreshold = 0, mAbove = 0, mBelow = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
