#include "fluids/operators/grid_cooling.h"

#include <vector>

#include "fluids/fields/channel_kinds.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// Ages a row of fire; a cell that burned at its start gets a 1 in `burns`.
SULVA_WIDE_KERNEL void AgeRow(double* __restrict fire, double* __restrict burns, i32 n,
                              double threshold, double above, double below) {
  for (i32 x = 0; x < n; ++x) {
    const double f = fire[x] > 1 ? 1.0 : fire[x];
    const double burning = f - above > threshold ? f - above : threshold;
    const double faded = f - below > 0 ? f - below : 0.0;
    const double rest = f > 0 ? faded : f;
    burns[x] = f > threshold ? 1.0 : 0.0;
    fire[x] = f > threshold ? burning : rest;
  }
}

/// Cools a row towards `coldest`; cells with a 1 in `burns` keep their heat.
template <CoolingMode kMode>
[[gnu::always_inline]] inline void CoolRow(double* __restrict t, const double* __restrict burns,
                                           i32 n, double coldest, double invSpan, double factor) {
  for (i32 x = 0; x < n; ++x) {
    const double v = t[x];
    double cooled;
    if constexpr (kMode == CoolingMode::Quartic) {
      const double q = (v - coldest) * invSpan, q2 = q * q;
      cooled = v - q2 * q2 * factor;
    } else if constexpr (kMode == CoolingMode::Exponential) {
      cooled = v * (1 - factor);
    } else {
      cooled = v - factor;
    }
    const double kept = (burns[x] != 0) | !(v > coldest) ? v : cooled;
    t[x] = kept > coldest ? kept : coldest;
  }
}

SULVA_WIDE_KERNEL void CoolQuartic(double* t, const double* burns, i32 n, double coldest,
                                   double invSpan, double factor) {
  CoolRow<CoolingMode::Quartic>(t, burns, n, coldest, invSpan, factor);
}
SULVA_WIDE_KERNEL void CoolExponential(double* t, const double* burns, i32 n, double coldest,
                                       double factor) {
  CoolRow<CoolingMode::Exponential>(t, burns, n, coldest, 1, factor);
}
SULVA_WIDE_KERNEL void CoolLinear(double* t, const double* burns, i32 n, double coldest,
                                  double factor) {
  CoolRow<CoolingMode::Linear>(t, burns, n, coldest, 1, factor);
}

}  // namespace

const NodeKind& GridCooling::Kind() {
  static const NodeKind kind = {
      .id = 1300041,
      .type = "grid_cooling",
      .label = "GOP::Cooling",
      .className = "GridCooling",
      .typeId = kTypeId,
      .list = kListOperators,
      .categories = kCategoryGrid,
      .stages = {kChannelsOperators},
      .priority = 20,
      .menu = {"Grids/Operators"},
      .purpose = "lets heat fade and flames age: how high they reach",
      .example =
          {{},
           {example::kHeat, example::kFire,
            R"({ "type": "grid_cooling", "name": "cool", "parameters": { "temperature": "heat", "fire": "fire", "rate": 0.12 } })"}},
      .rows = Parameters,
      .make = MakeNode<GridCooling>,
  };
  return kind;
}

const ParameterTable& GridCooling::Parameters() {
  static const ParameterTable table = {
      LinkRow(kTemperatureRow, "temperature", "the heat that fades: how far up gas keeps rising")
          .AcceptsAny(kScalarChannels)
          .To(&GridCooling::mTemperature)
          .Writes()
          .Required(),
      LinkRow(kFireRow, "fire",
              "the flames that age along with it; cells that burn keep their heat",
              {FireField::Kind().id})
          .To(&GridCooling::mFire)
          .Writes()
          .ReadsToo(),
      LongRow(1004, "mode", 0, "",
              "quartic cools hot gas at once and warm gas slowly, as glowing bodies do; the others "
              "are even")
          .Choices({{0, "quartic"}, {1, "exponential"}, {2, "linear"}})
          .To(&GridCooling::mMode),
      RealRow(kRateRow, "rate", 0.6, "1/s",
              "how short flames get: share of the range that is lost: quartic, by the hottest gas "
              "per substep; else a second")
          .AtLeast(0)
          .To(&GridCooling::mRate),
  };
  return table;
}

