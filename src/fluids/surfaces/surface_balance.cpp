#include "fluids/surfaces/surface_balance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "fluids/surfaces/marching_cube_content.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kRounds = 6;
constexpr double kMostStep = 0.3;          ///< of a round, cells of the scene
constexpr double kLeastStep = 0.01;        ///< the same: what is less isn't worth a round
constexpr double kLeastGrowth = 0.01;      ///< where there is no surface yet
constexpr double kOneBlock = 0.052734375;  ///< what is left of a block in its middle, spread
constexpr double kLeastValue = 1e-5;       ///< cells, as those who cut cells have it
constexpr double kStaysInside = 0.02;      ///< cells
constexpr double kLeavesAt = 0.05;         ///< cells

}  // namespace

SurfaceBalance::SurfaceBalance(EGrid<double>& grid, double cell, double outside, i32 threads)
    : mGrid(grid),
      mCell(cell),
      mOutside(outside),
      mBlocks(grid, cell, outside, threads),
      mThreads(threads),
      mHeld(mBlocks.Count()),
      mGrowth(mBlocks.Count()),
      mIsMoving(mBlocks.Count(), 1) {}

void SurfaceBalance::MeasureBlock(i32 i) {
  const i32 side = mBlocks.Side(), ny = mGrid.mNx, nz = mGrid.mSlice;
  const VecInt3D first = mBlocks.FirstSample(i);
  const double cell = mGrid.mLayout.cellSize, perCell = 1 / cell, highest = -kLeastValue * cell;
  const auto countInside = [&](const double* v) {
    return (v[0] <= highest) + (v[ny] <= highest) + (v[nz] <= highest) + (v[nz + ny] <= highest);
  };
  double inside = 0, growth = 0;
  VecInt3D last;
  for (int a = 0; a < 3; ++a) last[a] = std::min(first[a] + side, mGrid.Dims()[a] - 1);
  for (i32 z = first.z; z < last.z; ++z)
    for (i32 y = first.y; y < last.y; ++y) {
      const double* v = mGrid.mData + mGrid.Index(first.x, y, z);
      i32 behind = countInside(v);
      for (i32 x = first.x; x < last.x; ++x, ++v) {
        const i32 before = countInside(v + 1), corners = behind + before;
        behind = before;
        if (corners == 8) inside += 1;
        if (corners == 0 || corners == 8) continue;
        double c[8] = {v[0], v[1], v[ny], v[ny + 1], v[nz], v[nz + 1], v[nz + ny], v[nz + ny + 1]};
        for (double& corner : c) {
          corner *= perCell;
          if (std::abs(corner) < kLeastValue) corner = kLeastValue;
        }
        const CubeContent content = ContentOf(c);
        inside += content.inside;
        growth += content.growth;
      }
    }
  const double perBlock = 1.0 / (side * side * side);
  mHeld[i] = inside * perBlock;
  mGrowth[i] = growth * perBlock * side;
}

/// Those whose samples have moved.
void SurfaceBalance::Measure() {
  mBlocks.ForEach([&](i32 i) {
    bool isChanged = false;
    mBlocks.ForEachAbout(i, [&](i32 other, i32) { isChanged |= mIsMoving[other] != 0; });
    if (isChanged) MeasureBlock(i);
  });
}

void SurfaceBalance::WantWhatIs() {
  Measure();
  mWanted = mHeld;
  // Bumps that were taken off aren't to come back.
  mTurns = kWideTurns;
}

void SurfaceBalance::WantOf(const PointLookup& points, double volume, double full) {
  mWanted.assign(mBlocks.Count(), 0);
  const double length = mBlocks.Length(), each = volume / (length * length * length);
  const VecInt3D n = mBlocks.Dims();
  const Vec3d origin = mGrid.PositionOf(0, 0, 0);
  std::vector<i64> deep(n.z);
  ForEachBlock(n.z, mThreads, [&](i32 layer) {
    Vec3d low = origin, high = origin + ToReal(n) * length;
    low.z = origin.z + layer * length;
    high.z = low.z + length;
    points.ForEachRow(low, high, [&](auto entries) {
      for (const PointLookup::Entry& entry : entries) {
        const Vec3d p = (entry.position - origin) / length;
        const i32 x = static_cast<i32>(std::floor(p.x)), y = static_cast<i32>(std::floor(p.y)),
                  z = static_cast<i32>(std::floor(p.z));
        if (z != layer || std::min(x, y) < 0 || x >= n.x || y >= n.y) continue;
        if (const i32 i = mBlocks.At(x, y, z); i >= 0) mWanted[i] += each;
        deep[z] += mBlocks.IsDeep(x, y, z);
      }
    });
  });
  Measure();
  mFull = full;
  if (mFull == 0) TellByDeepBlocks(each * double(std::reduce(deep.begin(), deep.end())));
  const double share = mFull > 0 ? 1 / mFull : 1;
  for (double& wanted : mWanted) wanted *= share;
  AllowForCrowds(each * share);
}

