#include "fluids/pressure/line_kernels.h"

#include <algorithm>

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

SULVA_WIDE_KERNEL double DotLine(const double* a, const double* b, i32 n) {
  double sum[4] = {0, 0, 0, 0};
  i32 i = 0;
  for (; i + 4 <= n; i += 4)
    for (i32 k = 0; k < 4; ++k) sum[k] += a[i + k] * b[i + k];
  for (; i < n; ++i) sum[0] += a[i] * b[i];
  return (sum[0] + sum[2]) + (sum[1] + sum[3]);
}

SULVA_WIDE_KERNEL double MaxLine(const double* a, i32 n) {
  i64 top = 0;
  for (i32 i = 0; i < n; ++i) top = std::max(top, MagnitudeKey(a[i]));
  return std::bit_cast<double>(top);
}

namespace {

template <i32 kLines>
void RunSideBySide(const LineRecurrence* lines, i32 n, i32 step) {
  double last[kLines] = {};
  for (i32 i = step > 0 ? 0 : n - 1; i >= 0 && i < n; i += step)
    for (i32 l = 0; l < kLines; ++l) {
      last[l] = lines[l].a[i] - lines[l].b[i] * last[l];
      lines[l].v[i] = last[l];
    }
}

}  // namespace

SULVA_WIDE_KERNEL void MultiplyLine(const Bands& m, const double* __restrict s,
                                    double* __restrict z, i32 n) {
  const double *d = m.diagonal, *ux = m.upper[0], *uy = m.upper[1], *uz = m.upper[2];
  const i32 ny = m.ny, nz = m.nz;
  for (i32 i = 0; i < n; ++i)
    z[i] = d[i] * s[i] + (ux[i - 1] * s[i - 1] + ux[i] * s[i + 1]) +
           (uy[i - ny] * s[i - ny] + uy[i] * s[i + ny]) +
           (uz[i - nz] * s[i - nz] + uz[i] * s[i + nz]);
}

void RunRecurrences(const LineRecurrence* lines, i32 count, i32 n, i32 step) {
  switch (count) {
    case 1: return RunSideBySide<1>(lines, n, step);
    case 2: return RunSideBySide<2>(lines, n, step);
    case 3: return RunSideBySide<3>(lines, n, step);
    case 4: return RunSideBySide<4>(lines, n, step);
    default: return;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
