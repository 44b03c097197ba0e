#include "fluids/operators/grid_dissipate.h"

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

SULVA_WIDE_KERNEL void LowerRow(double* v, i32 n, double amount, double limit) {
  for (i32 x = 0; x < n; ++x) {
    const double lowered = v[x] - amount > limit ? v[x] - amount : limit;
    v[x] = v[x] > limit ? lowered : v[x];
  }
}

}  // namespace

const NodeKind& GridDissipate::Kind() {
  static const NodeKind kind = {
      .id = 1300116,
      .type = "grid_dissipate",
      .label = "GOP::Dissipation",
      .className = "GridDissipate",
      .typeId = kTypeId,
      .list = kListOperators,
      .categories = kCategoryGrid,
      .stages = {kChannelsOperators},
      .priority = 21,
      .menu = {"Grids/Operators"},
      .purpose = "lets a field fade away: smoke that thins out",
      .example =
          {{},
           {example::kSmoke,
            R"({ "type": "grid_dissipate", "name": "thin smoke", "parameters": { "channel": "smoke", "rate": 3 } })"}},
      .rows = Parameters,
      .make = MakeNode<GridDissipate>,
  };
  return kind;
}

const ParameterTable& GridDissipate::Parameters() {
  static const ParameterTable table = {
      LinkRow(1000, "channel", "what fades away")
          .AcceptsAny(kAllChannels)
          .To(&GridDissipate::mScalar)
          .To(&GridDissipate::mVector)
          .Writes()
          .Required(),
      RealRow(kRateRow, "rate", 0.04, "1/s^2",
              "how quickly smoke thins out: share of the range, times the square of the step's "
              "length, per substep")
          .AtLeast(0)
          .To(&GridDissipate::mRate),
  };
  return table;
}

GridDissipate::GridDissipate(BaseNode* node, Scene* scene) : iObject(node, scene) {}

bool GridDissipate::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  return mScalar || mVector;
}

void GridDissipate::CheckDirty() {
  iObject::CheckDirty();
  if (!WorkWhileSimulating(*this)) return;
  MarkChanged(mScalar);
  MarkChanged(mVector);
}

bool GridDissipate::GatherGrids() {
  const iBase* channel = mScalar ? static_cast<const iBase*>(mScalar) : mVector;
  if (!channel || !channel->Has(FLAG_ENABLED))
    return Deactivate("it has no channel; name one under 'channel'");
  for (i32 i = 0; i < 3; ++i) {
    mGrids[i] = mScalar ? mScalar->GetGrid(i) : mVector->GetGrid(i);
    if (mScalar && i > 0) break;
    if (!mGrids[i] || !mGrids[i]->mData) return Deactivate("its channel has no grid");
    if (mGrids[i]->Dims() != mGrids[0]->Dims())
      return Deactivate("the components of its channel have different grids");
  }
  return true;
}

void GridDissipate::Prepare() {
  const double dt = mTime->stepDuration;
  if (dt == 0) return (void)Deactivate(kNoStepReason);
  if (IsPlayed(mScalar, mVector)) return (void)Deactivate(kPlayedReason);
  if (!GatherGrids()) return;
  mAmount = (mGrids[0]->mRangeMax - mGrids[0]->mRangeMin) * mRate * dt;
  if (mGrids[0]->mNz < 3) return (void)Deactivate("its channel has no inner cells");
  mIsConstrained = !mConstraints.IsEmpty();
  mConstraints.Prepare(this);
  if (mScalar) mScalar->SettleEmission();
  SetFlag(FLAG_ACTIVE, true);
}

void GridDissipate::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const CellBox box = data.InnerLayersOf(mGrids[0]->Dims());
  for (i32 z = box.min.z; z < box.max.z && !data.TestBreak(); ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const Row row{box.min.x, y, z, box.max.x - box.min.x, static_cast<u32>(data.index)};
      mScalar ? LowerScalar(row) : LowerVector(row);
    }
}

template <class Fades, class Take>
void GridDissipate::ForEachWeighed(const Row& row, Fades&& fades, Take&& take) const {
  mConstraints.ForEachWeighed(
      {0, row.count, this, row.worker},
      [&](i32 i) { return mGrids[0]->PositionOf(row.x + i, row.y, row.z); },
      [&](i32 i) { return fades(i) ? mTime->stepDuration : 0.0; }, take);
}

void GridDissipate::LowerScalar(const Row& row) const {
  double* v = mGrids[0]->mData + mGrids[0]->Index(row.x, row.y, row.z);
  const double limit = mScalar->mValueMin;
  if (!mIsConstrained) return LowerRow(v, row.count, mAmount * mTime->stepDuration, limit);
  ForEachWeighed(
      row, [&](i32 i) { return v[i] > limit; },
      [&](i32 i, double weight) { v[i] = std::max(v[i] - weight * mAmount, limit); });
}

void GridDissipate::LowerVector(const Row& row) const {
  const i32 first = mGrids[0]->Index(row.x, row.y, row.z);
  double* v[3];
  for (i32 c = 0; c < 3; ++c) v[c] = mGrids[c]->mData + first;
  const Vec3d limit = mVector->mValueMin;
  const auto fades = [&](i32 i) {
    return v[0][i] > limit.x && v[1][i] > limit.y && v[2][i] > limit.z;
  };
  const auto lower = [&](i32 i, double weight) {
    const double amount = weight * mAmount;
    if (amount == 0) return;
    for (i32 c = 0; c < 3; ++c) v[c][i] -= amount;
    if (v[0][i] < limit.x && v[1][i] < limit.y && v[2][i] < limit.z)
      for (i32 c = 0; c < 3; ++c) v[c][i] = limit[c];
  };
  ForEachWeighed(row, fades, lower);
}

void GridDissipate::Finish() {
  iObject::Finish();
  if (mScalar && Has(FLAG_ACTIVE)) mScalar->BookWork();
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
