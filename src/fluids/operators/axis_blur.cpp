#include "fluids/operators/axis_blur.h"

#include <algorithm>

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// sum[x] += w * v[x].
SULVA_WIDE_KERNEL void AddTap(double* __restrict sum, const double* __restrict v, double w, i32 n) {
  for (i32 x = 0; x < n; ++x) sum[x] += w * v[x];
}

SULVA_WIDE_KERNEL void TakeCapped(const double* __restrict sum, double* __restrict target, i32 n,
                                  double most) {
  for (i32 x = 0; x < n; ++x) target[x] = sum[x] > most ? most : sum[x];
}

/// One end of a blur on its way from place to place; a closed link turns it round in place.
struct Walker {
  i32 at;
  i32 step;  ///< 1 or -1
  /// `open` tells of the link between a place and the next one.
  template <class F>
  void Move(F&& open) {
    if (open(step > 0 ? at : at - 1))
      at += step;
    else
      step = -step;
  }
};

/// The place in 0 .. n - 1 that mirrors at both ends show at `i`.
i32 Mirrored(i32 i, i32 n) {
  const i32 m = (i % (2 * n) + 2 * n) % (2 * n);
  return m < n ? m : 2 * n - 1 - m;
}

}  // namespace

void AxisBlur::Run(const EvaluationThreadData& share) const {
  const CellBox box{{1, 1, 1}, mTarget.Dims() - VecInt3D{1, 1, 1}};
  std::vector<double> sum(std::max(box.max.x - box.min.x, 0)), padded;
  const i32 outer = mAxis == 2 ? 1 : 2, inner = 3 - outer;
  const IndexRange own = share.ItemsOf(box.min[outer], box.max[outer]);
  for (i32 o = own.first; o < own.last && !share.TestBreak(); ++o)
    for (i32 i = box.min[inner]; i < box.max[inner]; ++i) {
      const i32 y = outer == 1 ? o : i, z = outer == 1 ? i : o;
      mAxis == 0 ? BlurAlong(y, z, sum, padded) : BlurAcross(y, z, sum);
    }
}

void AxisBlur::Take(const std::vector<double>& sum, i32 y, i32 z) const {
  TakeCapped(sum.data(), mTarget.mData + mTarget.Index(1, y, z), static_cast<i32>(sum.size()),
             mMost);
}

void AxisBlur::BlurAlong(i32 y, i32 z, std::vector<double>& sum,
                         std::vector<double>& padded) const {
  const i32 half = Half(), row = mSource.Index(0, y, z), end = mSource.mNx - 1;
  std::fill(sum.begin(), sum.end(), 0.0);
  for (i32 first = 1, last; first < end; first = last) {
    for (last = first + 1; last < end && mLinks.IsOpen(0, row + last - 1);) ++last;
    const i32 n = last - first;
    const double* source = mSource.mData + row + first;
    if (n == 1) {
      sum[first - 1] = source[0];
      continue;
    }
    padded.resize(n + 2 * half);
    std::copy_n(source, n, padded.data() + half);
    for (i32 k = 1; k <= half; ++k) {
      padded[half - k] = source[Mirrored(-k, n)];
      padded[half + n - 1 + k] = source[Mirrored(n - 1 + k, n)];
    }
    for (i32 k = 0; k <= 2 * half; ++k)
      AddTap(sum.data() + first - 1, padded.data() + k, mKernel[k], n);
  }
  Take(sum, y, z);
}

void AxisBlur::BlurAcross(i32 y, i32 z, std::vector<double>& sum) const {
  const i32 half = Half(), first = mSource.Index(1, y, z), n = static_cast<i32>(sum.size());
  const std::ptrdiff_t stride = mAxis == 1 ? mSource.mNx : mSource.mSlice;
  const i32 at = mAxis == 1 ? y : z;
  bool isMixed = false;
  const auto open = [&](i32 row) {
    const OpenLinks::Common common =
        mAxis == 1 ? mLinks.RowsAlong(1, row, z) : mLinks.RowsAlong(2, y, row);
    isMixed |= common == OpenLinks::kSome;
    return common == OpenLinks::kAll;
  };
  const double* source = mSource.mData + first;
  std::fill(sum.begin(), sum.end(), 0.0);
  AddTap(sum.data(), source, mKernel[half], n);
  Walker up{at, 1}, down{at, -1};
  for (i32 k = 1; k <= half; ++k) {
    up.Move(open);
    down.Move(open);
    if (isMixed) break;
    AddTap(sum.data(), source + (up.at - at) * stride, mKernel[half + k], n);
    AddTap(sum.data(), source + (down.at - at) * stride, mKernel[half - k], n);
  }
  if (isMixed)
    for (i32 x = 0; x < n; ++x) sum[x] = Single(first + x, static_cast<i32>(stride));
  Take(sum, y, z);
}

double AxisBlur::Single(i32 index, i32 stride) const {
  const i32 half = Half();
  const auto open = [&](i32 place) { return mLinks.IsOpen(mAxis, index + place * stride); };
  double sum = mKernel[half] * mSource[index];
  Walker up{0, 1}, down{0, -1};
  for (i32 k = 1; k <= half; ++k) {
    up.Move(open);
    down.Move(open);
    sum += mKernel[half + k] * mSource[index + up.at * stride];
    sum += mKernel[half - k] * mSource[index + down.at * stride];
  }
  return sum;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
