#include "fluids/advection/even_rows.h"

#include <algorithm>

#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// What passes from the first to the second cell of each pair: density, and the share of the
/// denser cell's content. Both may be negative.
SULVA_WIDE_KERNEL void Flows(const double* __restrict inA, const double* __restrict inB,
                             const u8* __restrict holdsA, const u8* __restrict holdsB, i32 n,
                             double* __restrict density, double* __restrict share) {
  for (i32 i = 0; i < n; ++i) {
    const double a = inA[i], b = inB[i];
    const double high = a > b ? a : b;
    const double open = static_cast<double>(holdsA[i] & holdsB[i]);
    const double half = (a - b) * 0.5 * open;
    density[i] = high > 0 ? half : 0.0;
  }
  // A loop of its own: two choices by one comparison become a branch.
  for (i32 i = 0; i < n; ++i) {
    const double high = inA[i] > inB[i] ? inA[i] : inB[i];
    share[i] = density[i] / (high > 0 ? high : 1.0);
  }
}

SULVA_WIDE_KERNEL void Pass(const double* __restrict inB, double* __restrict outA,
                            double* __restrict outB, double* __restrict a, double* __restrict b,
                            const double* __restrict density, const double* __restrict share,
                            i32 n) {
  for (i32 i = 0; i < n; ++i) {
    const double flow = density[i];
    outA[i] -= flow;
    outB[i] = inB[i] + flow;
    const double passed = (flow > 0 ? a[i] : b[i]) * share[i];
    a[i] -= passed;
    b[i] += passed;
  }
}

constexpr i32 kChunk = 128;

}  // namespace

void EvenRows(const EvenRow& a, const EvenRow& b, i32 n) {
  double density[kChunk], share[kChunk];
  for (i32 i = 0; i < n; i += kChunk) {
    const i32 m = std::min(kChunk, n - i);
    Flows(a.in + i, b.in + i, a.holds + i, b.holds + i, m, density, share);
    Pass(b.in + i, a.out + i, b.out + i, a.content + i, b.content + i, density, share, m);
  }
}

void EvenAlong(const EvenRow& row, i32 n) {
  double density[kChunk], share[kChunk];
  double carried = row.in[0];
  for (i32 first = 0; first < n; first += kChunk) {
    const i32 m = std::min(kChunk, n - first);
    Flows(row.in + first, row.in + first + 1, row.holds + first, row.holds + first + 1, m, density,
          share);
    for (i32 i = 0; i < m; ++i) {
      double* content = row.content + first + i;
      row.out[first + i] = carried - density[i];
      carried = row.in[first + i + 1] + density[i];
      const double passed = content[density[i] > 0 ? 0 : 1] * share[i];
      content[0] -= passed;
      content[1] += passed;
    }
  }
  row.out[n] = carried;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