/// Where a liquid is full all round tells how much its particles fill, if that isn't what was told.
void SurfaceBalance::TellByDeepBlocks(double wanted) {
  constexpr double kFew = 27, kFarOff = 1.5;
  const double count = static_cast<double>(mBlocks.DeepCount());
  if (count < kFew || !(wanted > 0)) return;
  mFull = wanted < kFarOff * count && wanted * kFarOff > count ? 1 : wanted / count;
}

/// Where full blocks have more particles than fill them those crowd, by more than chance would have
/// it: each fills less there.
void SurfaceBalance::AllowForCrowds(double each) {
  std::vector<double> full(mBlocks.Count()), crowd(mBlocks.Count());
  mBlocks.ForEach([&](i32 i) {
    full[i] = mHeld[i] >= 1 ? 1 : 0;
    crowd[i] = full[i] * mWanted[i];
  });
  mBlocks.Spread(full, kTurns);
  mBlocks.Spread(crowd, kTurns);
  mBlocks.ForEach([&](i32 i) {
    if (!(crowd[i] > full[i])) return;
    const double chance = std::sqrt(each * kOneBlock / full[i]);
    mWanted[i] /= 1 + std::max(0.0, crowd[i] / full[i] - 1 - 2 * chance);
  });
}

bool SurfaceBalance::FindWays(std::vector<double>& ways) {
  std::vector<double> growth = mGrowth;
  mBlocks.ForEach([&](i32 i) { ways[i] = mWanted[i] - mHeld[i]; });
  mBlocks.Spread(ways, mTurns);
  mBlocks.Spread(growth, mTurns);
  mBlocks.ForEach([&](i32 i) {
    const double way = mBlocks.Length() * ways[i] / (growth[i] + kLeastGrowth);
    ways[i] = std::clamp(way, -kMostStep * mCell, kMostStep * mCell);
  });
  const double least = kLeastStep * mCell;
  mBlocks.ForEach([&](i32 i) {
    double most = 0;
    mBlocks.ForEachAbout(i, [&](i32 other, i32) { most = std::max(most, std::abs(ways[other])); });
    mIsMoving[i] = most >= least;
  });
  return std::find(mIsMoving.begin(), mIsMoving.end(), 1) != mIsMoving.end();
}

/// Samples belong to the block of which they are not on an upper side: f(sample, its number).
template <class F>
void SurfaceBalance::ForEachSampleOf(i32 i, F&& f) const {
  const VecInt3D first = mBlocks.FirstSample(i);
  const i32 side = mBlocks.Side();
  i32 own = 0;
  for (i32 z = 0; z < side; ++z)
    for (i32 y = 0; y < side; ++y)
      for (i32 x = 0; x < side; ++x, ++own)
        if (first.x + x < mGrid.mNx && first.y + y < mGrid.mNy && first.z + z < mGrid.mNz)
          f(VecInt3D{x, y, z}, own);
}

void SurfaceBalance::MoveBlock(i32 i, const std::vector<double>& ways, double* moved) const {
  std::array<double, 27> way{}, counts{};
  mBlocks.ForEachAbout(i, [&](i32 other, i32 which) {
    way[which] = ways[other];
    counts[which] = 1;
  });
  const VecInt3D first = mBlocks.FirstSample(i);
  ForEachSampleOf(i, [&](const VecInt3D& in, i32 own) {
    // Linear between the middles of blocks.
    i32 low = 0;
    Vec3d part;
    for (int a = 0, step = 1; a < 3; ++a, step *= 3) {
      const double at = double(in[a]) / mBlocks.Side() + 0.5;
      low += at >= 1 ? step : 0;
      part[a] = at >= 1 ? at - 1 : at;
    }
    double sum = 0, weights = 0;
    for (i32 c = 0; c < 8; ++c) {
      const double w = (c & 1 ? part.x : 1 - part.x) * (c & 2 ? part.y : 1 - part.y) *
                       (c & 4 ? part.z : 1 - part.z);
      const i32 which = low + (c & 1) + 3 * (c >> 1 & 1) + 9 * (c >> 2);
      sum += w * way[which];
      weights += w * counts[which];
    }
    moved[own] = Moved(first + in, sum / weights);
  });
}

