#include "fluids/levelset/density_to_levelset.h"

#include <algorithm>
#include <cmath>

#include "fluids/levelset/eikonal_sweeper.h"
#include "fluids/levelset/fast_sweeper.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kFlagKind = 13;

/// Calls f(sample) for the inner samples of a grid, on all workers.
template <class F>
void ForEachInner(const EGrid<double>& grid, F&& f) {
  ForEachBlock(std::max(grid.mNz - 2, 0), host::ThreadCount(), [&](i32 block) {
    for (i32 y = 1; y < grid.mNy - 1; ++y) {
      const i32 row = grid.Index(0, y, block + 1);
      for (i32 x = 1; x < grid.mNx - 1; ++x) f(row + x);
    }
  });
}

/// Spreads distances from the samples that aren't `far`; false without memory.
bool SpreadTrueDistances(const Grid<bool>& inside, double far, EGrid<double>& phi,
                         host::HostThread* thread) {
  EikonalSweeper sweeper(phi, thread);
  if (!sweeper.IsReady()) return false;
  const auto isKnown = [&](i32 i) { return inside[i] && phi[i] != far; };
  sweeper.Mark([&](i32 i) {
    return isKnown(i)  ? EikonalSweeper::kKnown
           : inside[i] ? EikonalSweeper::kInside
                       : EikonalSweeper::kOutside;
  });
  sweeper.Run();
  for (i32 i = 0; i < phi.mCount; ++i)
    if (std::abs(phi[i]) == EikonalSweeper::kFar) phi[i] = far;
  return true;
}

}  // namespace

bool DensityToLevelset::Run(host::HostThread* thread) {
  EGrid<double>* grid = mLevelSet ? mLevelSet->GetGridForWrite(0) : nullptr;
  const EGrid<double>* source = mSource ? mSource->GetGrid(0) : nullptr;
  if (!grid || !grid->mData || !source || !source->mData || source->Dims() != grid->Dims() ||
      grid->mNz < 3)
    return false;
  Grid<bool> inside(grid->Dims(), kFlagKind);
  if (!inside.mData) return false;
  EGrid<double>& phi = *grid;
  const EGrid<double>& density = *source;
  const double far = mLevelSet->mInitial, near = -double{phi.mLayout.halfCell};
  ForEachInner(phi, [&](i32 i) {
    inside[i] = density[i] >= mThreshold;
    phi[i] = inside[i] ? near : far;
  });
  const i32 ny = phi.mNx, nz = phi.mSlice;
  ForEachInner(phi, [&](i32 i) {
    const bool* f = inside.mData + i;
    if (f[1] && f[-1] && f[ny] && f[-ny] && f[nz] && f[-nz]) phi[i] = far;
  });
  if (mTrueDistances) {
    if (!SpreadTrueDistances(inside, far, phi, thread)) return false;
  } else {
    FastSweeper<double>(phi, thread).Run(true, 1);
  }
  // One of the sweepers leaves the inside positive but for its outermost layer, the other negative.
  ForEachInner(phi, [&](i32 i) {
    if (inside[i] && phi[i] != near) phi[i] = mSigned ? -std::abs(phi[i]) : std::abs(phi[i]);
  });
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
