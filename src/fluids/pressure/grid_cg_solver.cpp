#include "fluids/pressure/grid_cg_solver.h"

#include <cmath>
#include <thread>

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void Grid_CGSolver::Release(bool full) {
  ConjugateGradients::Release(full);
  if (!full) return;
  mProgress.reset();
  mProgressCount = 0;
}

void Grid_CGSolver::Prepare() {
  if (!PrepareIteration()) return;
  if (mProgressCount < SlabCount()) {
    mProgressCount = SlabCount();
    mProgress = std::make_unique<Progress[]>(mProgressCount);
  }
}

/// f(wave, scratch, partial) for all lines with rows so that every line follows its lower
/// neighbours (or `reversed`, its upper ones). Workers take the slabs in turn; each
/// follows the slab before its own at a distance. The partial is the slab's.
template <class F>
void Grid_CGSolver::RunWavefront(bool reversed, F&& f) {
  const i32 slabs = SlabCount(), waves = WaveCount(mDims.y, kWaveLines);
  const i32 workers =
      std::clamp(std::min(static_cast<i32>(mScratch.size()), slabs), 1, host::kMaxWorkers);
  const auto runWave = [&](i32 step, i32 wave, WaveScratch& scratch) {
    const i32 slab = reversed ? slabs - 1 - step : step;
    const i32 z0 = 1 + slab * kWaveLines, z1 = std::min(z0 + kWaveLines, mDims.z - 1);
    ForEachWaveGroup(mMatrix, reversed ? waves - 1 - wave : wave, z0, z1,
                     [&](const Wave& group) { f(group, scratch, mPartials[slab]); });
  };
  for (i32 slab = 0; slab < slabs; ++slab) {
    mPartials[slab] = 0;
    mProgress[slab].waves.store(0, std::memory_order_relaxed);
  }
  if (workers == 1) {
    for (i32 step = 0; step < slabs; ++step)
      for (i32 wave = 0; wave < waves; ++wave) runWave(step, wave, mScratch[0]);
    return;
  }
  // Taken in order, so that the slab that one waits for is in work, on however few threads.
  std::atomic<i32> next{0};
  host::WorkerPool::Instance().Run(workers, [&](i32 worker) {
    for (i32 step; (step = next.fetch_add(1)) < slabs;)
      for (i32 wave = 0; wave < waves; ++wave) {
        const i32 needed = std::min(wave + kWaveLines, waves);
        for (i32 spins = 0;
             step > 0 && mProgress[step - 1].waves.load(std::memory_order_acquire) < needed;)
          if (++spins > 200) std::this_thread::yield();
        runWave(step, wave, mScratch[worker]);
        mProgress[step].waves.store(wave + 1, std::memory_order_release);
      }
  });
}

namespace {

SULVA_WIDE_KERNEL void AdvanceLine(double alpha, double beta, double* __restrict x,
                                   double* __restrict s, const double* __restrict z, i32 n) {
  for (i32 i = 0; i < n; ++i) {
    x[i] += alpha * s[i];
    s[i] = z[i] + beta * s[i];
  }
}

/// r -= alpha z, and the terms of z[i] = a[i] - b[i] z[i-1], the forward substitution.
SULVA_WIDE_KERNEL void ForwardTerms(const Bands& m, double alpha, const double* factor,
                                    const double* z, double* __restrict r, double* __restrict a,
                                    double* __restrict b, i32 n) {
  const double *ux = m.upper[0], *uy = m.upper[1], *uz = m.upper[2];
  const i32 ny = m.ny, nz = m.nz;
  const auto substitute = [&](i32 i) {
    r[i] -= alpha * z[i];
    a[i] = factor[i] * (r[i] - (uy[i - ny] * z[i - ny] + uz[i - nz] * z[i - nz]));
    b[i] = factor[i] * ux[i - 1];
  };
  i32 i = 0;
  for (; i + kCacheLine <= n; i += kCacheLine) {
    for (const double* next : {factor, ux, uy - ny, uz - nz, z, static_cast<const double*>(r)})
      __builtin_prefetch(next + ny + i);
    for (i32 k = 0; k < kCacheLine; ++k) substitute(i + k);
  }
  for (; i < n; ++i) substitute(i);
}

/// The terms of z[i] = a[i] - b[i] z[i+1], the backward substitution; `r` is read after it.
SULVA_WIDE_KERNEL void BackwardTerms(const Bands& m, const double* factor, const double* z,
                                     const double* r, double* __restrict a, double* __restrict b,
                                     i32 n) {
  const double *ux = m.upper[0], *uy = m.upper[1], *uz = m.upper[2];
  const i32 ny = m.ny, nz = m.nz;
  const auto substitute = [&](i32 i) {
    a[i] = z[i] - factor[i] * (uy[i] * z[i + ny] + uz[i] * z[i + nz]);
    b[i] = factor[i] * ux[i];
  };
  i32 i = 0;
  for (; i + kCacheLine <= n; i += kCacheLine) {
    for (const double* next : {factor, ux, uy, uz, z, r}) __builtin_prefetch(next - ny + i);
    for (i32 k = 0; k < kCacheLine; ++k) substitute(i + k);
  }
  for (; i < n; ++i) substitute(i);
}

/// The factor's diagonal along a line: what the columns before leave of the matrix's own. An entry
/// v of column k takes v^2 off its row and, weighed, v times the column's other entries, which have
/// no place there.
void FactorLine(const Bands& m, double modification, double minRatio, double* factor, i32 n) {
  const i32 offsets[3] = {1, m.ny, m.nz};
  for (i32 i = 0; i < n; ++i) {
    const double own = m.diagonal[i];
    if (own == 0) continue;
    double d = own;
    for (i32 axis = 2; axis >= 0; --axis) {
      const i32 k = i - offsets[axis];
      const double v = m.upper[axis][k];
      const double missing = axis == 0   ? m.upper[1][k] + m.upper[2][k]
                             : axis == 1 ? m.upper[0][k] + m.upper[2][k]
                                         : m.upper[0][k] + m.upper[1][k];
      d -= v * v * factor[k];
      d -= modification * (v * missing * factor[k]);
    }
    factor[i] = 1.0 / (d < own * minRatio ? own : d);
  }
}

}  // namespace