/// Not where it and all round it is blank.
bool SurfaceBalance::KnowsSurface(const VecInt3D& at) const {
  const double* v = mGrid.mData + mGrid.Index(at.x, at.y, at.z);
  if (*v < mOutside) return true;
  const i32 steps[3] = {1, mGrid.mNx, mGrid.mSlice};
  for (int a = 0; a < 3; ++a)
    if ((at[a] > 0 && v[-steps[a]] < mOutside) ||
        (at[a] + 1 < mGrid.Dims()[a] && v[steps[a]] < mOutside))
      return true;
  return false;
}

/// What a sample becomes when the surface moves out by a way.
double SurfaceBalance::Moved(const VecInt3D& at, double way) const {
  const double* v = mGrid.mData + mGrid.Index(at.x, at.y, at.z);
  const double cell = mGrid.mLayout.cellSize, stays = -kStaysInside * cell, moved = *v - way;
  if (!KnowsSurface(at)) return *v;
  if (moved < stays || *v >= 0) return moved;
  // Where a film ends on a plane of samples all of it hangs on them: none leaves the liquid in one
  // go, nor for next to nothing.
  if (*v < 2 * stays || -way < kLeavesAt * cell) return std::max(stays, *v);
  // What is missing amid a liquid makes no bubble.
  for (int a = 0; a < 3; ++a)
    if (at[a] < 1 || at[a] + 1 >= mGrid.Dims()[a]) return moved;
  if (std::max({v[1], v[-1], v[mGrid.mNx], v[-mGrid.mNx], v[mGrid.mSlice], v[-mGrid.mSlice]}) < 0)
    return std::max(stays, *v);
  return moved;
}

void SurfaceBalance::Move(const std::vector<double>& ways) {
  const std::size_t samples = std::size_t(mBlocks.Side()) * mBlocks.Side() * mBlocks.Side();
  mMoved.resize(samples * mBlocks.Count());
  mBlocks.ForEach([&](i32 i) {
    if (mIsMoving[i]) MoveBlock(i, ways, mMoved.data() + samples * i);
  });
  mBlocks.ForEach([&](i32 i) {
    if (!mIsMoving[i]) return;
    const VecInt3D first = mBlocks.FirstSample(i);
    ForEachSampleOf(i, [&](const VecInt3D& in, i32 own) {
      mGrid(first.x + in.x, first.y + in.y, first.z + in.z) = mMoved[samples * i + own];
    });
  });
}

/// What all samples miss gets one of them, that which comes nearest to it.
void SurfaceBalance::ShowLost() {
  for (i32 i = 0; i < mBlocks.Count(); ++i)
    if (mWanted[i] > 0 && !(mHeld[i] > 0)) ShowLost(i);
}

void SurfaceBalance::ShowLost(i32 i) {
  constexpr double kWidest = 0.6;
  const i32 side = mBlocks.Side();
  const VecInt3D n = mGrid.Dims(), first = mBlocks.FirstSample(i);
  VecInt3D low, high, best{-1, -1, -1};
  for (int a = 0; a < 3; ++a) {
    low[a] = std::max(first[a] - side, 1);
    high[a] = std::min(first[a] + 2 * side, n[a] - 2);
  }
  double least = mBlocks.Length();
  for (i32 z = low.z; z <= high.z; ++z)
    for (i32 y = low.y; y <= high.y; ++y)
      for (i32 x = low.x; x <= high.x; ++x) {
        const double value = mGrid(x, y, z);
        if (value < 0) return;
        if (value < least) least = value, best = {x, y, z};
      }
  if (best.x < 0) return;
  double wanted = 0;
  mBlocks.ForEachAbout(i, [&](i32 other, i32) { wanted += mWanted[other]; });
  // The octahedron about a sample among others of one value has 4/3 t^3 of a cell.
  const double part = std::min(kWidest, std::cbrt(0.75 * wanted * side * side * side));
  double* v = mGrid.mData + mGrid.Index(best.x, best.y, best.z);
  double about = 0;
  for (const i32 step : {1, n.x, mGrid.mSlice}) about += v[step] + v[-step];
  *v = -about / 6 * part / (1 - part);
}

void SurfaceBalance::Restore() {
  std::vector<double> ways(mBlocks.Count());
  ShowLost();
  mIsMoving.assign(mIsMoving.size(), 1);
  for (i32 round = 0; round < kRounds; ++round) {
    Measure();
    if (!FindWays(ways)) break;
    Move(ways);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
