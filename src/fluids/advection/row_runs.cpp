#include "fluids/advection/row_runs.h"

#include <algorithm>
#include <limits>

#include "fluids/flow/solid_cells.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Folds each number of a plane of `dims.y` times `dims.z` with those up to `reach` away along y and z,
/// by join(a, b).
template <class T, class Join>
void SpreadOverRows(const VecInt3D& dims, const VecInt3D& reach, std::vector<T>& rows, Join&& join) {
  std::vector<T> from;
  const auto spread = [&](i32 steps, i32 step, auto&& placeOf, i32 count) {
    from = rows;
    for (i32 i = 0; i < static_cast<i32>(rows.size()); ++i)
      for (i32 k = 1; k <= std::min(steps, count - 1); ++k) {
        const i32 at = placeOf(i);
        if (at >= k) rows[i] = join(rows[i], from[i - k * step]);
        if (at + k < count) rows[i] = join(rows[i], from[i + k * step]);
      }
  };
  spread(reach.y, 1, [&](i32 i) { return i % dims.y; }, dims.y);
  spread(reach.z, dims.y, [&](i32 i) { return i / dims.y; }, dims.z);
}

}  // namespace

void RowRuns::TakeAll(const VecInt3D& dims) {
  mDims = dims;
  mRows.assign(i64{dims.y} * dims.z, {0, dims.x});
  mCore = mRows;
  mNear.assign(mRows.size(), 1);
}

void RowRuns::TakeNone(const VecInt3D& dims) {
  mDims = dims;
  mRows.assign(i64{dims.y} * dims.z, {});
  mCore = mRows;
  mNear.assign(mRows.size(), 0);
}

/// The cells of a row from the first to the last one that matters. Not by blocks of cells: mirrored
/// fields have mirrored runs.
IndexRange RowRuns::Find(const SparseField& field, const Grid<u8>& flags, i32 y, i32 z) const {
  constexpr u8 kClear = SolidCells::kNoPushOut | SolidCells::kOpenCentre;
  constexpr i32 kTogether = 16;
  const i32 n = mDims.x;
  const double* values = field.field->mData + field.field->Index(0, y, z);
  const u8* known = flags.mData + flags.Index(0, y, z);
  const bool isInner = y > 0 && z > 0 && y < mDims.y - 1 && z < mDims.z - 1;
  const auto matters = [&](i32 x) {
    // The outermost cells have no flags.
    const bool isFlagged = isInner && x > 0 && x < n - 1 && (known[x] & kClear) != kClear;
    return isFlagged || values[x] != field.nothing;
  };
  const auto doAny = [&](i32 first, i32 last) {
    bool any = false;
    for (i32 x = first; x < last; ++x) any |= matters(x);
    return any;
  };
  IndexRange run{0, n};
  while (run.first + kTogether <= n && !doAny(run.first, run.first + kTogether))
    run.first += kTogether;
  while (run.first < n && !matters(run.first)) ++run.first;
  while (run.last - kTogether >= run.first && !doAny(run.last - kTogether, run.last))
    run.last -= kTogether;
  while (run.last > run.first && !matters(run.last - 1)) --run.last;
  return run;
}

void RowRuns::Take(const SparseField& field, const Grid<u8>& flags, const VecInt3D& reach,
                   i32 margin, i32 threads) {
  constexpr i32 kFar = std::numeric_limits<i32>::max() / 2;
  mDims = flags.Dims();
  mRows.resize(i64{mDims.y} * mDims.z);
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) {
      IndexRange& row = mRows[z * mDims.y + y] = Find(field, flags, y, z);
      if (row.IsEmpty()) row = {kFar, -kFar};
    }
  });
  const VecInt3D round = reach + VecInt3D{margin, margin, margin};
  SpreadOverRows(mDims, round, mRows, [](const IndexRange& a, const IndexRange& b) {
    return IndexRange{std::min(a.first, b.first), std::max(a.last, b.last)};
  });
  for (IndexRange& row : mRows) {
    if (row.IsEmpty()) {
      row = {};
      continue;
    }
    row = {row.first - round.x, row.last + round.x};
    // The outermost cells go with those beside them.
    if (row.first <= 1) row.first = 0;
    if (row.last >= mDims.x - 1) row.last = mDims.x;
  }
  FindCore(reach);
  FindNear(reach);
}

void RowRuns::FindCore(const VecInt3D& reach) {
  constexpr i32 kFar = std::numeric_limits<i32>::max() / 2;
  mCore = mRows;
  // Beyond the ends of the grid nobody asks.
  for (IndexRange& row : mCore) {
    row.first = row.IsEmpty() ? kFar : row.first == 0 ? 0 : row.first + reach.x;
    row.last = row.last == mDims.x ? row.last : row.last - reach.x;
  }
  SpreadOverRows(mDims, reach, mCore, [](const IndexRange& a, const IndexRange& b) {
    return IndexRange{std::max(a.first, b.first), std::min(a.last, b.last)};
  });
  for (IndexRange& row : mCore)
    if (row.IsEmpty()) row = {};
}

void RowRuns::FindNear(const VecInt3D& reach) {
  mNear.resize(mRows.size());
  for (std::size_t i = 0; i < mRows.size(); ++i) mNear[i] = !mRows[i].IsEmpty();
  SpreadOverRows(mDims, reach + VecInt3D{1, 1, 1}, mNear,
                 [](u8 a, u8 b) { return static_cast<u8>(a | b); });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
