// Matrices without a grid, formed row by row.
#pragma once
#include <algorithm>
#include <utility>
#include <vector>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

inline constexpr i32 kRowsOfBlock = 4096;  // that a worker takes at a time

/// f(row) for all rows, on up to `threads` workers.
template <class F>
void ForEachRow(i32 rows, i32 threads, F&& f) {
  ForEachBlock((rows + kRowsOfBlock - 1) / kRowsOfBlock, threads, [&](i32 block) {
    const i32 last = std::min(rows, (block + 1) * kRowsOfBlock);
    for (i32 i = block * kRowsOfBlock; i < last; ++i) f(i);
  });
}

/// A matrix that keeps the entries of each row one after the other.
struct SparseRows {
  std::vector<i64> start{0};  ///< of each row, and the end of the last
  std::vector<i32> column;
  std::vector<double> entry;

  i32 Rows() const { return static_cast<i32>(start.size()) - 1; }
  /// f(column, entry) for the entries of a row.
  template <class F>
  void ForEachEntry(i32 row, F&& f) const {
    for (i64 k = start[row]; k < start[row + 1]; ++k) f(column[k], entry[k]);
  }
};

/// Adds up the entries of one row by column, and lets them follow in the order of their coming.
class RowSum {
 public:
  RowSum() : mPlaces(128, -1) {}
  void Add(i32 c, double v) {
    const std::size_t slot = SlotOf(c);
    if (mPlaces[slot] >= 0) {
      mEntries[mPlaces[slot]].second += v;
      return;
    }
    mPlaces[slot] = static_cast<i32>(mEntries.size());
    mEntries.emplace_back(c, v);
    if (2 * mEntries.size() > mPlaces.size()) Grow();
  }
  void Flush(SparseRows& to) {
    // Slots are sought before any of them is given back: chains of taken ones lead there.
    mTaken.clear();
    for (const auto& [c, v] : mEntries) {
      to.column.push_back(c);
      to.entry.push_back(v);
      mTaken.push_back(SlotOf(c));
    }
    to.start.push_back(static_cast<i64>(to.column.size()));
    for (const std::size_t slot : mTaken) mPlaces[slot] = -1;
    mEntries.clear();
  }

 private:
  /// Of a column's place, or the free one that it may take.
  std::size_t SlotOf(i32 c) const {
    const std::size_t mask = mPlaces.size() - 1;
    std::size_t slot = (static_cast<u32>(c) * 2654435769U >> 16) & mask;
    while (mPlaces[slot] >= 0 && mEntries[mPlaces[slot]].first != c) slot = (slot + 1) & mask;
    return slot;
  }
  void Grow() {
    mPlaces.assign(2 * mPlaces.size(), -1);
    for (std::size_t k = 0; k < mEntries.size(); ++k)
      mPlaces[SlotOf(mEntries[k].first)] = static_cast<i32>(k);
  }

  std::vector<i32> mPlaces;  ///< in `mEntries`, by hash of the column; a power of 2
  std::vector<std::size_t> mTaken;
  std::vector<std::pair<i32, double>> mEntries;
};

/// The matrix whose row i is what f(i, sum) adds, formed on up to `threads` workers; the same
/// whatever their number.
template <class F>
SparseRows FormRows(i32 rows, i32 threads, F&& f) {
  std::vector<SparseRows> pieces((rows + kRowsOfBlock - 1) / kRowsOfBlock);
  const i32 count = static_cast<i32>(pieces.size());
  ForEachBlock(count, threads, [&](i32 block) {
    RowSum sum;
    const i32 last = std::min(rows, (block + 1) * kRowsOfBlock);
    for (i32 i = block * kRowsOfBlock; i < last; ++i) {
      f(i, sum);
      sum.Flush(pieces[block]);
    }
  });
  if (count == 1) return std::move(pieces.front());
  std::vector<i64> first(count + 1, 0);
  for (i32 b = 0; b < count; ++b) first[b + 1] = first[b] + pieces[b].start.back();
  SparseRows all;
  all.start.resize(static_cast<std::size_t>(rows) + 1);
  all.column.resize(first[count]);
  all.entry.resize(first[count]);
  ForEachBlock(count, threads, [&](i32 b) {
    SparseRows& piece = pieces[b];
    for (i32 i = 1; i <= piece.Rows(); ++i)
      all.start[i64{b} * kRowsOfBlock + i] = first[b] + piece.start[i];
    std::copy(piece.column.begin(), piece.column.end(), all.column.begin() + first[b]);
    std::copy(piece.entry.begin(), piece.entry.end(), all.entry.begin() + first[b]);
    piece = {};
  });
  return all;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
