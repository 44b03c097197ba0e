// The density of a mixed and heated gas.
#pragma once
#include "fluids/operators/channel_work.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Adds the density of a gas to a channel that the projection can read, in stage 7: the ideal gas
/// law at constant pressure, 294 K and a mixture by volume, never below a twentieth of the base
/// density. The channel is to be cleared in every step.
class GridVariableDensity : public iObject {
 public:
  static constexpr i32 kTypeId = 66;
  GridVariableDensity(host::BaseNode* node, Scene* scene);

  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kTargetRow = 1000, kAdmixtureRow = 1001, kTemperatureRow = 1002,
                       kBaseRow = 1004, kOtherRow = 1005;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

 private:
  bool GatherGrids();
  bool IsStaggered() const { return mVector && mVector->GetTypeId() == kTypeVelocityChannel; }
  /// Densities of `count` cells from `first` on.
  void DensityRow(i32 first, i32 count, double* density) const;
  void AddToCells(const CellBox& box) const;
  /// Half the density of a cell to each of its faces of an axis; a layer of faces between two
  /// slabs belongs to the upper one.
  void AddToFaces(const CellBox& box, i32 axis) const;

  ScalarField* mScalar = nullptr;
  VectorField* mVector = nullptr;
  ScalarField* mAdmixture = nullptr;
  ScalarField* mTemperature = nullptr;
  double mBaseDensity = 1.184;
  double mOtherDensity = 8.314472;

  // For one step.
  EGrid<double>* mTargets[3] = {};
  const EGrid<double>*mM = nullptr, *mT = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
