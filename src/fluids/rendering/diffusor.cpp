#include "fluids/rendering/diffusor.h"

#include <algorithm>
#include <cmath>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

void Diffusor::Blur(Grid<double>& grid, double strength, i32 iterations) {
  if (iterations <= 0 || !(3 * strength >= 1) || !grid.mData) return;
  Grid<double> scratch(grid.Dims(), grid.mKind);
  Blur(grid, scratch, strength, iterations);
}

void Diffusor::Blur(Grid<double>& grid, Grid<double>& scratch, double strength, i32 iterations) {
  // Below a third of a cell the kernel has one tap.
  if (iterations <= 0 || !(3 * strength >= 1) || !grid.mData || !scratch.mData) return;
  mDims = grid.Dims();
  const i32 longest = std::max({mDims.x, mDims.y, mDims.z});
  // Taps that reach beyond the grid on both sides from everywhere never count.
  mRadius = static_cast<i32>(std::min(std::trunc(3 * strength), double(longest - 1)));
  mWeights.resize(2 * mRadius + 1);
  double sum = 0;
  for (i32 k = -mRadius; k <= mRadius; ++k)
    sum += mWeights[k + mRadius] = std::exp(-double(k) * k / (strength * strength));
  for (double& w : mWeights) w /= sum;
  for (i32 a = 0; a < 3; ++a) {
    const i32 n = mDims[a];
    mScale[a].resize(n);
    for (i32 i = 0; i < n; ++i) {
      double inside = 0;
      for (i32 k = std::max(-mRadius, -i); k <= std::min(mRadius, n - 1 - i); ++k)
        inside += mWeights[k + mRadius];
      mScale[a][i] = 1 / inside;
    }
  }

  mSource = &grid;
  mTarget = &scratch;
  for (i32 round = 0; round < iterations; ++round)
    for (mAxis = 0; mAxis < 3; ++mAxis) {
      ForEachBlock(mDims.z, host::ThreadCount(), [&](i32 z) { FilterLayer(z); });
      // The data of the two change places, so that the newest is always in `grid`.
      grid.Swap(scratch);
    }
}

void Diffusor::FilterRow(const double* source, double* __restrict target) const {
  const i32 n = mDims.x;
  std::fill_n(target, n, 0.0);
  for (i32 k = -mRadius; k <= mRadius; ++k) {
    const double w = mWeights[k + mRadius];
    const i32 first = std::max(0, -k), last = std::min(n, n - k);
    for (i32 x = first; x < last; ++x) target[x] += w * source[x + k];
  }
  const double* scale = mScale[0].data();
  for (i32 x = 0; x < n; ++x) target[x] *= scale[x];
}

void Diffusor::MixRows(const double* source, double* __restrict target, i32 position,
                       i32 step) const {
  const i32 nx = mDims.x, n = mDims[mAxis];
  std::fill_n(target, nx, 0.0);
  const i32 low = std::max(-mRadius, -position), high = std::min(mRadius, n - 1 - position);
  for (i32 k = low; k <= high; ++k) {
    const double w = mWeights[k + mRadius];
    const double* row = source + static_cast<std::ptrdiff_t>(k) * step;
    for (i32 x = 0; x < nx; ++x) target[x] += w * row[x];
  }
  const double scale = mScale[mAxis][position];
  for (i32 x = 0; x < nx; ++x) target[x] *= scale;
}

void Diffusor::FilterLayer(i32 z) const {
  for (i32 y = 0; y < mDims.y; ++y) {
    const i32 at = mSource->Index(0, y, z);
    const double* source = mSource->mData + at;
    double* target = mTarget->mData + at;
    if (mAxis == 0) FilterRow(source, target);
    if (mAxis == 1) MixRows(source, target, y, mDims.x);
    if (mAxis == 2) MixRows(source, target, z, mSource->mSlice);
  }
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
