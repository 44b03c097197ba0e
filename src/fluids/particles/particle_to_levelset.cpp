#include "fluids/particles/particle_to_levelset.h"

#include "fluids/levelset/eikonal_sweeper.h"
#include "fluids/levelset/fast_sweeper.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kInsideKind = 13;

/// Calls f(x, y, z, index) for all samples, layer by layer on all workers.
template <class F>
void ForEachSample(const EGrid<double>& grid, F&& f) {
  ForEachBlock(grid.mNz, host::ThreadCount(), [&](i32 z) {
    i32 i = grid.Index(0, 0, z);
    for (i32 y = 0; y < grid.mNy; ++y)
      for (i32 x = 0; x < grid.mNx; ++x, ++i) f(x, y, z, i);
  });
}

}  // namespace

bool ParticleToLevelset::IsInside(const ParticleSort& sort, const VecInt3D& cell) const {
  const auto entries = sort.Cell(cell);
  if (entries.size() <= mCountThreshold) return false;
  i32 count = 0;
  for (const ParticleSort::Entry& entry : entries)
    count += !(sort.Groups()[entry.group]->Store(sort.Kind()).Flags()[entry.row] & PF_SHEET_FILLER);
  return count > mCountThreshold;
}

void ParticleToLevelset::FillByDensity(const ParticleSort& sort, EGrid<double>& phi) const {
  ForEachSample(phi, [&](i32 x, i32 y, i32 z, i32 i) {
    phi[i] = sort.Density({x, y, z}, 0.5, mDensityThreshold);
  });
}

bool ParticleToLevelset::FillByCount(const ParticleSort& sort, EGrid<double>& phi,
                                     host::HostThread* thread) const {
  Grid<u8> inside(phi.Dims(), kInsideKind);
  if (!inside.mData) return false;
  // Minus a whole cell would leave the next layer inside at 0, which counts as air.
  const double seed = -0.5 * double{phi.mLayout.cellSize};
  ForEachSample(phi, [&](i32 x, i32 y, i32 z, i32 i) {
    inside[i] = IsInside(sort, {x, y, z});
    phi[i] = inside[i] ? seed : kFar;
  });
  const VecInt3D last = phi.Dims() - VecInt3D{1, 1, 1};
  const i32 ny = phi.mNx, nz = phi.mSlice;
  const auto isDeep = [&](i32 x, i32 y, i32 z, i32 i) {
    if (x == 0 || y == 0 || z == 0 || x == last.x || y == last.y || z == last.z) return false;
    const u8* f = inside.mData + i;
    return f[0] && f[1] && f[-1] && f[ny] && f[-ny] && f[nz] && f[-nz];
  };
  ForEachSample(phi, [&](i32 x, i32 y, i32 z, i32 i) {
    if (isDeep(x, y, z, i)) phi[i] = kFar;
  });
  if (mTrueDistances) {
    EikonalSweeper sweeper(phi, thread);
    if (!sweeper.IsReady()) return false;
    sweeper.Mark([&](i32 i) {
      return phi[i] != kFar ? EikonalSweeper::kKnown
             : inside[i]    ? EikonalSweeper::kInside
                            : EikonalSweeper::kOutside;
    });
    sweeper.Run();
    ForEachSample(phi, [&](i32, i32, i32, i32 i) {
      if (std::abs(phi[i]) == EikonalSweeper::kFar) phi[i] = inside[i] ? -kFar : kFar;
    });
    return true;
  }
  FastSweeper<double>(phi, thread).Run(true, 1);
  ForEachSample(phi, [&](i32, i32, i32, i32 i) {
    if (inside[i] && phi[i] >= 0) phi[i] = -phi[i];
  });
  return true;
}

/// By how much cells beside air hold more than their particles, in full cells.
double ParticleToLevelset::SurplusByCount(const ParticleSort& sort, const EGrid<float>* open,
                                          const EGrid<double>& phi) const {
  const VecInt3D n = phi.Dims();
  const i32 steps[3] = {1, phi.mNx, phi.mSlice};
  const auto openOf = [&](i32 i) { return open ? double{(*open)[i]} : 1.0; };
  const auto isBesideAir = [&](const VecInt3D& at, i32 i) {
    for (i32 axis = 0; axis < 3; ++axis)
      for (const i32 side : {-1, 1}) {
        const i32 next = i + side * steps[axis], place = at[axis] + side;
        if (place >= 0 && place < n[axis] && phi[next] > 0 && openOf(next) > 0) return true;
      }
    return false;
  };
  return SumBlocks(n.z, 1, host::ThreadCount(), [&](i64 first, i64 last) {
    double sum = 0;
    ForEachCell({{0, 0, static_cast<i32>(first)}, {n.x, n.y, static_cast<i32>(last)}},
                [&](i32 x, i32 y, i32 z) {
                  const i32 i = phi.Index(x, y, z);
                  const double own = static_cast<double>(sort.Cell({x, y, z}).size()) / mRest;
                  if (phi[i] < 0 && own < openOf(i) && isBesideAir({x, y, z}, i))
                    sum += openOf(i) - own;
                });
    return sum;
  });
}

void ParticleToLevelset::EnterSolids(const EGrid<double>& solid, EGrid<double>& phi) const {
  const double near =
      mMode == SurfaceMode::Density ? 8 * mDensityThreshold : 0.5 * double{phi.mLayout.cellSize};
  const i32 ny = solid.mNx, nz = solid.mSlice;
  ForEachSample(phi, [&](i32 x, i32 y, i32 z, i32 i) {
    if (!(phi[i] <= near)) return;
    const double* s = solid.mData + solid.Index(x, y, z);
    const double sum =
        s[0] + s[1] + s[ny] + s[ny + 1] + s[nz] + s[nz + 1] + s[nz + ny] + s[nz + ny + 1];
    if (sum < 0) phi[i] = -near;
  });
}

bool ParticleToLevelset::Run(const ParticleSort& sort, const Solids& solids, EGrid<double>& phi,
                             host::HostThread* thread) {
  if (!phi.mData || sort.Layout().dims != phi.Dims()) return false;
  if (phi.mNx < 2 || phi.mNy < 2 || phi.mNz < 2) return false;
  mSurplus = 0;
  mEven.reset();
  if (mMode == SurfaceMode::Smooth) {
    SmoothSurface surface(sort, solids.open, phi);
    if (!surface.Run(mRest, mCrowd)) return false;
    mRest = surface.Rest().particles;
    mRestCells = surface.Rest().cells;
    mSurplus = surface.Surplus();
    mEven = surface.TakeEven();
    if (!(mRest > 0) || mRest >= SmoothSurface::kFewest)
      return !mTrueDistances || surface.SpreadDistances(thread);
    if (!mTrueDistances) {
      if (!mWide.Run(sort, solids.open, phi, mRest, mCrowd)) return false;
      mSurplus = mWide.Surplus();
      return true;
    }
  }
  if (mMode == SurfaceMode::Density)
    FillByDensity(sort, phi);
  else if (!FillByCount(sort, phi, thread))
    return false;
  if (mMode == SurfaceMode::Count && mRest > 0) {
    const EGrid<float>* open = solids.open;
    const bool isKnown = open && open->mData && open->Dims() == phi.Dims();
    mSurplus = SurplusByCount(sort, isKnown ? open : nullptr, phi);
  }
  const EGrid<double>* solid = solids.levelSet;
  if (solid && solid->mData && solid->Dims() == phi.Dims() + VecInt3D{1, 1, 1})
    EnterSolids(*solid, phi);
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
