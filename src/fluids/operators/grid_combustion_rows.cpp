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

bool GridCombustion::Allows(const Row& row, i32 x) const {
  double weight = mTime->stepDuration;
  mConstraints.Test(mCellGrid->PositionOf(x, row.y, row.z), weight, this, row.worker);
  return weight != 0;
}

GridCombustion::Found GridCombustion::BurnRow(const Row& row) const {
  Found found;
  for (i32 x = row.first; x < row.last; ++x) {
    const double fuel = row.fuel[x];
    if (!(fuel > 0)) continue;
    found.fuel = true;
    if (mIgnition > row.temperature[x]) continue;
    if (mIsConstrained && !Allows(row, x)) continue;
    found.heat = found.flame = true;
    row.fire[x] = 1;
    const double burnt = std::min(mBurnStep, fuel);
    row.fuel[x] = fuel - burnt;
    row.temperature[x] += burnt * mHeat;
    if (row.smoke) row.smoke[x] += burnt * mSmokeStep;
    if (row.expansion) row.expansion[x] += burnt * mExpansionStep;
  }
  return found;
}

GridCombustion::Found GridCombustion::BurnRowWithOxygen(const Row& row) const {
  Found found;
  for (i32 x = row.first; x < row.last; ++x) {
    const double fuel = row.fuel[x];
    if (!(fuel > 0)) continue;
    found.fuel = true;
    if (mIgnition > row.temperature[x]) continue;
    if (mIsConstrained && !Allows(row, x)) continue;
    found.heat = true;
    row.fire[x] = 1;
    const double left = std::max(kFreshOxygen - (fuel + (row.smoke ? row.smoke[x] : 0.0)), 0.0);
    const double burnt = std::min(left, fuel * mRatio) * mBurnStep;
    found.flame = found.flame || left > 0;
    if (row.smoke) row.smoke[x] += (1 / mRatio + 1) * burnt * mSmokeStep;
    row.fuel[x] = std::max(fuel - burnt / mRatio, 0.0);
    row.temperature[x] += burnt * mHeat;
    if (row.expansion) row.expansion[x] += burnt * mExpansionStep;
  }
  return found;
}

GridCombustion::Found GridCombustion::ShapeRow(const Row& row) const {
  Found found;
  const bool smokes = row.smoke && mSmokeStep > 0;
  const auto curve = [](const SplineData* spline, double age) {
    return InterfaceHandler::EvaluateSpline(spline, age);
  };
  for (i32 x = row.first; x < row.last; ++x) {
    const double fire = row.fire[x];
    if (!(fire > mThreshold) || fire > 1) continue;
    if (mIsConstrained && !Allows(row, x)) continue;
    found.flame = true;
    const double age = 1 - (fire - mThreshold) / mAgeSpan;
    row.temperature[x] = curve(mTemperatureCurve, age) * mTemperatureSpan + mBaseTemperature;
    if (smokes) row.smoke[x] += curve(mSmokeCurve, age) * mSmokeAmount;
    if (row.expansion) row.expansion[x] += mExpansionStep;
  }
  return found;
}

const char* GridCombustion::WhyNothingBurned() const {
  if (mHasFlame) return nullptr;
  if (!mBurnsFuel) return kNoFlameReason;
  if (!mHasFuel) return kNoFuelReason;
  return mHasHeat ? kNoAirReason : kColdFuelReason;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
