#include "fluids/pressure/viscous_kernels.h"

#include <algorithm>
#include <bit>

#include "fluids/pressure/line_kernels.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

// No row that a loop writes is one that it reads elsewhere, which the compiler can't see.

namespace {

/// A x of the faces of one axis at i; a and b are the steps to the next face along the two others,
/// `ea` and `eb` the edges that it shares with the faces `p` and `q` of these.
template <class T>
[[gnu::always_inline]] inline T Row(const float* mass, const float* cell, const float* ea,
                                    const float* eb, const T* x, const T* p, const T* q, i32 own,
                                    i32 a, i32 b, i32 i) {
  return mass[i] * x[i] + (cell[i - own] * (x[i] - x[i - own]) - cell[i] * (x[i + own] - x[i])) +
         (ea[i] * ((x[i] - x[i - a]) + (p[i] - p[i - own])) -
          ea[i + a] * ((x[i + a] - x[i]) + (p[i + a] - p[i + a - own]))) +
         (eb[i] * ((x[i] - x[i - b]) + (q[i] - q[i - own])) -
          eb[i + b] * ((x[i + b] - x[i]) + (q[i + b] - q[i + b - own])));
}

/// The three rows at i: f(axis, A x).
template <class T>
[[gnu::always_inline]] inline T RowX(const ViscousRow& m, const T* u, const T* v, const T* w,
                                     i32 i) {
  return Row(m.mass[0], m.cell[0], m.edge[2], m.edge[1], u, v, w, 1, m.ny, m.nz, i);
}
template <class T>
[[gnu::always_inline]] inline T RowY(const ViscousRow& m, const T* u, const T* v, const T* w,
                                     i32 i) {
  return Row(m.mass[1], m.cell[1], m.edge[2], m.edge[0], v, u, w, m.ny, 1, m.nz, i);
}
template <class T>
[[gnu::always_inline]] inline T RowZ(const ViscousRow& m, const T* u, const T* v, const T* w,
                                     i32 i) {
  return Row(m.mass[2], m.cell[2], m.edge[1], m.edge[0], w, u, v, m.nz, 1, m.ny, i);
}

}  // namespace

SULVA_WIDE_KERNEL double MultiplyRow(const ViscousRow& m, const double* const (&s)[3],
                                     double* const (&product)[3], i32 n) {
  const double *u = s[0], *v = s[1], *w = s[2];
  double* __restrict pu = product[0], * __restrict pv = product[1], * __restrict pw = product[2];
  for (i32 i = 0; i < n; ++i) pu[i] = RowX(m, u, v, w, i);
  for (i32 i = 0; i < n; ++i) pv[i] = RowY(m, u, v, w, i);
  for (i32 i = 0; i < n; ++i) pw[i] = RowZ(m, u, v, w, i);
  double sums[4] = {};
  i32 i = 0;
  for (; i + 4 <= n; i += 4)
    for (i32 k = 0; k < 4; ++k)
      sums[k] += (u[i + k] * pu[i + k] + v[i + k] * pv[i + k]) + w[i + k] * pw[i + k];
  for (; i < n; ++i) sums[0] += (u[i] * pu[i] + v[i] * pv[i]) + w[i] * pw[i];
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

SULVA_WIDE_KERNEL void LeaveRow(const ViscousRow& m, const float* const (&b)[3],
                                const float* const (&x)[3], const float* const (&share)[3],
                                float* const (&left)[3], i32 n) {
  const float *u = x[0], *v = x[1], *w = x[2];
  float* __restrict lu = left[0], * __restrict lv = left[1], * __restrict lw = left[2];
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) lu[i] = share[0][i] * (b[0][i] - RowX(m, u, v, w, i));
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) lv[i] = share[1][i] * (b[1][i] - RowY(m, u, v, w, i));
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) lw[i] = share[2][i] * (b[2][i] - RowZ(m, u, v, w, i));
}

SULVA_WIDE_KERNEL void SmoothRow(const ViscousRow& m, const float* const (&b)[3],
                                 const float* const (&x)[3], float momentum, float step,
                                 float* const (&change)[3], float* const (&y)[3], i32 n) {
  const float *u = x[0], *v = x[1], *w = x[2];
  float* __restrict cu = change[0], * __restrict cv = change[1], * __restrict cw = change[2];
  float* __restrict yu = y[0], * __restrict yv = y[1], * __restrict yw = y[2];
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) {
    cu[i] = momentum * cu[i] + step * m.inverse[0][i] * (b[0][i] - RowX(m, u, v, w, i));
    yu[i] = u[i] + cu[i];
  }
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) {
    cv[i] = momentum * cv[i] + step * m.inverse[1][i] * (b[1][i] - RowY(m, u, v, w, i));
    yv[i] = v[i] + cv[i];
  }
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) {
    cw[i] = momentum * cw[i] + step * m.inverse[2][i] * (b[2][i] - RowZ(m, u, v, w, i));
    yw[i] = w[i] + cw[i];
  }
}

SULVA_WIDE_KERNEL void StartRow(const float* inverse, const float* b, float step,
                                float* __restrict change, float* __restrict y, i32 n) {
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) change[i] = y[i] = step * inverse[i] * b[i];
}

SULVA_WIDE_KERNEL double AdvanceRow(double alpha, const double* __restrict s,
                                    const double* __restrict product,
                                    const float* __restrict inverse, double* __restrict x,
                                    double* __restrict left, float* __restrict rhs, i32 n) {
  i64 most[4] = {};
  const auto advance = [&](i32 i) {
    x[i] += alpha * s[i];
    left[i] = inverse[i] > 0 ? left[i] - alpha * product[i] : 0.0;
    rhs[i] = static_cast<float>(left[i]);
  };
  for (i32 i = 0; i < n; ++i) advance(i);
  i32 i = 0;
  for (; i + 4 <= n; i += 4)
    for (i32 k = 0; k < 4; ++k) {
      const i64 key = MagnitudeKey(left[i + k]);
      most[k] = key > most[k] ? key : most[k];
    }
  for (; i < n; ++i) most[0] = std::max(most[0], MagnitudeKey(left[i]));
  return std::bit_cast<double>(std::max(std::max(most[0], most[1]), std::max(most[2], most[3])));
}

SULVA_WIDE_KERNEL void TurnRow(const float* __restrict found, double beta, double* __restrict s,
                               i32 n) {
  for (i32 i = 0; i < n; ++i) s[i] = found[i] + beta * s[i];
}

double DotRow(const double* left, const float* found, i32 n) {
  double sums[4] = {};
  i32 i = 0;
  for (; i + 4 <= n; i += 4)
    for (i32 k = 0; k < 4; ++k) sums[k] += left[i + k] * found[i + k];
  for (; i < n; ++i) sums[0] += left[i] * found[i];
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

SULVA_WIDE_KERNEL void InvertRow(const ViscousRow& m, i32 axis, float* __restrict inverse, i32 n) {
  const i32 steps[3] = {1, m.ny, m.nz};
  const i32 a = axis == 0 ? 1 : 0, b = axis == 2 ? 1 : 2;
  // The edge along one of the other axes lies between faces along the third.
  const float *cell = m.cell[axis], *ea = m.edge[b], *eb = m.edge[a];
  const i32 own = steps[axis], sa = steps[a], sb = steps[b];
#pragma GCC ivdep
  for (i32 i = 0; i < n; ++i) {
    const float sum = (m.mass[axis][i] + (cell[i - own] + cell[i])) +
                      ((ea[i] + ea[i + sa]) + (eb[i] + eb[i + sb]));
    inverse[i] = sum > 0 ? 1 / sum : 0.0F;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
