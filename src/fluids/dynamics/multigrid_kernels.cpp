#include "fluids/dynamics/multigrid_kernels.h"

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

SULVA_WIDE_KERNEL void StartLine(const LevelLine& line, i32 phase, i32 n) {
  float* __restrict x = line.value;
  const float *b = line.rhs, *inverse = line.inverse;
  for (i32 i = 0; i < n; ++i) {
    const float v = inverse[i] * b[i];
    x[i] = ((i + phase) & 1) ? x[i] : v;
  }
}

SULVA_WIDE_KERNEL void RelaxLine(const LevelLine& line, i32 phase, i32 n) {
  float* x = line.value;
  const float *b = line.rhs, *inverse = line.inverse;
  const float *wx = line.weight[0], *wy = line.weight[1], *wz = line.weight[2];
  const i32 ny = line.ny, nz = line.nz;
  // Cells of the other half are read and written back as they were.
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) {
    const float v = inverse[i] * (b[i] + (wx[i - 1] * x[i - 1] + wx[i] * x[i + 1]) +
                                  (wy[i - ny] * x[i - ny] + wy[i] * x[i + ny]) +
                                  (wz[i - nz] * x[i - nz] + wz[i] * x[i + nz]));
    x[i] = ((i + phase) & 1) ? x[i] : v;
  }
}

SULVA_WIDE_KERNEL static double DotFloat(const float* a, const double* b, i32 n) {
  double sum[4] = {};
  i32 i = 0;
  for (; i + 4 <= n; i += 4)
    for (i32 k = 0; k < 4; ++k) sum[k] += static_cast<double>(a[i + k]) * b[i + k];
  for (; i < n; ++i) sum[0] += static_cast<double>(a[i]) * b[i];
  return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

double RelaxDotLine(const LevelLine& line, i32 phase, const double* b, i32 n) {
  RelaxLine(line, phase, n);
  return DotFloat(line.value, b, n);
}

SULVA_WIDE_KERNEL void LeftOverLine(const LevelLine& line, i32 phase, float* __restrict left,
                                    i32 n) {
  const float *x = line.value, *inverse = line.inverse;
  const float *wx = line.weight[0], *wy = line.weight[1], *wz = line.weight[2];
  const i32 ny = line.ny, nz = line.nz;
  for (i32 i = 0; i < n; ++i) {
    const float v = (wx[i - 1] * x[i - 1] + wx[i] * x[i + 1]) +
                    (wy[i - ny] * x[i - ny] + wy[i] * x[i + ny]) +
                    (wz[i - nz] * x[i - nz] + wz[i] * x[i + nz]);
    left[i] = ((i + phase) & 1) || inverse[i] == 0 ? 0.0F : v;
  }
}

SULVA_WIDE_KERNEL void RestrictAcross(const float* own, const float* other, const float* weight,
                                      const float* share, i32 step, bool pairs,
                                      float* __restrict rhs, i32 n) {
  const float* beyond = share + step;
  if (pairs) {
    for (i32 i = 0; i < n; ++i)
      rhs[i] += weight[i] * (beyond[i] * (other[2 * i] + other[2 * i + 1]) -
                             share[i] * (own[2 * i] + own[2 * i + 1]));
  } else {
    for (i32 i = 0; i < n; ++i) rhs[i] += weight[i] * (beyond[i] * other[i] - share[i] * own[i]);
  }
}

SULVA_WIDE_KERNEL void RestrictAlong(const float* left, const float* weight, const float* share,
                                     bool pairs, float* __restrict rhs, i32 n) {
  if (!pairs) {
    for (i32 i = 0; i < n; ++i) rhs[i] += left[i];
    return;
  }
  for (i32 i = 0; i < n; ++i) {
    const float low = left[2 * i], high = left[2 * i + 1];
    rhs[i] += (low + high) + weight[i - 1] * (share[i - 1] * left[2 * i - 1] - share[i] * low) +
              weight[i] * (share[i + 1] * left[2 * i + 2] - share[i] * high);
  }
}

SULVA_WIDE_KERNEL void CorrectionLine(const float* value, const float* share, i32 stepY,
                                      const float* weightY, i32 stepZ, const float* weightZ,
                                      float* __restrict base, i32 n) {
  for (i32 i = 0; i < n; ++i)
    base[i] = value[i] + share[i] * (weightY[i] * (value[i + stepY] - value[i]) +
                                     weightZ[i] * (value[i + stepZ] - value[i]));
}

SULVA_WIDE_KERNEL void ProlongLine(const float* base, const float* value, const float* share,
                                   const float* weight, bool pairs, const float* inverse, i32 phase,
                                   float* __restrict fine, i32 m) {
  if (!pairs) {
    for (i32 i = 0; i < m; ++i) fine[i] += ((i + phase) & 1) || inverse[i] == 0 ? 0.0F : base[i];
    return;
  }
  // Of the two cells of a coarse one, just one belongs to the half: the low one or the high one.
  const i32 coarse = m / 2;
  if ((phase & 1) == 0) {
    for (i32 i = 0; i < coarse; ++i) {
      const float e = base[i] + share[i] * weight[i - 1] * (value[i - 1] - value[i]);
      fine[2 * i] += inverse[2 * i] == 0 ? 0.0F : e;
    }
  } else {
    for (i32 i = 0; i < coarse; ++i) {
      const float e = base[i] + share[i] * weight[i] * (value[i + 1] - value[i]);
      fine[2 * i + 1] += inverse[2 * i + 1] == 0 ? 0.0F : e;
    }
  }
  if (m % 2 == 1 && (phase & 1) == 0) {
    const float e =
        base[coarse] + share[coarse] * weight[coarse - 1] * (value[coarse - 1] - value[coarse]);
    fine[m - 1] += inverse[m - 1] == 0 ? 0.0F : e;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
