#include "fluids/pressure/wall_release.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fluids/pressure/projection_lines.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Of the largest pressure: below that a pull is what is left of a solve, or moves next to nothing.
constexpr double kLeastPull = 1e-3;
/// Of a cell's volume in a step: a squeeze that calls for pressure.
constexpr double kLeastSqueeze = 1e-3;

}  // namespace

void WallRelease::FindPulled(const Solved& solved, double least, i32 z,
                             std::vector<i32>& found) const {
  found.clear();
  for (const RegionRun& run : solved.regions.Runs(z)) {
    if (solved.regions.Of(run).isClosed) continue;
    const CellLine line(solved.fields, run.y, z);
    for (i32 x = run.first; x < run.last; ++x)
      if (solved.pressure[line.cell + x] < -least && !line.IsClear(x))
        found.push_back(line.cell + x);
  }
}

/// What a cell that has let go loses once the pressures act, 1/s.
double WallRelease::Outflow(const Solved& solved, const EGrid<double>& surface,
                            const VecInt3D& cell) const {
  const ProjectionFields& fields = solved.fields;
  const double h = surface.mLayout.cellSize;
  const i32 steps[3] = {1, surface.mNx, surface.mSlice};
  const i32 c = surface.Index(cell.x, cell.y, cell.z);
  double out = 0;
  WithDensity(fields, solved.density, fields.dt / h, [&](const auto& law) {
    for (i32 axis = 0; axis < 3; ++axis) {
      const auto face = law.Along(axis);
      for (const i32 side : {0, 1}) {
        const VecInt3D at = cell + ExtraOf(axis) * side;
        const double open = (*fields.open[axis])(at.x, at.y, at.z);
        if (!(open > 0)) continue;
        const i32 next = side ? c + steps[axis] : c - steps[axis];
        double v = (*fields.velocity[axis])(at.x, at.y, at.z);
        // The surface lies in the cell's middle: the whole way to the next one is liquid.
        const double push = solved.pressure[next] * face(c, next);
        v += side ? -push : push;
        out += (side ? open : -open) * v;
      }
    }
  });
  return out / h;
}

bool WallRelease::Update(const Solved& solved, EGrid<double>& surface, i32 threads) {
  const VecInt3D n = surface.Dims();
  const i64 layer = surface.mSlice;
  const std::span<const double> p = solved.pressure;
  const double top = MaxBlocks(layer * n.z, layer, threads, [&](i64 first, i64 last) {
    double most = 0;
    for (i64 i = first; i < last; ++i) most = std::max(most, std::fabs(p[i]));
    return most;
  });
  mFound.resize(n.z);
  ForEachBlock(n.z, threads, [&](i32 z) { FindPulled(solved, kLeastPull * top, z, mFound[z]); });
  const auto isSqueezed = [&](const Cell& cell) {
    const VecInt3D at{cell.index % n.x, cell.index / n.x % n.y, cell.index / surface.mSlice};
    return Outflow(solved, surface, at) * solved.fields.dt < -kLeastSqueeze;
  };
  const auto held = std::stable_partition(mCells.begin(), mCells.end(),
                                          [&](const Cell& cell) { return !isSqueezed(cell); });
  bool changed = held != mCells.end();
  for (auto cell = held; cell != mCells.end(); ++cell) surface[cell->index] = cell->phi;
  mCells.erase(held, mCells.end());
  for (const std::vector<i32>& found : mFound)
    for (const i32 index : found) {
      changed = true;
      mCells.push_back({index, surface[index]});
      surface[index] = 0;
    }
  return changed;
}

void WallRelease::Restore(EGrid<double>* surface) {
  if (surface)
    for (const Cell& cell : mCells) (*surface)[cell.index] = cell.phi;
  mCells.clear();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
