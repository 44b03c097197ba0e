#include "fluids/surfaces/surface_smoothing.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "fluids/volume/cell_fractions.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kMostMove = 0.25, kMostShift = 1;  ///< cells
constexpr i64 kPart = 4096;

/// The samples that move, and what was there before.
class Smoother {
 public:
  Smoother(EGrid<double>& grid, double outside, i32 threads)
      : mGrid(grid), mOutside(outside), mThreads(threads) {}

  void Run(i32 steps) {
    Collect();
    const double volume = Volume(0);
    std::vector<double> first = Values(), next(mIndices.size());
    const double most = kMostMove * mGrid.mLayout.cellSize;
    for (i32 step = 0; step < steps; ++step) {
      ForEachPart([&](i64 i) {
        next[i] = std::clamp(MeanAbout(mIndices[i]), first[i] - most, first[i] + most);
      });
      ForEachPart([&](i64 i) { mGrid.mData[mIndices[i]] = next[i]; });
    }
    // What can't be brought back, such as a sheet thinner than the samples tell, stays as it was.
    if (!BringBack(volume)) ForEachPart([&](i64 i) { mGrid.mData[mIndices[i]] = first[i]; });
  }

 private:
  template <class F>
  void ForEachPart(F&& f) const {
    const i64 count = static_cast<i64>(mIndices.size());
    ForEachBlock(static_cast<i32>((count + kPart - 1) / kPart), mThreads, [&](i32 part) {
      for (i64 i = part * kPart; i < std::min(count, (part + 1) * kPart); ++i) f(i);
    });
  }
  std::vector<double> Values() const {
    std::vector<double> values(mIndices.size());
    ForEachPart([&](i64 i) { values[i] = mGrid.mData[mIndices[i]]; });
    return values;
  }

  /// What of the cells near the surface lies below `level`, in cells.
  double Volume(double level) const {
    const i32 ny = mGrid.mNx, nz = mGrid.mSlice;
    return SumBlocks(static_cast<i64>(mCells.size()), kPart, mThreads, [&](i64 from, i64 to) {
      double sum = 0;
      for (i64 i = from; i < to; ++i) {
        const double* v = mGrid.mData + mCells[i];
        const double c[8] = {v[0] - level,       v[1] - level,          v[ny] - level,
                             v[ny + 1] - level,  v[nz] - level,         v[nz + 1] - level,
                             v[nz + ny] - level, v[nz + ny + 1] - level};
        const auto below = std::count_if(c, c + 8, [](double corner) { return corner <= 0; });
        sum += below == 8 ? 1 : below == 0 ? 0 : CubeFraction(c);
      }
      return sum;
    });
  }
  /// Moves the surface until it holds a volume, which grows with the level: secants that keep it
  /// between them (Dowell and Jarratt 1971), and halves where those are slow. False where no level
  /// does.
  bool BringBack(double volume) {
    constexpr i32 kSecants = 10, kMostTurns = 60;
    constexpr double kNear = 2e-4;
    // At the value of all that is out of reach, the whole grid would fill at once.
    double low = -kMostShift * mGrid.mLayout.cellSize;
    double high = std::min(-low, 0.999 * mOutside);
    double below = Volume(low) - volume, above = Volume(high) - volume;
    if (!(below < 0 && above > 0)) return false;
    double level = 0;
    bool isBack = false;
    for (i32 turn = 0, side = 0; turn < kMostTurns && !isBack; ++turn) {
      level = turn < kSecants ? low - below * (high - low) / (above - below) : 0.5 * (low + high);
      const double error = Volume(level) - volume;
      isBack = std::abs(error) <= kNear * volume;
      if (error < 0) {
        low = level;
        below = error;
        if (side < 0) above /= 2;
        side = -1;
      } else {
        high = level;
        above = error;
        if (side > 0) below /= 2;
        side = 1;
      }
    }
    if (isBack) ForEachPart([&](i64 i) { mGrid.mData[mIndices[i]] -= level; });
    return isBack;
  }

