// What a combustion does to a row of cells.
#include <algorithm>

#include "fluids/operators/grid_combustion.h"
#include "framework/rest.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// Oxygen of fresh air, less fuel and smoke in the cell.
constexpr double kFreshOxygen = 3.23;

}  // namespace

template <class Wants, class F>
void GridCombustion::ForEachAllowed(const Row& row, Wants&& wants, F&& f) const {
  if (!mIsConstrained) {
    for (i32 x = row.first; x < row.last; ++x)
      if (wants(x)) f(x);
    return;
  }
  mConstraints.ForEachWeighed(
      {row.first, row.last, this, row.worker},
      [&](i32 x) { return mCellGrid->PositionOf(x, row.y, row.z); },
      [&](i32 x) { return wants(x) ? mTime->stepDuration : 0.0; }, [&](i32 x, double) { f(x); });
}

bool GridCombustion::IsHot(const Row& row, i32 x, Found& found) const {
  if (!(row.fuel[x] > 0)) return false;
  found.fuel = true;
  return !(mIgnition > row.temperature[x]);
}

GridCombustion::Found GridCombustion::BurnRow(const Row& row) const {
  Found found;
  const auto burn = [&](i32 x) {
    found.heat = found.flame = true;
    row.fire[x] = 1;
    const double fuel = row.fuel[x];
    const double burnt = std::min(mBurnStep, fuel);
    row.fuel[x] = fuel - burnt;
    row.temperature[x] += burnt * mHeat;
    if (row.smoke) row.smoke[x] += burnt * mSmokeStep;
    if (row.expansion) row.expansion[x] += burnt * mExpansionStep;
  };
  ForEachAllowed(
      row, [&](i32 x) { return IsHot(row, x, found); }, burn);
  return found;
}

GridCombustion::Found GridCombustion::BurnRowWithOxygen(const Row& row) const {
  Found found;
  const auto burn = [&](i32 x) {
    found.heat = true;
    row.fire[x] = 1;
    const double fuel = row.fuel[x];
    const double left = std::max(kFreshOxygen - (fuel + (row.smoke ? row.smoke[x] : 0.0)), 0.0);
    const double burnt = std::min(left, fuel * mRatio) * mBurnStep;
    found.flame = found.flame || left > 0;
    if (row.smoke) row.smoke[x] += (1 / mRatio + 1) * burnt * mSmokeStep;
    row.fuel[x] = std::max(fuel - burnt / mRatio, 0.0);
    row.temperature[x] += burnt * mHeat;
    if (row.expansion) row.expansion[x] += burnt * mExpansionStep;
  };
  ForEachAllowed(
      row, [&](i32 x) { return IsHot(row, x, found); }, burn);
  return found;
}

GridCombustion::Found GridCombustion::ShapeRow(const Row& row) const {
  Found found;
  const bool smokes = row.smoke && mSmokeStep > 0;
  const auto curve = [](const SplineData* spline, double age) {
    return InterfaceHandler::EvaluateSpline(spline, age);
  };
  const auto burns = [&](i32 x) { return row.fire[x] > mThreshold && !(row.fire[x] > 1); };
  const auto shape = [&](i32 x) {
    found.flame = true;
    const double age = 1 - (row.fire[x] - mThreshold) / mAgeSpan;
    row.temperature[x] = curve(mTemperatureCurve, age) * mTemperatureSpan + mBaseTemperature;
    if (smokes) row.smoke[x] += curve(mSmokeCurve, age) * mSmokeAmount;
    if (row.expansion) row.expansion[x] += mExpansionStep;
  };
  ForEachAllowed(row, burns, shape);
  return found;
}

const char* GridCombustion::WhyNothingBurned() const {
  if (mHasFlame) return nullptr;
  if (!mBurnsFuel) return kNoFlameReason;
  if (!mHasFuel) return kNoFuelReason;
  return mHasHeat ? kNoAirReason : kColdFuelReason;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
