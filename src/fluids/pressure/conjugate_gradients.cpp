#include "fluids/pressure/conjugate_gradients.h"

#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// A residual over the least one, for each row, beyond which a solve has gone astray. It may rightly
// rise at first: what all rows push may have to leave through one face.
constexpr double kGrowth = 10;
constexpr i32 kPatience = 100;  // iterations without a new least residual
constexpr double kWorse = 1.1;  // over the least residual, from which on it pays to go back

}  // namespace

bool ConjugateGradients::Solve() {
  mIterations = 0;
  mResidual = 0;
  mEnd = mHasSystem ? SolveEnd::Converged : SolveEnd::Broken;
  mLargest = 0;
  if (!mHasSystem) return false;
  mMatrix.FindLines(mThreads);
  mLargest = StartResidual();
  if (mLargest == 0) return true;
  mResidual = mBest = 1;
  mBestIteration = 0;
  mEnd = Iterate(mAccuracy.maxIterations);
  if (mEnd == SolveEnd::Converged) return true;
  if (mResidual > kWorse * mBest && !IsCancelled()) {
    // Going there again costs less than to keep a copy of every iterate that could be the best.
    const i32 done = mIterations, best = mBestIteration;
    mGoesAgain = true;
    StartAnew();
    Iterate(best);
    mGoesAgain = false;
    mIterations = done;
  }
  return false;
}

bool ConjugateGradients::Continue() {
  if (!mHasSystem) return false;
  mMatrix.FindLines(mThreads);
  DropEntriesToMissingRows();
  // What is left of the system may have next to nothing to solve for.
  mLargest = std::max(mLargest, StartResidual());
  const double left = TakeResult();
  mEnd = SolveEnd::Converged;
  mResidual = mLargest > 0 ? left / mLargest : 0;
  if (!(left > std::max(mLargest * mAccuracy.tolerance, mFloor))) return true;
  mBest = mResidual;
  mBestIteration = mIterations;
  mEnd = Iterate(mIterations + mAccuracy.maxIterations);
  ZeroMissingResults();
  return mEnd == SolveEnd::Converged;
}

double ConjugateGradients::TakeResult() {
  ZeroMissingResults();
  MultiplyResult();
  ForEachLine([&](i32 c, i32 n, double& top) {
    double *r = mArrays[kRhs] + c, *z = mArrays[kZ] + c;
    for (i32 i = 0; i < n; ++i) {
      r[i] -= z[i];
      z[i] = 0;
      top = std::max(top, std::fabs(r[i]));
    }
  });
  return *std::max_element(mPartials.begin() + 1, mPartials.begin() + std::max(2, mDims.z - 1));
}

void ConjugateGradients::MultiplyResult() {
  ForEachLine([&](i32 c, i32 n, double&) {
    MultiplyLine(Bands(mMatrix, c), mArrays[kResult] + c, mArrays[kZ] + c, n);
  });
  if (mBodies) mBodies->AddProduct(mArrays[kResult], mArrays[kZ]);
}

void ConjugateGradients::StartAnew() {
  MultiplyResult();
  ForEachLine([&](i32 c, i32 n, double&) {
    double *r = mArrays[kRhs] + c, *x = mArrays[kResult] + c;
    const double* z = mArrays[kZ] + c;
    for (i32 i = 0; i < n; ++i) {
      r[i] += z[i];
      x[i] = 0;
    }
  });
  mIterations = mBestIteration = 0;
  mResidual = mBest = 1;
  StartResidual();
}

std::optional<SolveEnd> ConjugateGradients::Note(double left, i32 limit) {
  mResidual = left / mLargest;
  if (!(left > std::max(mLargest * mAccuracy.tolerance, mFloor))) return SolveEnd::Converged;
  if (mResidual < mBest) {
    mBest = mResidual;
    mBestIteration = mIterations;
  }
  if (mResidual > kGrowth * mMatrix.Rows() * mBest) return SolveEnd::Grew;
  if (mIterations - mBestIteration >= kPatience) return SolveEnd::Stalled;
  if (mIterations >= limit) return SolveEnd::OutOfIterations;
  return {};
}

void ConjugateGradients::Release(bool full) {
  LatticeSolver::Release(full);
  if (full) mPartials = {};
}

bool ConjugateGradients::PrepareIteration() {
  if (!PrepareSystem()) return false;
  mPartials.resize(std::max(mDims.z, 1));
  return true;
}

void ConjugateGradients::DropEntriesToMissingRows() {
  const double* diagonal = mMatrix.Diagonal();
  ForEachLine([&](i32 c, i32 n, double&) {
    for (i32 axis = 0; axis < 3; ++axis) {
      double* upper = mMatrix.Upper(axis) + c;
      const double *own = diagonal + c, *other = own + mMatrix.Offset(axis);
      for (i32 i = 0; i < n; ++i)
        if (own[i] == 0 || other[i] == 0) upper[i] = 0;
    }
  });
}

double ConjugateGradients::StartResidual() {
  const i64 layer = i64{mDims.x} * mDims.y;
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    const i64 first = z * layer, last = first + layer;
    const double* diagonal = mMatrix.Diagonal();
    double* r = mArrays[kRhs];
    double top = 0;
    for (i64 c = first; c < last; ++c) {
      if (diagonal[c] == 0) r[c] = 0;
      top = std::max(top, std::fabs(r[c]));
    }
    mPartials[z] = top;
    const i32 own = mGoesAgain ? i32{kFirstOfMethod} : mArrays.Count();
    for (i32 a = kFirstOwn; a < own; ++a) std::fill_n(mArrays[a] + first, layer, 0.0);
  });
  return *std::max_element(mPartials.begin(), mPartials.begin() + mDims.z);
}

double ConjugateGradients::Multiply() {
  ForEachBlock(std::max(0, mDims.z - 2), mThreads, [&](i32 block) { MultiplyLayer(block + 1); });
  return SumOfPartials() + MultiplyBodies();
}

void ConjugateGradients::MultiplyLayer(i32 z) {
  ForEachLineOf(z, [&](i32 c, i32 n, double& dot) {
    const double* s = mArrays[kS] + c;
    double* product = mArrays[kZ] + c;
    MultiplyLine(Bands(mMatrix, c), s, product, n);
    dot += DotLine(s, product, n);
  });
}

double ConjugateGradients::SumOfPartials() const {
  double sum = 0;
  for (i32 z = 1; z < mDims.z - 1; ++z) sum += mPartials[z];
  return sum;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
