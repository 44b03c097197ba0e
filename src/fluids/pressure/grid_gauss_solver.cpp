#include "fluids/pressure/grid_gauss_solver.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/pressure/line_kernels.h"
#include "grids/fixed_blocks.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void Grid_GaussSolver::Reset() {
  LatticeSolver::Reset();
  mSolving = false;
}

void Grid_GaussSolver::Refill() {
  LatticeSolver::Refill();
  mSolving = false;
}

void Grid_GaussSolver::Release(bool full) {
  LatticeSolver::Release(full);
  if (!full) return;
  mSnapshots = {};
  mChanges = {};
}

void Grid_GaussSolver::Prepare() {
  mSolving = false;
  if (!PrepareSystem()) return;
  mIterations = 0;
  mLastSweep = 0;
  mChange = 0;
  mSnapshots.resize(static_cast<std::size_t>(4) * BlockCount() * mDims.x * mDims.y);
  mChanges.assign(BlockCount(), 0.0);
}

bool Grid_GaussSolver::WantsSweep() const {
  return mHasSystem && mIterations < mLastSweep && mChange >= mAccuracy.tolerance && !IsCancelled();
}

std::pair<i32, i32> Grid_GaussSolver::LayersOf(i32 block) const {
  return {std::max(1, block * kBlockLayers), std::min(mDims.z - 1, (block + 1) * kBlockLayers)};
}

double* Grid_GaussSolver::Snapshot(i32 parity, i32 block, bool last) {
  const std::size_t place = (static_cast<std::size_t>(parity) * BlockCount() + block) * 2 + last;
  return mSnapshots.data() + place * mDims.x * mDims.y;
}

void Grid_GaussSolver::TakeSnapshot(i32 parity, i32 block) {
  const auto [z0, z1] = LayersOf(block);
  if (z0 >= z1) return;
  const i64 layer = i64{mDims.x} * mDims.y;
  const double* p = mArrays[kResult];
  std::copy_n(p + z0 * layer, layer, Snapshot(parity, block, false));
  std::copy_n(p + (z1 - 1) * layer, layer, Snapshot(parity, block, true));
}

void Grid_GaussSolver::BeginSolve() {
  mMatrix.FindLines(mThreads);
  const i64 layer = i64{mDims.x} * mDims.y;
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    double* d = mMatrix.Diagonal() + z * layer;
    for (i64 i = 0; i < layer; ++i) d[i] = d[i] == 0 ? 0.0 : 1.0 / d[i];
  });
  ZeroMissingResults();
  mLastSweep = i64{mIterations} + mAccuracy.maxIterations + 2;
  mParity = 0;
  for (i32 block = 0; block < BlockCount(); ++block) TakeSnapshot(0, block);
  mSolving = true;
}

namespace {

/// A line of cells and its neighbours; pointers stand at the line's first cell.
struct RelaxLine {
  const double *inverse, *rhs, *ux, *uy, *uz;
  const double *p, *below, *above;  ///< the line, and those under and over it along z
  i32 ny, nz;
};

/// The terms of p[i] = a[i] - b[i] p[i-1]: the relaxation of a line but for its lower neighbours
/// along x.
SULVA_WIDE_KERNEL void RelaxTerms(const RelaxLine& l, double* __restrict a, double* __restrict b,
                                  i32 n) {
  const double *inverse = l.inverse, *rhs = l.rhs, *ux = l.ux, *uy = l.uy, *uz = l.uz;
  const double *p = l.p, *below = l.below, *above = l.above;
  const i32 ny = l.ny, nz = l.nz;
  const auto relax = [&](i32 i) {
    const double s = ux[i] * p[i + 1] + (uy[i - ny] * p[i - ny] + uy[i] * p[i + ny]) +
                     (uz[i - nz] * below[i] + uz[i] * above[i]);
    a[i] = inverse[i] * (rhs[i] - s);
    b[i] = inverse[i] * ux[i - 1];
  };
  i32 i = 0;
  for (; i + kCacheLine <= n; i += kCacheLine) {
    for (const double* next : {inverse, rhs, ux, uy, uz, above}) __builtin_prefetch(next + i + ny);
    __builtin_prefetch(p + i + 2 * ny);
    for (i32 k = 0; k < kCacheLine; ++k) relax(i + k);
  }
  for (; i < n; ++i) relax(i);
}

/// Writes the new pressures; returns the largest change.
SULVA_WIDE_KERNEL double StoreLine(const double* __restrict fresh, double* __restrict p, i32 n) {
  i64 top = 0;
  for (i32 i = 0; i < n; ++i) {
    top = std::max(top, MagnitudeKey(p[i] - fresh[i]));
    p[i] = fresh[i];
  }
  return std::bit_cast<double>(top);
}

}  // namespace