GridCooling::GridCooling(BaseNode* node, Scene* scene) : iObject(node, scene) {}

bool GridCooling::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  return mTemperature != nullptr;
}

void GridCooling::CheckDirty() {
  iObject::CheckDirty();
  if (!WorkWhileSimulating(*this)) return;
  MarkChanged(mTemperature);
  MarkChanged(mFire);
}

void GridCooling::Prepare() {
  const double dt = mTime->stepDuration;
  mT = DataOf(mTemperature);
  mF = DataOf(mFire);
  if (dt == 0) return (void)Deactivate(kNoStepReason);
  if (!mTemperature || !mTemperature->Has(FLAG_ENABLED))
    return (void)Deactivate("it has no temperature; name one under 'temperature'");
  if (IsPlayed(mTemperature, mFire)) return (void)Deactivate(kPlayedReason);
  if (!mT) return (void)Deactivate("its temperature has no grid");
  if (mF && mF->Dims() != mT->Dims()) return (void)Deactivate("its channels have different grids");
  mTemperature->SettleEmission();
  const double span = mT->mRangeMax - mT->mRangeMin;
  mColdest = mT->mRangeMin;
  mInvSpan = 1 / span;
  switch (static_cast<CoolingMode>(mMode)) {
    case CoolingMode::Quartic: mFactor = span * mRate; break;
    case CoolingMode::Exponential: mFactor = mRate * dt; break;
    default: mFactor = span * mRate * dt; break;
  }
  if (mF) {
    mThreshold = FlameThreshold(*mFire, mT->mRangeMax);
    mAbove = (1 - mThreshold) / mFire->mBurnTime * dt;
    mBelow = mThreshold / mFire->mFadeTime * dt;
  }
  if (mT->mNz < 3) return (void)Deactivate("its grid has no inner cells");
  mConstraints.Prepare(this);
  SetFlag(FLAG_ACTIVE, true);
}

void GridCooling::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const CellBox box = data.InnerLayersOf(mT->Dims());
  const i32 n = box.max.x - box.min.x;
  std::vector<double> burns(n, 0.0);
  for (i32 z = box.min.z; z < box.max.z && !data.TestBreak(); ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      const i32 first = mT->Index(box.min.x, y, z);
      double* t = mT->mData + first;
      if (mF) AgeRow(mF->mData + first, burns.data(), n, mThreshold, mAbove, mBelow);
      if (!mConstraints.IsEmpty()) {
        CoolConstrained(t, burns.data(), {{box.min.x, y, z}, {box.max.x, y, z}}, data.index);
        continue;
      }
      switch (static_cast<CoolingMode>(mMode)) {
        case CoolingMode::Quartic:
          CoolQuartic(t, burns.data(), n, mColdest, mInvSpan, mFactor);
          break;
        case CoolingMode::Exponential:
          CoolExponential(t, burns.data(), n, mColdest, mFactor);
          break;
        default: CoolLinear(t, burns.data(), n, mColdest, mFactor); break;
      }
    }
}

void GridCooling::CoolConstrained(double* t, const double* burns, const CellBox& row,
                                  u32 worker) const {
  const auto place = [&](i32 i) { return mT->PositionOf(row.min.x + i, row.min.y, row.min.z); };
  const auto start = [&](i32 i) {
    if (burns[i] == 0 && t[i] > mColdest) return 1.0;
    t[i] = std::max(t[i], mColdest);
    return 0.0;
  };
  const auto cool = [&](i32 i, double w) {
    double& v = t[i];
    switch (static_cast<CoolingMode>(mMode)) {
      case CoolingMode::Quartic: {
        const double q = (v - mColdest) * mInvSpan, q2 = q * q;
        v -= q2 * q2 * mFactor * w;
        break;
      }
      case CoolingMode::Exponential: v *= 1 - w * mFactor; break;
      default: v -= w * mFactor; break;
    }
    v = std::max(v, mColdest);
  };
  mConstraints.ForEachWeighed({0, row.max.x - row.min.x, this, worker}, place, start, cool);
}

void GridCooling::Finish() {
  iObject::Finish();
  if (Has(FLAG_ACTIVE)) mTemperature->BookWork();
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
