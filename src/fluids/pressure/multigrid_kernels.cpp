#include "fluids/pressure/multigrid_kernels.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

SULVA_WIDE_KERNEL void InvertLine(const double* diagonal, double scale, float* __restrict out,
                                  i32 n) {
  for (i32 i = 0; i < n; ++i) {
    const double inverse = 1 / (scale * (diagonal[i] > 0 ? diagonal[i] : 1.0));
    out[i] = diagonal[i] > 0 ? static_cast<float>(inverse) : 0.0F;
  }
}

SULVA_WIDE_KERNEL void ScaleLine(const double* from, double scale, float* __restrict out, i32 n) {
  for (i32 i = 0; i < n; ++i) out[i] = static_cast<float>(scale * from[i]);
}

SULVA_WIDE_KERNEL bool ReplaceLine(const float* from, float* __restrict to, i32 n) {
  i32 changed = 0;
  for (i32 i = 0; i < n; ++i) {
    changed |= to[i] != from[i];
    to[i] = from[i];
  }
  return changed != 0;
}

namespace {

/// out = the lesser of out and `inverse`, 0 at strays.
SULVA_WIDE_KERNEL void LowerToLine(const float* inverse, const float* mark, float* __restrict out,
                                   i32 n) {
  for (i32 i = 0; i < n; ++i) {
    // A mask: two comparisons one after the other become a branch.
    const u32 kept = mark[i] != 0 ? 0U : ~0U;
    const float v = std::bit_cast<float>(std::bit_cast<u32>(inverse[i]) & kept);
    out[i] = v < out[i] ? v : out[i];
  }
}

/// out = the least of `inverse` over four lines, 0 at strays.
void LeastOfFour(const float* inverse, const float* mark, const i32* lines, float* out, i32 n) {
  std::fill_n(out, n, std::numeric_limits<float>::max());
  for (i32 l = 0; l < 4; ++l) LowerToLine(inverse + lines[l], mark + lines[l], out, n);
}

SULVA_WIDE_KERNEL void SumOfTwo(const float* a, const float* b, float* __restrict out, i32 n) {
  for (i32 i = 0; i < n; ++i) out[i] = a[i] + b[i];
}

}  // namespace

SULVA_WIDE_KERNEL void CoarseLine::Sum(const float* inverse, const float* mark,
                                       std::array<const float*, 3> weight, i32 ny, i32 nz, i32 n) {
  for (std::vector<float>* line : {&faces, &belowY, &aboveY, &belowZ, &aboveZ, &own, &beside})
    line->resize(n + 2);
  const i32 inner[] = {-1, ny - 1, nz - 1, ny + nz - 1};
  const i32 sides[][4] = {{-ny, nz - ny, 2 * ny, nz + 2 * ny}, {-nz, ny - nz, 2 * nz, ny + 2 * nz}};
  LeastOfFour(inverse, mark, inner, own.data(), n + 2);
  LeastOfFour(inverse, mark, sides[0], beside.data(), n);
  for (i32 i = 0; i < n / 2; ++i) {
    const float* o = own.data() + 2 * i;
    const float lowest = std::min(std::min(o[0], o[1]), std::min(o[2], o[3]));
    least[i] = std::min(lowest, std::min(beside[2 * i], beside[2 * i + 1]));
  }
  LeastOfFour(inverse, mark, sides[1], beside.data(), n);
  for (i32 i = 0; i < n / 2; ++i)
    least[i] = std::min(least[i], std::min(beside[2 * i], beside[2 * i + 1]));
  SumOfTwo(weight[1] - ny, weight[1] + nz - ny, belowY.data(), n);
  SumOfTwo(weight[1] + ny, weight[1] + nz + ny, aboveY.data(), n);
  SumOfTwo(weight[2] - nz, weight[2] + ny - nz, belowZ.data(), n);
  SumOfTwo(weight[2] + nz, weight[2] + ny + nz, aboveZ.data(), n);
  const float* x = weight[0] - 1;
  for (i32 i = 0; i < n + 1; ++i) faces[i] = (x[i] + x[i + ny]) + (x[i + nz] + x[i + nz + ny]);
}

void CoarseLine::Form(const float* ratioX, const float* ratioY, const float* ratioZ, i32 n,
                      float* diagonal, std::array<float*, 3> weight) const {
  for (i32 i = 0; i < n; ++i) {
    if (!(least[i] > 0)) continue;
    const i32 a = 2 * i, b = a + 1;
    const float x[2] = {ratioX[a - 1] * faces[a], ratioX[b] * faces[b + 1]};
    const float y[2] = {ratioY[0] * (belowY[a] + belowY[b]), ratioY[1] * (aboveY[a] + aboveY[b])};
    const float z[2] = {ratioZ[0] * (belowZ[a] + belowZ[b]), ratioZ[1] * (aboveZ[a] + aboveZ[b])};
    diagonal[i] = (x[0] + x[1]) + (y[0] + y[1]) + (z[0] + z[1]);
    weight[0][i] = x[1];
    weight[1][i] = y[1];
    weight[2][i] = z[1];
  }
}

SULVA_WIDE_KERNEL void StartLine(const LevelLine& line, i32 phase, i32 n) {
  float* __restrict x = line.value;
  const float *b = line.rhs, *inverse = line.inverse;
  for (i32 i = phase & 1; i < n; i += 2) x[i] = inverse[i] * b[i];
}

SULVA_WIDE_KERNEL void RelaxLine(const LevelLine& line, i32 phase, i32 n) {
  float* x = line.value;
  const float *b = line.rhs, *inverse = line.inverse;
  const float *wx = line.weight[0], *wy = line.weight[1], *wz = line.weight[2];
  const i32 ny = line.ny, nz = line.nz;
#pragma GCC ivdep
  for (i32 i = phase & 1; i < n; i += 2)
    x[i] = inverse[i] * (b[i] + (wx[i - 1] * x[i - 1] + wx[i] * x[i + 1]) +
                         (wy[i - ny] * x[i - ny] + wy[i] * x[i + ny]) +
                         (wz[i - nz] * x[i - nz] + wz[i] * x[i + nz]));
}

/// Products that are widened in one go before they are added.
constexpr i32 kChunk = 32;

SULVA_WIDE_KERNEL static double DotFloat(const float* a, const double* b, i32 n) {
  double sum[4] = {}, products[kChunk];
  i32 i = 0;
  for (; i + kChunk <= n; i += kChunk) {
    for (i32 k = 0; k < kChunk; ++k) products[k] = static_cast<double>(a[i + k]) * b[i + k];
    for (i32 first = 0; first < kChunk; first += 4)
      for (i32 k = 0; k < 4; ++k) sum[k] += products[first + k];
  }
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
