#include "fluids/operators/grid_variable_density.h"

#include <vector>

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr double kReference = 294;    ///< kelvin at a temperature of 0
constexpr double kLeastShare = 0.05;  ///< of the base density

SULVA_WIDE_KERNEL void MixRow(const double* __restrict t, const double* __restrict m,
                              double* __restrict density, i32 n, double base, double k) {
  const double least = kLeastShare * base;
  for (i32 x = 0; x < n; ++x) {
    // No gas is colder than absolute zero.
    const double kelvin = t[x] + kReference > 1 ? t[x] + kReference : 1.0;
    const double d = base * kReference / kelvin * (m[x] * k + 1);
    density[x] = d > least ? d : least;
  }
}

}  // namespace

const NodeKind& GridVariableDensity::Kind() {
  static const NodeKind kind = {
      .id = 1300125,
      .type = "grid_variabledensity",
      .label = "GOP::VariableDensity",
      .className = "GridVariableDensity",
      .typeId = kTypeId,
      .list = kListOperators,
      .categories = kCategoryGrid,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Dynamics/Operators"},
      .purpose =
          "gives the gas a density of its own in each cell: a heavy gas flows along the ground",
      .example =
          {{},
           {example::kHeat, example::kSmoke,
            R"({ "type": "channel_scalar", "name": "density", "parameters": { "clear_each_step": true, "affects_bounds": false, "value_max": 10 } })",
            R"({ "type": "grid_variabledensity", "name": "mix", "parameters": { "target": "density", "admixture": "smoke", "temperature": "heat" } })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "density_channel": "density" } })"}},
      .rows = Parameters,
      .make = MakeNode<GridVariableDensity>,
  };
  return kind;
}

const ParameterTable& GridVariableDensity::Parameters() {
  static const ParameterTable table = {
      LinkRow(kTargetRow, "target",
              "where the weight of the gas is written: switch on its clear_each_step, switch off "
              "its affects_bounds, and link it as the solver's density_channel")
          .AcceptsAny(kAllChannels)
          .To(&GridVariableDensity::mScalar)
          .To(&GridVariableDensity::mVector)
          .Writes()
          .Required(),
      LinkRow(kAdmixtureRow, "admixture", "how much of the other gas a cell holds, 0..1")
          .AcceptsAny(kScalarChannels)
          .To(&GridVariableDensity::mAdmixture)
          .Required(),
      LinkRow(kTemperatureRow, "temperature", "heat that makes gas lighter, in degrees above 294 K")
          .AcceptsAny(kScalarChannels)
          .To(&GridVariableDensity::mTemperature)
          .Required(),
      RealRow(kBaseRow, "base_density", 1.184, "kg/m^3", "weight of the cold air")
          .AtLeast(1e-6)
          .To(&GridVariableDensity::mBaseDensity),
      RealRow(kOtherRow, "other_density", 8.314472, "kg/m^3",
              "weight of the other gas alone: heavier than air flows downhill")
          .AtLeast(0)
          .To(&GridVariableDensity::mOtherDensity),
      RealRow(1003, "option_value", 0.5, "none", "kept with the node; the density is free of it")
          .Kept(),
      LongRow(1006, "option_mode", 0, "", "kept with the node; the density is free of it").Kept(),
  };
  return table;
}

GridVariableDensity::GridVariableDensity(BaseNode* node, Scene* scene) : iObject(node, scene) {}

bool GridVariableDensity::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  return (mScalar || mVector) && mAdmixture && mTemperature;
}

void GridVariableDensity::CheckDirty() {
  iObject::CheckDirty();
  if ((mScene->mFlags & Scene::kTimeChanged) && !IsDirty()) MarkDirty(false);
  if (!IsDirty()) return;
  for (iBase* channel : {static_cast<iBase*>(mScalar), static_cast<iBase*>(mVector),
                         static_cast<iBase*>(mAdmixture), static_cast<iBase*>(mTemperature)})
    MarkChanged(channel);
}

bool GridVariableDensity::GatherGrids() {
  mM = DataOf(mAdmixture);
  mT = DataOf(mTemperature);
  if (!mM || !mT) return Deactivate("its admixture or its temperature has no grid");
  if (!mScalar && !mVector) return Deactivate("it has no target; name one under 'target'");
  const i32 components = mScalar ? 1 : 3;
  for (i32 i = 0; i < components; ++i) {
    mTargets[i] = mScalar ? mScalar->GetGrid(i) : mVector->GetGrid(i);
    if (!mTargets[i] || !mTargets[i]->mData) return Deactivate("its target has no grid");
    const VecInt3D cells = mTargets[i]->mLayout.dims;
    if (mM->Dims() != cells || mT->Dims() != cells)
      return Deactivate("its channels have different grids");
  }
  return true;
}

void GridVariableDensity::Prepare() {
  if (IsPlayed(mScalar, mVector)) return (void)Deactivate(kPlayedReason);
  if (!GatherGrids()) return;
  if (mTargets[0]->mLayout.dims.z < 3) return (void)Deactivate("its target has no inner cells");
  if (mScalar) mScalar->SettleEmission();
  SetFlag(FLAG_ACTIVE, true);
}

void GridVariableDensity::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const CellBox box = data.InnerLayersOf(mTargets[0]->mLayout.dims);
  if (box.IsEmpty()) return;
  if (!IsStaggered()) return AddToCells(box);
  for (i32 axis = 0; axis < 3; ++axis) AddToFaces(box, axis);
}

void GridVariableDensity::DensityRow(i32 first, i32 count, double* density) const {
  MixRow(mT->mData + first, mM->mData + first, density, count, mBaseDensity,
         (mOtherDensity - mBaseDensity) / mBaseDensity);
}

void GridVariableDensity::AddToCells(const CellBox& box) const {
  const i32 n = box.max.x - box.min.x;
  std::vector<double> density(n);
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const i32 first = mTargets[0]->Index(box.min.x, y, z);
      DensityRow(first, n, density.data());
      for (i32 c = 0; c < (mScalar ? 1 : 3); ++c) {
        double* target = mTargets[c]->mData + first;
        for (i32 x = 0; x < n; ++x) target[x] += density[x];
      }
    }
}

void GridVariableDensity::AddToFaces(const CellBox& box, i32 axis) const {
  EGrid<double>& faces = *mTargets[axis];
  const VecInt3D cells = mM->Dims();
  const i32 n = box.max.x - box.min.x;
  std::vector<double> density(n);
  // Adds the cells (.., y, z) to the faces `shift` above them.
  const auto addRow = [&](i32 y, i32 z, i32 shift) {
    DensityRow(mM->Index(box.min.x, y, z), n, density.data());
    const i32 up[3] = {axis == 0 ? shift : 0, axis == 1 ? shift : 0, axis == 2 ? shift : 0};
    double* face = faces.mData + faces.Index(box.min.x + up[0], y + up[1], z + up[2]);
    for (i32 x = 0; x < n; ++x) face[x] += 0.5 * density[x];
  };
  for (i32 z = box.min.z; z < box.max.z; ++z) {
    const bool isSeam = axis == 2 && z == box.min.z && z > 1;
    const bool leavesUpper = axis == 2 && z == box.max.z - 1 && z < cells.z - 2;
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      if (isSeam) addRow(y, z - 1, 1);
      addRow(y, z, 0);
      if (!leavesUpper) addRow(y, z, 1);
    }
  }
}

void GridVariableDensity::Finish() {
  iObject::Finish();
  if (Has(FLAG_ACTIVE) && mScalar) mScalar->BookWork();
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
