#include "fluids/advection/busy_blocks.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

#include "fluids/advection/clear_cells.h"
#include "fluids/advection/run_lanes.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

SULVA_WIDE_KERNEL double LargestOf(const double* values, i32 n) {
  // Without their signs, doubles have the order of their bits, with what isn't finite on top.
  typedef i64 Keys __attribute__((vector_size(sizeof(RunLanes))));
  Keys most{};
  i32 i = 0;
  for (; i + kRun <= n; i += kRun) {
    Keys key;
    std::memcpy(&key, values + i, sizeof key);
    key &= std::numeric_limits<i64>::max();
    most = key > most ? key : most;
  }
  i64 top = std::max(std::max(most[0], most[1]), std::max(most[2], most[3]));
  for (; i < n; ++i)
    top = std::max(top, std::bit_cast<i64>(values[i]) & std::numeric_limits<i64>::max());
  return std::bit_cast<double>(top);
}

namespace {

/// The largest magnitude; not a finite one where one of them isn't.
double LargestMagnitude(const EGrid<double>& grid, i32 threads) {
  // A NaN is above all others only by its bits.
  const auto key = [](double v) { return std::bit_cast<i64>(v); };
  return ReduceBlocks(
      grid.mNz, threads, 0.0,
      [&](i32 z) { return LargestOf(grid.mData + i64{z} * grid.mSlice, grid.mSlice); },
      [&](double a, double b) { return key(a) > key(b) ? a : b; });
}

constexpr i32 kPiece = 64;  // cells that are looked at together first
constexpr u8 kClear = SolidCells::kNoPushOut | SolidCells::kOpenCentre;

/// Whether any of `n` numbers isn't `value`.
SULVA_WIDE_KERNEL bool Differs(const double* row, double value, i32 n) {
  typedef i64 Masks __attribute__((vector_size(sizeof(RunLanes))));
  const RunLanes wanted = RunLanes{} + value;
  Masks any{};
  i32 i = 0;
  for (; i + kRun <= n; i += kRun) {
    RunLanes v;
    Load(row + i, v);
    any |= v != wanted;
  }
  bool differs = (any[0] | any[1] | any[2] | any[3]) != 0;
  for (; i < n; ++i) differs |= row[i] != value;
  return differs;
}

/// to[i] |= from[i].
void Unite(const u8* from, i32 n, u8* __restrict to) {
  for (i32 i = 0; i < n; ++i) to[i] |= from[i];
}

/// Sets out[i] to the union of rows[i - reach .. i + reach] of `n` blocks.
void SpreadRow(const u8* row, i32 reach, i32 n, u8* __restrict out) {
  std::copy_n(row, n, out);
  for (i32 off = 1; off <= std::min(reach, n - 1); ++off) {
    Unite(row, n - off, out + off);
    Unite(row + off, n - off, out);
  }
}

}  // namespace

bool FindReach(const StaggeredVelocity& velocity, double perCell, i32 threads, VecInt3D& reach) {
  constexpr double kRounding = 1 + 1e-9, kFar = 64;
  for (i32 axis = 0; axis < 3; ++axis) {
    const double way = LargestMagnitude(velocity.Component(axis), threads) * perCell * kRounding;
    if (!(way < kFar)) return false;
    reach[axis] = static_cast<i32>(way) + 1;
  }
  return true;
}

void BusyBlocks::MarkRow(std::span<const SparseField> fields, const Grid<u8>& flags, i32 y, i32 z,
                         u8* marks) const {
  const i32 n = mDims.x, row = flags.Index(0, y, z);
  const bool isInner = y > 0 && y < mDims.y - 1 && z > 0 && z < mDims.z - 1;
  const auto isBusy = [&](i32 first, i32 last) {
    for (const SparseField& f : fields)
      if (Differs(f.field->mData + row + first, f.nothing, last - first)) return true;
    // The outermost cells have no flags.
    const i32 low = std::max(first, 1), high = std::min(last, n - 1);
    return isInner && low < high &&
           (CommonBits(flags.mData + row + low, high - low) & kClear) != kClear;
  };
  const auto firstOf = [&](i32 block) { return block == 0 ? 0 : 1 + block * kCells; };
  constexpr i32 kTogether = kPiece / kCells;
  for (i32 b = 0; b < mBlocks; b += kTogether) {
    const i32 end = std::min(b + kTogether, mBlocks);
    if (!isBusy(firstOf(b), std::min(firstOf(end), n))) {
      std::fill(marks + b, marks + end, u8{0});
      continue;
    }
    for (i32 i = b; i < end; ++i) marks[i] = isBusy(firstOf(i), std::min(firstOf(i + 1), n));
  }
}

void BusyBlocks::Find(std::span<const SparseField> fields, const Grid<u8>& flags,
                      const VecInt3D& reach, i32 threads) {
  mDims = flags.Dims();
  mBlocks = std::max(1, (mDims.x - 2 + kCells) / kCells);
  mMarks.resize(i64{mBlocks} * mDims.y * mDims.z);
  mSpread.resize(mMarks.size());
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    std::vector<u8> found(mBlocks);
    for (i32 y = 0; y < mDims.y; ++y) {
      MarkRow(fields, flags, y, z, found.data());
      SpreadRow(found.data(), (reach.x + kCells - 1) / kCells, mBlocks, Row(mMarks, y, z));
    }
  });
  // Rows of a layer lie behind one another, as layers do: both spread as blocks of a row do.
  const auto spread = [&](i32 reachOf, i32 count, i32 at, i32 step, std::vector<u8>& from,
                          std::vector<u8>& to) {
    u8* out = to.data() + i64{at} * step;
    std::fill_n(out, step, u8{0});
    for (i32 k = std::max(-reachOf, -(at % count)); k <= std::min(reachOf, count - 1 - at % count);
         ++k)
      Unite(from.data() + i64{at + k} * step, step, out);
  };
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y)
      spread(reach.y, mDims.y, z * mDims.y + y, mBlocks, mMarks, mSpread);
  });
  ForEachBlock(mDims.z, threads,
               [&](i32 z) { spread(reach.z, mDims.z, z, mBlocks * mDims.y, mSpread, mMarks); });
}

IndexRange BusyBlocks::PartOf(i32 first, i32 last, i32 y, i32 z) const {
  const u8* row = mMarks.data() + (i64{mDims.y} * z + y) * mBlocks;
  i32 low = (first - 1) / kCells, high = std::min((last - 2) / kCells + 1, mBlocks);
  while (low < high && !row[low]) ++low;
  while (low < high && !row[high - 1]) --high;
  return {std::min(1 + low * kCells, last), std::min(1 + high * kCells, last)};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