  void Collect() {
    std::vector<std::vector<i32>> samples(mGrid.mNz), cells(mGrid.mNz);
    const std::vector<u8> isBusy = FindBusyRows();
    ForEachBlock(mGrid.mNz - 1, mThreads, [&](i32 z) {
      for (i32 y = 0; y < mGrid.mNy - 1; ++y) {
        if (!IsBesideBusy(isBusy, y, z)) continue;
        for (i32 x = 0; x < mGrid.mNx - 1; ++x) {
          const i32 at = mGrid.Index(x, y, z);
          if (x > 0 && y > 0 && z > 0 && Varies(at)) samples[z].push_back(at);
          if (MayCross(at)) cells[z].push_back(at);
        }
      }
    });
    for (const auto& layer : samples) mIndices.insert(mIndices.end(), layer.begin(), layer.end());
    for (const auto& layer : cells) mCells.insert(mCells.end(), layer.begin(), layer.end());
  }

  /// Which lines of samples along x aren't outside all along.
  std::vector<u8> FindBusyRows() const {
    std::vector<u8> isBusy(static_cast<std::size_t>(mGrid.mNy) * mGrid.mNz);
    ForEachBlock(mGrid.mNz, mThreads, [&](i32 z) {
      for (i32 y = 0; y < mGrid.mNy; ++y) {
        const double* row = mGrid.mData + mGrid.Index(0, y, z);
        double least = row[0];
        for (i32 x = 1; x < mGrid.mNx; ++x) least = std::min(least, row[x]);
        isBusy[std::size_t(z) * mGrid.mNy + y] = least < mOutside;
      }
    });
    return isBusy;
  }
  bool IsBesideBusy(const std::vector<u8>& isBusy, i32 y, i32 z) const {
    for (i32 k = std::max(z - 1, 0); k <= std::min(z + 1, mGrid.mNz - 1); ++k)
      for (i32 j = std::max(y - 1, 0); j <= std::min(y + 1, mGrid.mNy - 1); ++j)
        if (isBusy[std::size_t(k) * mGrid.mNy + j]) return true;
    return false;
  }

  /// Whether the surface may come through a cell, whatever is done to it.
  bool MayCross(i32 at) const {
    const double* v = mGrid.mData + at;
    const double reach = (kMostMove + kMostShift) * mGrid.mLayout.cellSize;
    bool isNear = false, isFar = false;
    for (const i32 corner : {0, 1, mGrid.mNx, mGrid.mNx + 1, mGrid.mSlice, mGrid.mSlice + 1,
                             mGrid.mSlice + mGrid.mNx, mGrid.mSlice + mGrid.mNx + 1}) {
      isNear |= v[corner] < reach;
      isFar |= v[corner] > -reach;
    }
    return isNear && isFar;
  }

  /// Where all is outside, or the same, nothing is to be smoothed.
  bool Varies(i32 at) const {
    const double* v = mGrid.mData + at;
    if (*v < mOutside) return true;
    for (const i32 step : {1, mGrid.mNx, mGrid.mSlice})
      if (v[step] < mOutside || v[-step] < mOutside) return true;
    return false;
  }

  /// 1 2 1 along each axis.
  double MeanAbout(i32 at) const {
    double sum = 0;
    for (i32 z = -1; z <= 1; ++z)
      for (i32 y = -1; y <= 1; ++y) {
        const double* row = mGrid.mData + at + z * mGrid.mSlice + y * mGrid.mNx;
        const double weight = (z == 0 ? 2.0 : 1.0) * (y == 0 ? 2.0 : 1.0);
        sum += weight * (row[-1] + 2 * row[0] + row[1]);
      }
    return sum / 64;
  }

  EGrid<double>& mGrid;
  double mOutside;
  i32 mThreads;
  std::vector<i32> mIndices, mCells;  ///< samples that move, and lower corners of cells
};

}  // namespace

void SmoothSurfaceOf(EGrid<double>& grid, double outside, i32 steps, i32 threads) {
  if (std::min({grid.mNx, grid.mNy, grid.mNz}) < 3 || steps <= 0) return;
  Smoother(grid, outside, threads).Run(steps);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