void Grid_CGSolver::FormPreconditioner() {
  RunWavefront(false, [&](const Wave& wave, WaveScratch&, double&) {
    for (i32 l = 0; l < wave.count; ++l) {
      const i32 c = wave.lines[l].base + wave.first;
      FactorLine(Bands(mMatrix, c), mModification, mMinDiagonalRatio, mArrays[kFactor] + c,
                 wave.last - wave.first);
    }
  });
}

double Grid_CGSolver::Forward(double alpha) {
  double* z = mArrays[kZ];
  RunWavefront(false, [&](const Wave& wave, WaveScratch& scratch, double& top) {
    const i32 n = wave.last - wave.first;
    LineRecurrence lines[kWaveLines];
    for (i32 l = 0; l < wave.count; ++l) {
      const i32 c = wave.lines[l].base + wave.first;
      double* r = mArrays[kRhs] + c;
      lines[l] = {scratch.A(l), scratch.B(l), z + c};
      ForwardTerms(Bands(mMatrix, c), alpha, mArrays[kFactor] + c, z + c, r, scratch.A(l),
                   scratch.B(l), n);
      top = std::max(top, MaxLine(r, n));
    }
    RunRecurrences(lines, wave.count, n, 1);
  });
  return *std::max_element(mPartials.begin(), mPartials.begin() + SlabCount());
}

double Grid_CGSolver::Backward() {
  double* z = mArrays[kZ];
  RunWavefront(true, [&](const Wave& wave, WaveScratch& scratch, double& dot) {
    const i32 n = wave.last - wave.first;
    LineRecurrence lines[kWaveLines];
    for (i32 l = 0; l < wave.count; ++l) {
      const i32 c = wave.lines[l].base + wave.first;
      lines[l] = {scratch.A(l), scratch.B(l), z + c};
      BackwardTerms(Bands(mMatrix, c), mArrays[kFactor] + c, z + c, mArrays[kRhs] + c, scratch.A(l),
                    scratch.B(l), n);
    }
    RunRecurrences(lines, wave.count, n, -1);
    for (i32 l = 0; l < wave.count; ++l) {
      const i32 c = wave.lines[l].base + wave.first;
      dot += DotLine(z + c, mArrays[kRhs] + c, n);
    }
  });
  double dot = 0;
  for (i32 slab = 0; slab < SlabCount(); ++slab) dot += mPartials[slab];
  return dot;
}

void Grid_CGSolver::Advance(double alpha, double beta) {
  ForEachLine([&](i32 c, i32 n, double&) {
    AdvanceLine(alpha, beta, mArrays[kResult] + c, mArrays[kS] + c, mArrays[kZ] + c, n);
  });
}

SolveEnd Grid_CGSolver::Iterate(i32 limit) {
  // Those to the air are as large as the surface is near, and only some sides would count them.
  if (mMatrix.mHasAir) DropEntriesToMissingRows();
  if (!mGoesAgain) FormPreconditioner();
  if (!mMatrix.mHasAir) DropEntriesToMissingRows();
  Forward(0);
  double rho = Backward();
  if (rho == 0) return SolveEnd::Broken;
  Advance(0, 0);
  while (mIterations < limit && !IsCancelled()) {
    ++mIterations;
    const double alpha = rho / Multiply();
    if (!std::isfinite(alpha)) return SolveEnd::Broken;
    if (const auto end = Note(Forward(alpha), limit)) {
      Advance(alpha, 0);
      return *end;
    }
    const double next = Backward();
    Advance(alpha, rho == 0 ? 0 : next / rho);
    rho = next;
  }
  return SolveEnd::OutOfIterations;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