double Grid_GaussSolver::SweepBlock(i32 block, WaveScratch& scratch) {
  const auto [z0, z1] = LayersOf(block);
  const i32 ny = mMatrix.Offset(1), nz = mMatrix.Offset(2);
  double change = 0;
  for (i32 t = 0; z0 < z1 && t < WaveCount(mDims.y, z1 - z0); ++t)
    ForEachWaveGroup(mMatrix, t, z0, z1, [&, first = z0, last = z1](const Wave& wave) {
      const i32 n = wave.last - wave.first;
      LineRecurrence lines[kWaveLines];
      for (i32 l = 0; l < wave.count; ++l) {
        const i32 z = wave.lines[l].z, c = wave.lines[l].base + wave.first;
        const i32 inLayer = c - z * nz;
        const double* p = mArrays[kResult] + c;
        const double* below =
            z == first && z > 1 ? Snapshot(mParity, block - 1, true) + inLayer : p - nz;
        const double* above = z == last - 1 && z < mDims.z - 2
                                  ? Snapshot(mParity, block + 1, false) + inLayer
                                  : p + nz;
        const RelaxLine line{mMatrix.Diagonal() + c,
                             mArrays[kRhs] + c,
                             mMatrix.Upper(0) + c,
                             mMatrix.Upper(1) + c,
                             mMatrix.Upper(2) + c,
                             p,
                             below,
                             above,
                             ny,
                             nz};
        RelaxTerms(line, scratch.A(l), scratch.B(l), n);
        lines[l] = {scratch.A(l), scratch.B(l), scratch.A(l)};
      }
      RunRecurrences(lines, wave.count, n, 1);
      for (i32 l = 0; l < wave.count; ++l) {
        double* p = mArrays[kResult] + wave.lines[l].base + wave.first;
        change = std::max(change, StoreLine(scratch.A(l), p, n));
      }
    });
  return change;
}

double Grid_GaussSolver::Sweep() {
  mChange = 0;
  if (!mHasSystem || IsCancelled()) return 0;
  if (!mSolving) BeginSolve();
  ++mIterations;
  const i32 blocks = BlockCount();
  const i32 workers = std::min(blocks, static_cast<i32>(mScratch.size()));
  ForEachBlock(workers, workers, [&](i32 worker) {
    const i32 first = static_cast<i32>(i64{blocks} * worker / workers);
    const i32 last = static_cast<i32>(i64{blocks} * (worker + 1) / workers);
    for (i32 block = first; block < last; ++block) {
      mChanges[block] = SweepBlock(block, mScratch[worker]);
      TakeSnapshot(1 - mParity, block);
    }
  });
  mParity = 1 - mParity;
  for (const double change : mChanges) mChange = std::max(mChange, change);
  return mChange;
}

double Grid_GaussSolver::MeasureResidual() {
  if (!mHasSystem || !mSolving) return 0;
  const i32 ny = mMatrix.Offset(1), nz = mMatrix.Offset(2);
  struct Top {
    double residual = 0, rhs = 0;
  };
  const Top top = ReduceBlocks(
      std::max(0, mDims.z - 2), mThreads, Top{},
      [&](i32 block) {
        Top own;
        for (i32 y = 1; y < mDims.y - 1; ++y) {
          const LatticeMatrix::Line& line = mMatrix.LineAt(y, block + 1);
          const double *p = mArrays[kResult] + line.base, *rhs = mArrays[kRhs] + line.base;
          const double *inverse = mMatrix.Diagonal() + line.base,
                       *ux = mMatrix.Upper(0) + line.base, *uy = mMatrix.Upper(1) + line.base,
                       *uz = mMatrix.Upper(2) + line.base;
          for (i32 i = line.first; i < line.last; ++i) {
            if (inverse[i] == 0) continue;
            const double s = ux[i - 1] * p[i - 1] + ux[i] * p[i + 1] + uy[i - ny] * p[i - ny] +
                             uy[i] * p[i + ny] + uz[i - nz] * p[i - nz] + uz[i] * p[i + nz];
            own.residual = std::max(own.residual, std::fabs(rhs[i] - s - p[i] / inverse[i]));
            own.rhs = std::max(own.rhs, std::fabs(rhs[i]));
          }
        }
        return own;
      },
      [](const Top& a, const Top& b) {
        return Top{std::max(a.residual, b.residual), std::max(a.rhs, b.rhs)};
      });
  return top.rhs > 0 ? top.residual / top.rhs : 0.0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
