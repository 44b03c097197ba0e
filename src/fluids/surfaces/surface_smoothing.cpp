#include "fluids/surfaces/surface_smoothing.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kMostMove = 0.5;  ///< cells
constexpr i64 kPart = 4096;

/// The samples that move, and what was there before.
class Smoother {
 public:
  Smoother(EGrid<double>& grid, double outside, i32 threads)
      : mGrid(grid), mOutside(outside), mThreads(threads) {}

  void Run(i32 steps) {
    Collect();
    const double volume = Volume(Slopes(), 0);
    std::vector<double> first = Values(), next(mIndices.size());
    const double most = kMostMove * mGrid.mLayout.cellSize;
    for (i32 step = 0; step < steps; ++step) {
      ForEachPart([&](i64 i) {
        next[i] = std::clamp(MeanAbout(mIndices[i]), first[i] - most, first[i] + most);
      });
      ForEachPart([&](i64 i) { mGrid.mData[mIndices[i]] = next[i]; });
    }
    BringBack(volume);
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

  /// How much the field changes over a cell.
  std::vector<double> Slopes() const {
    std::vector<double> slopes(mIndices.size());
    ForEachPart([&](i64 i) {
      const double* v = mGrid.mData + mIndices[i];
      double sum = 0;
      for (const i32 step : {1, mGrid.mNx, mGrid.mSlice})
        sum += 0.25 * (v[step] - v[-step]) * (v[step] - v[-step]);
      slopes[i] = std::sqrt(sum);
    });
    return slopes;
  }
  /// The part of the samples' cells that lies below `level`, in cells.
  double Volume(const std::vector<double>& slopes, double level) const {
    return SumBlocks(static_cast<i64>(mIndices.size()), kPart, mThreads, [&](i64 from, i64 to) {
      double sum = 0;
      for (i64 i = from; i < to; ++i) {
        const double depth = level - mGrid.mData[mIndices[i]];
        sum += slopes[i] > 0 ? std::clamp(0.5 + depth / slopes[i], 0.0, 1.0) : depth > 0;
      }
      return sum;
    });
  }
  /// Moves the surface until it holds a volume. It grows with the level: the way to it is halved.
  void BringBack(double volume) {
    const std::vector<double> slopes = Slopes();
    double low = -mGrid.mLayout.cellSize, high = -low;
    for (i32 turn = 0; turn < 14; ++turn) {
      const double middle = 0.5 * (low + high);
      (Volume(slopes, middle) < volume ? low : high) = middle;
    }
    const double level = 0.5 * (low + high);
    ForEachPart([&](i64 i) { mGrid.mData[mIndices[i]] -= level; });
  }

  void Collect() {
    std::vector<std::vector<i32>> layers(mGrid.mNz);
    ForEachBlock(mGrid.mNz, mThreads, [&](i32 z) {
      if (z < 1 || z >= mGrid.mNz - 1) return;
      for (i32 y = 1; y < mGrid.mNy - 1; ++y)
        for (i32 x = 1; x < mGrid.mNx - 1; ++x) {
          const i32 at = mGrid.Index(x, y, z);
          if (Varies(at)) layers[z].push_back(at);
        }
    });
    for (const auto& layer : layers) mIndices.insert(mIndices.end(), layer.begin(), layer.end());
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
  std::vector<i32> mIndices;
};

}  // namespace

void SmoothSurfaceOf(EGrid<double>& grid, double outside, i32 steps, i32 threads) {
  if (std::min({grid.mNx, grid.mNy, grid.mNz}) < 3 || steps <= 0) return;
  Smoother(grid, outside, threads).Run(steps);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
