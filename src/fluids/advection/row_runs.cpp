#include "fluids/advection/row_runs.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/flow/solid_cells.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Folds each number of a plane of `dims.y` times `dims.z` with those up to `reach` away along y
/// and z, by join(a, b), for which no number counts twice.
template <class T, class Join>
void SpreadOverRows(const VecInt3D& dims, const VecInt3D& reach, std::vector<T>& rows,
                    Join&& join) {
  std::vector<T> from;
  const auto spread = [&](i32 steps, i32 step, auto&& placeOf, i32 count) {
    // Windows of numbers side by side that are folded already make wider ones.
    for (i32 done = 0, wanted = std::min(steps, count - 1); done < wanted;) {
      const i32 k = std::min(wanted - done, 2 * done + 1);
      from = rows;
      for (i32 i = 0; i < static_cast<i32>(rows.size()); ++i) {
        const i32 at = placeOf(i);
        rows[i] = join(join(rows[i], from[i - std::min(k, at) * step]),
                       from[i + std::min(k, count - 1 - at) * step]);
      }
      done += k;
    }
  };
  spread(
      reach.y, 1, [&](i32 i) { return i % dims.y; }, dims.y);
  spread(
      reach.z, dims.y, [&](i32 i) { return i / dims.y; }, dims.z);
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

namespace {

// As far as the sweeps of an evening see. Nearer, what is cut off there would show.
constexpr i32 kSeen = 13;
// A round of evening takes content to the next cell, and so does sharpening.
constexpr i32 kPassed = 5;
// Of the largest value: whether there is less than that in a cell is for rounding to say.
constexpr double kTraceShare = 1e-9;
constexpr i32 kFar = std::numeric_limits<i32>::max() / 2;

/// The cells of a row from the first to the last one that matters.
struct RowSearch {
  const double* values;
  const u8* flags;  ///< null in rows that have none
  double nothing, trace;
  i32 n;

  bool Matters(i32 x) const {
    constexpr u8 kClear = SolidCells::kNoPushOut | SolidCells::kOpenCentre;
    // The outermost cells have no flags.
    const bool isFlagged = flags && x > 0 && x < n - 1 && (flags[x] & kClear) != kClear;
    return isFlagged || !(std::abs(values[x] - nothing) <= trace);
  }
  bool DoAny(i32 first, i32 last) const {
    bool any = false;
    for (i32 x = first; x < last; ++x) any |= Matters(x);
    return any;
  }
  IndexRange Find() const {
    constexpr i32 kTogether = 16;
    IndexRange run{0, n};
    while (run.first + kTogether <= n && !DoAny(run.first, run.first + kTogether))
      run.first += kTogether;
    while (run.first < n && !Matters(run.first)) ++run.first;
    while (run.last - kTogether >= run.first && !DoAny(run.last - kTogether, run.last))
      run.last -= kTogether;
    while (run.last > run.first && !Matters(run.last - 1)) --run.last;
    return run;
  }
};

}  // namespace

/// Runs of all cells within `reach` of one that matters, which may go beyond the ends of the grid.
/// Not by blocks of cells: mirrored fields have mirrored runs.
std::vector<IndexRange> RowRuns::FindWithin(const SparseField& field, const Grid<u8>& flags,
                                            double trace, const VecInt3D& reach,
                                            i32 threads) const {
  std::vector<IndexRange> rows(i64{mDims.y} * mDims.z);
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) {
      const bool isInner = y > 0 && z > 0 && y < mDims.y - 1 && z < mDims.z - 1;
      const i32 first = flags.Index(0, y, z);
      const RowSearch search{field.field->mData + first, isInner ? flags.mData + first : nullptr,
                             field.nothing, trace, mDims.x};
      IndexRange row = search.Find();
      if (row.IsEmpty()) row = {kFar, -kFar};
      rows[z * mDims.y + y] = row;
    }
  });
  SpreadOverRows(mDims, reach, rows, [](const IndexRange& a, const IndexRange& b) {
    return IndexRange{std::min(a.first, b.first), std::max(a.last, b.last)};
  });
  for (IndexRange& row : rows)
    if (!row.IsEmpty()) row = {row.first - reach.x, row.last + reach.x};
  return rows;
}

void RowRuns::Take(const SparseField& field, const Grid<u8>& flags, const VecInt3D& reach,
                   i32 travel, i32 threads) {
  mDims = flags.Dims();
  const double largest = ReduceBlocks(
      mDims.z, threads, 0.0,
      [&](i32 z) {
        return LargestOf(field.field->mData + i64{z} * field.field->mSlice, field.field->mSlice);
      },
      // What isn't finite counts wherever it stands.
      [](double a, double b) {
        return a < b || !(b <= std::numeric_limits<double>::max()) ? b : a;
      });
  const auto around = [&](i32 margin) {
    margin += travel;
    return reach + VecInt3D{margin, margin, margin};
  };
  mRows = FindWithin(field, flags, kTraceShare * largest, around(kSeen), threads);
  const std::vector<IndexRange> traces = FindWithin(field, flags, 0, around(kPassed), threads);
  for (std::size_t i = 0; i < mRows.size(); ++i) {
    IndexRange& row = mRows[i];
    row = {std::min(row.first, traces[i].first), std::max(row.last, traces[i].last)};
    if (row.IsEmpty()) {
      row = {};
      continue;
    }
    // The outermost cells go with those beside them.
    if (row.first <= 1) row.first = 0;
    if (row.last >= mDims.x - 1) row.last = mDims.x;
  }
  FindCore(reach);
  FindNear(reach);
}

void RowRuns::FindCore(const VecInt3D& reach) {
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
