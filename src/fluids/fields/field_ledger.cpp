#include "fluids/fields/field_ledger.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

struct Sums {
  double total = 0, size = 0;
};

/// The inner samples of a layer; eight lanes, so that the loop runs at the speed of memory.
Sums SumLayer(const Grid<double>& field, i32 z) {
  constexpr i32 kLanes = 8;
  double total[kLanes] = {}, size[kLanes] = {};
  const i32 count = field.mNx - 2;
  for (i32 y = 1; y < field.mNy - 1; ++y) {
    const double* row = field.mData + field.Index(1, y, z);
    i32 x = 0;
    for (; x + kLanes <= count; x += kLanes)
      for (i32 lane = 0; lane < kLanes; ++lane) {
        total[lane] += row[x + lane];
        size[lane] += std::abs(row[x + lane]);
      }
    for (; x < count; ++x) {
      total[0] += row[x];
      size[0] += std::abs(row[x]);
    }
  }
  const auto add = [](const double* v) {
    return ((v[0] + v[1]) + (v[2] + v[3])) + ((v[4] + v[5]) + (v[6] + v[7]));
  };
  return {add(total), add(size)};
}

}  // namespace

double FieldAccount::Look(const Grid<double>& field, i32 threads) {
  const Sums sums = ReduceBlocks(
      std::max(0, field.mNz - 2), threads, Sums{}, [&](i32 z) { return SumLayer(field, z + 1); },
      [](const Sums& a, const Sums& b) {
        return Sums{a.total + b.total, a.size + b.size};
      });
  mSize = sums.size;
  return sums.total - std::exchange(mTotal, sums.total);
}

double FieldAccount::Close() {
  mSize = 0;
  return std::exchange(mTotal, 0);
}

void FieldAccount::Give(double& entry, double amount) {
  entry += amount;
  mGiven += std::max(amount, 0.0);
}

void FieldAccount::AddWork(double change) {
  if (change > 0)
    Give(mLedger.made, change);
  else
    mLedger.burnt -= change;
}

FieldLedger FieldAccount::Take() {
  mLedger.total = mTotal;
  return std::exchange(mLedger, {});
}

double FieldAccount::TakeGiven() { return std::exchange(mGiven, 0); }

void FieldAccount::Persist(StateArchive& archive) { archive(mTotal, mSize, mGiven, mHasWarned); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
