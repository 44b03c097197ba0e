// Takes a fixed amount off a channel.
#pragma once
#include "fluids/operators/channel_work.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Lowers the values of a channel towards the lower end of its range, in stage 15.
class GridDissipate : public iObject {
 public:
  static constexpr i32 kTypeId = 65;
  GridDissipate(host::BaseNode* node, Scene* scene);

  static const NodeKind& Kind();
  ConstraintList* Constraints() override { return &mConstraints; }
  static const host::ParameterTable& Parameters();
  static constexpr i32 kRateRow = 1001;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  /// A row of the box of a worker, by its first cell.
  struct Row {
    i32 x, y, z, count;
    u32 worker;
  };
  bool GatherGrids();
  void LowerScalar(const Row& row) const;
  void LowerVector(const Row& row) const;
  /// take(i, weight) for the cells of a row of which fades(i) is true and constraints leave some.
  template <class Fades, class Take>
  void ForEachWeighed(const Row& row, Fades&& fades, Take&& take) const;

  ScalarField* mScalar = nullptr;
  VectorField* mVector = nullptr;
  ConstraintList mConstraints;
  double mRate = 0.04;

  // For one step.
  EGrid<double>* mGrids[3] = {};
  double mAmount = 0;
  bool mIsConstrained = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
