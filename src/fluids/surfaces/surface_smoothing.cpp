#include "fluids/surfaces/surface_smoothing.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "fluids/surfaces/surface_balance.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kMostMove = 0.25;    ///< cells
constexpr double kKnownBeyond = 0.5;  ///< cells
constexpr i64 kPart = 4096;

/// The samples that move, and what was there before.
class Smoother {
 public:
  Smoother(EGrid<double>& grid, double outside, i32 threads)
      : mGrid(grid),
        mOutside(outside),
        mEndsAtSurface(outside < kKnownBeyond * grid.mLayout.cellSize),
        mThreads(threads) {}
  /// The field doesn't tell where its surface would go.
  bool EndsAtSurface() const { return mEndsAtSurface; }

  void Run(i32 steps) {
    Collect();
    std::vector<double> first = Values(), next(mIndices.size());
    const double most = kMostMove * mGrid.mLayout.cellSize;
    for (i32 step = 0; step < steps; ++step) {
      ForEachPart([&](i64 i) {
        next[i] = std::clamp(MeanAbout(mIndices[i]), first[i] - most, first[i] + most);
      });
      ForEachPart([&](i64 i) { mGrid.mData[mIndices[i]] = next[i]; });
    }
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

  void Collect() {
    std::vector<std::vector<i32>> samples(mGrid.mNz);
    const std::vector<u8> isBusy = FindBusyRows();
    ForEachBlock(mGrid.mNz - 1, mThreads, [&](i32 z) {
      for (i32 y = 0; y < mGrid.mNy - 1; ++y) {
        if (!IsBesideBusy(isBusy, y, z)) continue;
        for (i32 x = 0; x < mGrid.mNx - 1; ++x) {
          const i32 at = mGrid.Index(x, y, z);
          if (x > 0 && y > 0 && z > 0 && Varies(at)) samples[z].push_back(at);
        }
      }
    });
    for (const auto& layer : samples) mIndices.insert(mIndices.end(), layer.begin(), layer.end());
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

  /// Where all is outside, or the same, nothing is to be smoothed.
  bool Varies(i32 at) const {
    const double* v = mGrid.mData + at;
    if (*v < mOutside) return true;
    if (mEndsAtSurface) return false;
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
  bool mEndsAtSurface;
  i32 mThreads;
  std::vector<i32> mIndices;  ///< samples that move
};

}  // namespace

double SmoothSurfaceOf(EGrid<double>& grid, double outside, i32 steps, i32 threads,
                       const SurfaceLiquid& liquid) {
  if (std::min({grid.mNx, grid.mNy, grid.mNz}) < 3 || steps <= 0) return liquid.full;
  Smoother smoother(grid, outside, threads);
  if (smoother.EndsAtSurface()) {
    smoother.Run(steps);
    return liquid.full;
  }
  SurfaceBalance balance(grid, liquid.cell, outside, threads);
  if (!liquid.points) balance.WantWhatIs();
  smoother.Run(steps);
  if (liquid.points) balance.WantOf(*liquid.points, liquid.each, liquid.full);
  balance.Restore();
  return balance.Full();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
