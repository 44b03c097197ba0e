#include "fluids/pressure/grid_multigrid_solver.h"

#include <cmath>
#include <limits>
#include <new>

#include "fluids/pressure/layer_sweeps.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void Grid_MultigridSolver::Release(bool full) {
  ConjugateGradients::Release(full);
  if (full) mMultigrid.Free();
}

void Grid_MultigridSolver::Prepare() {
  mHasLevels = false;
  PrepareIteration();
}

namespace {

SULVA_WIDE_KERNEL void RedirectLine(double beta, const float* __restrict value,
                                    double* __restrict s, i32 n) {
  for (i32 i = 0; i < n; ++i) s[i] = static_cast<double>(value[i]) + beta * s[i];
}

SULVA_WIDE_KERNEL void DescendLine(double alpha, double scale, const double* __restrict s,
                                   const double* __restrict z, double* __restrict x,
                                   double* __restrict r, float* __restrict rhs, i32 n) {
  for (i32 i = 0; i < n; ++i) {
    x[i] += alpha * s[i];
    r[i] -= alpha * z[i];
    rhs[i] = static_cast<float>(scale * r[i]);
  }
}

}  // namespace

double Grid_MultigridSolver::Descend(double alpha, double scale) {
  float* rhs = mMultigrid.FinestRhs();
  ForEachLine([&](i32 c, i32 n, double& top) {
    double* r = mArrays[kRhs] + c;
    DescendLine(alpha, scale, mArrays[kS] + c, mArrays[kZ] + c, mArrays[kResult] + c, r, rhs + c,
                n);
    top = std::max(top, MaxLine(r, n));
  });
  return *std::max_element(mPartials.begin() + 1, mPartials.begin() + std::max(2, mDims.z - 1));
}

double Grid_MultigridSolver::RedirectAndMultiply(double beta) {
  const float* value = mMultigrid.FinestValue();
  SweepLayers(1, mDims.z - 1, 2, mThreads, [&](i32 sweep, i32 z) {
    if (sweep == 0)
      ForEachLineOf(
          z, [&](i32 c, i32 n, double&) { RedirectLine(beta, value + c, mArrays[kS] + c, n); });
    else
      MultiplyLayer(z);
  });
  return SumOfPartials() + MultiplyBodies();
}

namespace {

constexpr i32 kTrial = 10;        // iterations that the levels on the grid get in any case
constexpr i32 kMemory = 5;        // iterations that tell the pace
constexpr double kPatience = 20;  // iterations still to come beyond which another way pays

}  // namespace

bool Grid_MultigridSolver::IsSlow() const {
  if (mIterations < kTrial) return false;
  const double before = mPast[(mIterations - kMemory) % kMemory];
  const double pace = std::log(mResidual / before) / kMemory;
  return !(pace < 0) || std::log(mAccuracy.tolerance / mResidual) / pace > kPatience;
}

SolveEnd Grid_MultigridSolver::Iterate(i32 limit) {
  // A liquid's levels need the entries that lead to the air, and its iteration must not have them.
  if (!mHasLevels || !mMatrix.mHasAir) {
    if (!mMultigrid.Build(mMatrix, mThreads)) throw std::bad_alloc();
    if (mMatrix.mHasAir) DropEntriesToMissingRows();
    mHasLevels = true;
  }
  mMultigrid.Restart();
  mPast.fill(std::numeric_limits<double>::infinity());
  const double scale = 1 / mLargest;
  Descend(0, scale);
  double rho = mMultigrid.Cycle(mArrays[kRhs]);
  double beta = 0;
  bool onGrid = true;
  while (mIterations < limit && !IsCancelled()) {
    if (rho == 0) return SolveEnd::Broken;
    ++mIterations;
    const double alpha = rho / RedirectAndMultiply(beta);
    if (!std::isfinite(alpha)) return SolveEnd::Broken;
    if (const auto end = Note(Descend(alpha, scale), limit)) return *end;
    const bool isSlow = onGrid && IsSlow();
    const bool turns = isSlow && mMultigrid.FollowCouplings(mMatrix);
    onGrid = onGrid && !isSlow;
    mPast[mIterations % kMemory] = mResidual;
    const double next = mMultigrid.Cycle(mArrays[kRhs]);
    // Directions of another preconditioner aren't conjugate to those before.
    beta = turns ? 0 : next / rho;
    rho = next;
  }
  return SolveEnd::OutOfIterations;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
