#include "fluids/levelset/density_to_levelset.h"

#include "fluids/levelset/fast_sweeper.h"
#include "grids/run_shares.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

DensityToLevelset::DensityToLevelset(const DensityToLevelset& other)
    : iObject(other),
      mLevelSet(other.mLevelSet),
      mSource(other.mSource),
      mThreshold(other.mThreshold),
      mSigned(other.mSigned) {}

bool DensityToLevelset::NextPass() {
  if (!mSigned && mPass == 2) {
    mPass = -1;
    mInside.reset();
    return false;
  }
  return iObject::NextPass();
}

void DensityToLevelset::Prepare(void*) {
  if (!mLevelSet) return SetFlag(FLAG_ACTIVE, false);
  const EGrid<double>* grid = mLevelSet->GetGrid(0);
  const EGrid<double>* density = mSource ? mSource->GetGrid(0) : nullptr;
  const bool fits =
      grid && grid->mData && density && density->mData && density->Dims() == grid->Dims();
  if (!fits) return SetFlag(FLAG_ACTIVE, false);
  if (mPass == 0) {
    mInside = std::make_unique<Grid<bool>>(grid->Dims(), kFlagKind);
    if (!mInside->mData) mInside.reset();
  }
  const bool ready = mInside && SplitZ(mSlabs, grid->Dims(), false, host::ThreadCount());
  SetFlag(FLAG_ACTIVE, ready);
}

void DensityToLevelset::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const CellBox box = mSlabs[data.index];
  if (mPass == 0) Seed(box);
  if (mPass == 1) EmptyInside(box);
  if (mPass == 3) Negate(box);
}

void DensityToLevelset::Seed(const CellBox& box) {
  EGrid<double>& phi = *mLevelSet->GetGridForWrite(0);
  const EGrid<double>& density = *mSource->GetGrid(0);
  const double far = mLevelSet->mInitial, near = -double{phi.mLayout.halfCell};
  Grid<bool>& inside = *mInside;
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    const i32 i = phi.Index(x, y, z);
    inside[i] = density[i] >= mThreshold;
    phi[i] = inside[i] ? near : far;
  });
}

void DensityToLevelset::EmptyInside(const CellBox& box) {
  EGrid<double>& phi = *mLevelSet->GetGridForWrite(0);
  const double far = mLevelSet->mInitial;
  const i32 ny = phi.mNx, nz = phi.mSlice;
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    const bool* f = mInside->mData + phi.Index(x, y, z);
    if (f[1] && f[-1] && f[ny] && f[-ny] && f[nz] && f[-nz]) phi(x, y, z) = far;
  });
}

void DensityToLevelset::Negate(const CellBox& box) {
  EGrid<double>& phi = *mLevelSet->GetGridForWrite(0);
  ForEachCell(box, [&](i32 x, i32 y, i32 z) {
    const i32 i = phi.Index(x, y, z);
    if ((*mInside)[i] && phi[i] >= 0) phi[i] = -phi[i];
  });
}

void DensityToLevelset::Finish() {
  if (mPass == mPassCount - 1) mInside.reset();
}

bool DensityToLevelset::Run(host::HostThread* thread) {
  bool worked = false;
  while (NextPass()) {
    Prepare();
    worked = Has(FLAG_ACTIVE);
    if (worked && mPass == 2) {
      // The sweeps bring workers of their own.
      FastSweeper<double>(*mLevelSet->GetGridForWrite(0), thread).Run(true, 1);
    } else if (worked) {
      RunShares(host::ThreadCount(), thread,
                [&](const EvaluationThreadData& share) { Evaluate(share); });
    }
    Finish();
  }
  return worked;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
