// What solids that move have covered goes on to other cells.
#include <algorithm>
#include <cstdlib>
#include <limits>

#include "fluids/flow/scalar_walls.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool ScalarWalls::IsNearOpenSide(const VecInt3D& cell, i32 reach) const {
  const VecInt3D n = mState->Dims();
  for (int a = 0; a < 3; ++a)
    if ((!(mBoundary->mWalls & kLowWall[a]) && cell[a] <= reach) ||
        (!(mBoundary->mWalls & kHighWall[a]) && cell[a] >= n[a] - 1 - reach))
      return true;
  return false;
}

/// A thin wall stands between the centres of two cells.
bool ScalarWalls::IsParted(const VecInt3D& cell, const VecInt3D& taker) const {
  const Vec3d half{0.5, 0.5, 0.5}, to = ToReal(taker) + half;
  return mThin->Stop(ToReal(cell) + half, to) != to;
}

/// From a closed cell something else lies on the other side of a thin wall, or where the cell is
/// in one, not on the side that it moves to.
bool ScalarWalls::LiesBehind(const VecInt3D& cell, const VecInt3D& taker) const {
  if (!mThin->IsFilled(cell)) return IsParted(cell, taker);
  const Vec3d motion = mBoundary->GetSolidVelocity(mState->PositionOf(cell.x, cell.y, cell.z));
  return !(Dot(ToReal(taker - cell), motion) > 0);
}

/// Calls f(index) for the inner open cells that lie nearest to a cell, of those that `counts`
/// takes.
template <class Counts, class F>
void ScalarWalls::ForEachOpenNearest(const VecInt3D& cell, i32 reach, Counts&& counts,
                                     F&& f) const {
  const auto cube = [&](i32 size) {
    const VecInt3D r{size, size, size}, one{1, 1, 1};
    return Clip({cell - r, cell + r + one}, one, mState->Dims() - one);
  };
  const auto takes = [&](i32 x, i32 y, i32 z) {
    bool wasClosed = false;
    WasThere({x, y, z}, wasClosed);
    return (*mState)(x, y, z) == kOpen && !wasClosed && counts(VecInt3D{x, y, z});
  };
  i32 nearest = std::numeric_limits<i32>::max(), size = 0;
  // In shells, whose cells lie as far away at least as their number tells.
  while (size < reach && (size + 1) * (size + 1) <= nearest) {
    ++size;
    ForEachCell(cube(size), [&](i32 x, i32 y, i32 z) {
      const VecInt3D d = VecInt3D{x, y, z} - cell;
      if (std::max({std::abs(d.x), std::abs(d.y), std::abs(d.z)}) < size) return;
      if (takes(x, y, z)) nearest = std::min(nearest, Dot(d, d));
    });
  }
  ForEachCell(cube(size), [&](i32 x, i32 y, i32 z) {
    const VecInt3D d = VecInt3D{x, y, z} - cell;
    if (Dot(d, d) == nearest && takes(x, y, z)) f(mState->Index(x, y, z));
  });
}

/// What one cell holds goes to others; false if there are none.
template <class Counts>
bool ScalarWalls::Give(const VecInt3D& cell, i32 reach, double held, Grid<double>& field,
                       Counts&& counts) const {
  i32 takers = 0;
  ForEachOpenNearest(cell, reach, counts, [&](i32) { ++takers; });
  ForEachOpenNearest(cell, reach, counts, [&](i32 taker) { field[taker] += held / takers; });
  return takers > 0;
}

/// What thin walls have passed over goes to the other side of them.
ScalarWalls::Held ScalarWalls::GivePassed(const Values& values, i32 reach,
                                          Grid<double>& field) const {
  std::vector<double> held(mPassed.size());
  for (std::size_t i = 0; i < mPassed.size(); ++i) {
    double& value = field[mPassed[i].cell];
    held[i] = std::max(value - values.nothing, 0.0);
    value = values.nothing;
  }
  const auto isPassed = [&](const VecInt3D& c) {
    const i32 index = mState->Index(c.x, c.y, c.z);
    const auto at = std::lower_bound(mPassed.begin(), mPassed.end(), index,
                                     [](const Passed& p, i32 i) { return p.cell < i; });
    return at != mPassed.end() && at->cell == index;
  };
  Held all;
  for (std::size_t i = 0; i < mPassed.size(); ++i) {
    const VecInt3D cell = CellAt(mPassed[i].cell);
    const bool isPlaced = Give(cell, reach, held[i], field, [&](const VecInt3D& c) {
      return Dot(ToReal(c - cell), mPassed[i].motion) > 0 && IsParted(cell, c) && !isPassed(c);
    });
    double& fate = IsNearOpenSide(cell, reach) ? all.gone : all.stuck;
    (isPlaced ? all.given : fate) += held[i];
  }
  return all;
}

ScalarWalls::Held ScalarWalls::HandOver(const Values& values, i32 reach,
                                        Grid<double>& field) const {
  Held all = GivePassed(values, reach, field);
  const double started = std::max(values.initial, values.nothing);
  // These were closed from the start, and no step has emptied them.
  if (mIsFirst)
    for (const Beside& b : mLeft) {
      const double stays = std::max(field[b.cell] - started, 0.0);
      all.stuck += std::max(field[b.cell] - values.nothing, 0.0) - stays;
      field[b.cell] = values.nothing + stays;
    }
  for (const Layer& layer : mLayers)
    for (const Run& run : layer.closed)
      for (i32 c = run.first; c < run.last; ++c) {
        if (!(field[c] > values.nothing)) continue;
        const VecInt3D cell = CellAt(c);
        bool wasClosed = false;
        const bool isNew = !WasThere(cell, wasClosed) || (mIsFirst && wasClosed);
        const double held = field[c] - (isNew ? started : values.nothing);
        all.stuck += field[c] - values.nothing;
        field[c] = values.nothing;
        if (!(held > 0)) continue;
        const auto counts = [&](const VecInt3D& taker) {
          return !mThin || !LiesBehind(cell, taker);
        };
        const bool isPlaced = Give(cell, reach, held, field, counts);
        if (!isPlaced && !IsNearOpenSide(cell, reach)) continue;
        all.stuck -= held;
        (isPlaced ? all.given : all.gone) += held;
      }
  return all;
}

ScalarWalls::Held ScalarWalls::FindHeld(const Values& values, const Grid<double>& field) const {
  Held all;
  for (const Layer& layer : mLayers)
    for (const Run& run : layer.closed)
      for (i32 c = run.first; c < run.last; ++c) {
        if (!(field[c] > values.nothing)) continue;
        bool wasClosed = false;
        const bool isCovered = WasThere(CellAt(c), wasClosed) && !wasClosed;
        (isCovered ? all.given : all.stuck) += field[c] - values.nothing;
      }
  return all;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
