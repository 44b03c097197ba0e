#include "fluids/surfaces/surface_smoothing.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "fluids/volume/cell_fractions.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kMostMove = 0.25, kMostShift = 1;  ///< cells
constexpr double kMostSwell = 3;                    ///< of what a step of the filter takes off
constexpr double kFlat = 0.1;                       ///< the same, cells: of bumps
constexpr double kMostRise = 0.06;                  ///< cells
constexpr i64 kPart = 4096;

/// The samples that move, and what was there before.
class Smoother {
 public:
  Smoother(EGrid<double>& grid, double outside, i32 threads)
      : mGrid(grid), mOutside(outside), mThreads(threads) {}

  void Run(i32 steps, double liquid) {
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
    if (liquid > 0) Swell(liquid);
  }

  /// Moves convex edges outwards until the surface holds its liquid, and then all of it a little.
  /// Edges take a part of what is thick; where far more is missing the particles crowd, or aren't
  /// as many to a cell as was told.
  void Swell(double liquid) {
    constexpr double kAllOfIt = 0.12, kNoneOfIt = 0.24;  // of the liquid
    const double h = mGrid.mLayout.cellSize, wanted = liquid / (h * h * h), own = Volume(0);
    const double lack = wanted - mDeepCells - own;
    if (!(lack > 0 && lack < kNoneOfIt * wanted)) return;
    const double trust = std::min(1.0, (kNoneOfIt - lack / wanted) / (kNoneOfIt - kAllOfIt));
    std::vector<double> way(mIndices.size());
    ForEachPart([&](i64 i) {
      // What is as flat as bumps are stays as it is.
      const double edge = 0.25 * CurvatureAt(mIndices[i]) - kFlat * h;
      way[i] = kMostSwell * std::clamp(edge, 0.0, kMostMove * h);
    });
    MoveOut(way, own + trust * lack);
    way.assign(way.size(), std::min(kMostRise * h, 0.5 * mOutside));
    MoveOut(way, own + trust * lack);
  }

  /// Moves samples by as much of a way as gives a volume, which grows nearly in proportion.
  void MoveOut(const std::vector<double>& way, double volume) {
    constexpr i32 kTurns = 3;
    const double before = Volume(0), wanted = volume - before;
    if (!(wanted > 0)) return;
    const std::vector<double> base = Values();
    double part = 1;
    for (i32 turn = 0; turn <= kTurns; ++turn) {
      ForEachPart([&](i64 i) { mGrid.mData[mIndices[i]] = base[i] - part * way[i]; });
      const double gain = Volume(0) - before;
      if (gain <= wanted) break;
      part *= wanted / gain;
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
    std::vector<i64> deep(mGrid.mNz);
    const std::vector<u8> isBusy = FindBusyRows();
    ForEachBlock(mGrid.mNz - 1, mThreads, [&](i32 z) {
      for (i32 y = 0; y < mGrid.mNy - 1; ++y) {
        if (!IsBesideBusy(isBusy, y, z)) continue;
        for (i32 x = 0; x < mGrid.mNx - 1; ++x) {
          const i32 at = mGrid.Index(x, y, z);
          if (x > 0 && y > 0 && z > 0 && Varies(at)) samples[z].push_back(at);
          const Reach reach = ReachOf(at);
          if (reach == Reach::Near) cells[z].push_back(at);
          deep[z] += reach == Reach::Deep;
        }
      }
    });
    for (const auto& layer : samples) mIndices.insert(mIndices.end(), layer.begin(), layer.end());
    for (const auto& layer : cells) mCells.insert(mCells.end(), layer.begin(), layer.end());
    for (const i64 count : deep) mDeepCells += static_cast<double>(count);
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

  /// Where the surface may come through a cell, whatever is done to it, and where it never does.
  enum class Reach { Near, Deep, Outside };
  Reach ReachOf(i32 at) const {
    const double* v = mGrid.mData + at;
    const double reach = (kMostMove + kMostShift) * mGrid.mLayout.cellSize;
    bool isNear = false, isFar = false;
    for (const i32 corner : {0, 1, mGrid.mNx, mGrid.mNx + 1, mGrid.mSlice, mGrid.mSlice + 1,
                             mGrid.mSlice + mGrid.mNx, mGrid.mSlice + mGrid.mNx + 1}) {
      isNear |= v[corner] < reach;
      isFar |= v[corner] > -reach;
    }
    return !isNear ? Reach::Outside : isFar ? Reach::Near : Reach::Deep;
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

  /// The sum of the curvatures of the surface through a sample, times the square of a cell: the
  /// second derivatives along it, times how steep the field is.
  double CurvatureAt(i32 at) const {
    const double* v = mGrid.mData + at;
    const i32 steps[] = {1, mGrid.mNx, mGrid.mSlice};
    Vec3d g, own, mixed;
    for (int a = 0; a < 3; ++a) {
      const i32 s = steps[a], t = steps[(a + 1) % 3];
      g[a] = 0.5 * (v[s] - v[-s]);
      own[a] = v[s] - 2 * v[0] + v[-s];
      mixed[a] = 0.25 * (v[s + t] - v[s - t] - v[t - s] + v[-s - t]);
    }
    const double steep = Dot(g, g);
    if (!(steep > 0)) return 0;
    const double along = g.x * g.x * own.x + g.y * g.y * own.y + g.z * g.z * own.z +
                         2 * (g.x * g.y * mixed.x + g.y * g.z * mixed.y + g.z * g.x * mixed.z);
    return own.x + own.y + own.z - along / steep;
  }

  EGrid<double>& mGrid;
  double mOutside;
  i32 mThreads;
  std::vector<i32> mIndices, mCells;  ///< samples that move, and lower corners of cells
  double mDeepCells = 0;              ///< cells that lie below the surface whatever is done to it
};

}  // namespace

void SmoothSurfaceOf(EGrid<double>& grid, double outside, i32 steps, i32 threads, double liquid) {
  if (std::min({grid.mNx, grid.mNy, grid.mNz}) < 3 || steps <= 0) return;
  Smoother(grid, outside, threads).Run(steps, liquid);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
