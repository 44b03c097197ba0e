#include "fluids/pressure/lattice_solver.h"

#include <algorithm>
#include <new>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

double ToleranceOfSlider(double slider) {
  if (slider == 0) return 0.01;
  static constexpr double kTolerances[] = {1e-3, 1e-4, 1e-5,  1e-6,  1e-7,
                                           1e-8, 1e-9, 1e-10, 1e-11, 1e-12};
  static constexpr double kBelow[] = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1.0};
  for (int i = 0; i < 10; ++i)
    if (slider < kBelow[i]) return kTolerances[i];
  return 1e-13;
}

void LatticeSolver::ZeroArrays() {
  const i64 layer = i64{mDims.x} * mDims.y;
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    std::fill_n(mArrays[kRhs] + z * layer, layer, 0.0);
    if (mClearResult) std::fill_n(mArrays[kResult] + z * layer, layer, 0.0);
  });
}

void LatticeSolver::Reset() {
  if (!mHasSystem) return;
  ZeroArrays();
  mMatrix.SetLattice(mDims, mThreads);
}

void LatticeSolver::Refill() {
  if (!mHasSystem) return;
  const i64 layer = i64{mDims.x} * mDims.y;
  ForEachBlock(mDims.z, mThreads,
               [&](i32 z) { std::fill_n(mArrays[kRhs] + z * layer, layer, 0.0); });
  mMatrix.SetLattice(mDims, mThreads);
}

void LatticeSolver::ZeroMissingResults() {
  const i64 layer = i64{mDims.x} * mDims.y;
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    const double* diagonal = mMatrix.Diagonal() + z * layer;
    double* x = mArrays[kResult] + z * layer;
    for (i64 i = 0; i < layer; ++i)
      if (diagonal[i] == 0) x[i] = 0;
  });
}

void LatticeSolver::Release(bool full) {
  mHasSystem = false;
  if (!full) return;
  iObject::Release(full);
  mMatrix.Free();
  mArrays.Free();
  mScratch = {};
}

bool LatticeSolver::PrepareSystem() {
  mHasSystem = false;
  if (!mOwner) return Deactivate("its solver has no owner");
  const i64 rows = i64{mDims.x} * mDims.y * mDims.z;
  const bool resized = rows != mArrays.Length();
  if (!mArrays.Resize(rows) || !mMatrix.SetLattice(mDims, mThreads))
    throw std::bad_alloc();  // gas that isn't projected would look like gas
  if (resized) std::fill_n(mArrays[kResult], rows, 0.0);
  ZeroArrays();
  mScratch.resize(std::clamp(mThreads, 1, host::kMaxWorkers));
  for (WaveScratch& scratch : mScratch) scratch.Resize(mDims.x);
  mHasSystem = true;
  SetFlag(FLAG_ACTIVE, true);
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
