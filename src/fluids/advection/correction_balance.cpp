#include "fluids/advection/correction_balance.h"

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Of the correction, what it may be off by to keep a total. Twice as much is no error of a step:
// the flow itself doesn't keep it, as one that is set and crosses walls.
constexpr double kTrusted = 0.5;

void Add(const Correction& from, Correction& to) {
  to.whole += from.whole;
  to.up += from.up;
  to.down += from.down;
  to.lost += from.lost;
}

// Of the corrections, an excess that is rounding.
constexpr double kSumNoise = 1e-9;

/// Leaves in `excess` what the factors can't even out.
CorrectionBalance::Factors FactorsFor(Correction sums, bool isTotalKnown, double gain,
                                      double& excess) {
  const double all = sums.up - sums.down;
  if (isTotalKnown) {
    const double off = sums.lost + gain - sums.whole, trusted = kTrusted * all;
    const double rest = std::clamp(2 * trusted - std::abs(off), 0.0, trusted);
    sums.whole += std::clamp(off, -rest, rest);
  }
  excess = sums.up + sums.down - sums.whole;
  CorrectionBalance::Factors factors;
  if (excess > 0 && sums.up > 0)
    factors.up = std::max(0.0, (sums.whole - sums.down) / sums.up);
  else if (excess < 0 && sums.down < 0)
    factors.down = std::max(0.0, (sums.whole - sums.up) / sums.down);
  excess = sums.up * factors.up + sums.down * factors.down - sums.whole;
  if (std::abs(excess) <= kSumNoise * all) excess = 0;
  return factors;
}

}  // namespace

void CorrectionBalance::Begin(i32 layers, const FieldPieces* pieces) {
  mPieces = pieces;
  mRest.resize(layers);
  mEntries.resize(layers);
  Clear();
}

void CorrectionBalance::Clear() {
  std::fill(mRest.begin(), mRest.end(), Correction{});
  for (auto& entries : mEntries) entries.clear();
}

Correction& CorrectionBalance::SumsOf(i32 z, i32 piece) {
  if (piece == 0) return mRest[z];
  std::vector<Entry>& entries = mEntries[z];
  if (entries.empty() || entries.back().piece != piece) entries.push_back({piece, {}});
  return entries.back().sums;
}

std::vector<Correction> CorrectionBalance::SumPieces() const {
  std::vector<Correction> sums(HasPieces() ? mPieces->Count() : 1);
  for (std::size_t z = 0; z < mRest.size(); ++z) {
    Add(mRest[z], sums[0]);
    for (const Entry& entry : mEntries[z]) Add(entry.sums, sums[entry.piece]);
  }
  return sums;
}

void CorrectionBalance::Find(bool isTotalKnown, double gain) {
  mFactors.clear();
  mExcess.clear();
  mScales = mHasExcess = false;
  for (const Correction& each : SumPieces()) {
    mFactors.push_back(
        FactorsFor(each, isTotalKnown, mFactors.empty() ? gain : 0, mExcess.emplace_back()));
    mHasExcess |= mExcess.back() != 0;
    mScales |= mFactors.back().up != 1 || mFactors.back().down != 1;
  }
}

void CorrectionBalance::BeginRoom() {
  mShares.assign(mExcess.size(), 0);
  Clear();
}

void CorrectionBalance::FindShares() {
  const std::vector<Correction> room = SumPieces();
  for (std::size_t i = 0; i < mShares.size(); ++i)
    if (room[i].whole > 0) mShares[i] = std::min(1.0, std::abs(mExcess[i]) / room[i].whole);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
