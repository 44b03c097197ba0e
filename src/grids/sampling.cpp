#include "grids/sampling.h"

#include <cmath>
#include <numbers>

namespace MELDO_GLOBAL {

namespace {

/// One monotonic Hermite step on N independent rows at once; lanes never meet, so that the loop
/// becomes plain vector code.
///
/// With d = f2 - f1 and the tangents m1 = (f2 - f0) / 2, m2 = (f3 - f1) / 2, 0 unless they have the
/// sign of d, the value is (m1 + m2 - 2d) t^3 + (3d - 2 m1 - m2) t^2 + m1 t + f1. The code carries
/// twice the tangents, which saves products. A d of 0 needs no test: the limits are then equal.
template <int N>
inline void HermiteStep(const double (&f)[4][N], double t, double (&out)[N]) {
  const double half = t * 0.5;
  for (int k = 0; k < N; ++k) {
    const double f1 = f[1][k], f2 = f[2][k];
    const double d = f2 - f1;
    double m1 = f2 - f[0][k];
    double m2 = f[3][k] - f1;
    m1 = m1 * d > 0 ? m1 : 0.0;
    m2 = m2 * d > 0 ? m2 : 0.0;
    const double dd = d + d;
    const double cubic = (m1 + m2) - (dd + dd);
    const double square = (dd - cubic) - m1;
    const double v = f1 + half * (m1 + t * (square + t * cubic));
    const double low = f1 < f2 ? f1 : f2;
    const double high = f1 < f2 ? f2 : f1;
    const double raised = v < low ? low : v;
    out[k] = raised > high ? high : raised;
  }
}

struct CubicAxis {
  i32 index[4];
  double weight[4];
};

/// Four-point Lagrange weights; the stencil keeps a margin of one sample below and repeats the
/// last sample above.
CubicAxis MakeCubicAxis(double c, i32 n) {
  double base = std::floor(c), t = c - base;
  if (!(base >= 1)) base = 1, t = 0;
  if (base > n - 2) base = n - 2, t = 1;
  const i32 i = static_cast<i32>(base);
  const double t2 = t * t, t3 = t2 * t;
  return {{std::max(i - 1, 0), i, std::min(i + 1, n - 1), std::min(i + 2, n - 1)},
          {t2 / 2 - t / 3 - t3 / 6, (t3 - t) / 2 + 1 - t2, (t2 - t3) / 2 + t, (t3 - t) / 6}};
}

template <class T>
double SampleCubic(const Grid<T>& g, const Vec3d& c) {
  const CubicAxis ax = MakeCubicAxis(c.x, g.mNx), ay = MakeCubicAxis(c.y, g.mNy),
                  az = MakeCubicAxis(c.z, g.mNz);
  double value = 0;
  for (int k = 0; k < 4; ++k) {
    double plane = 0;
    for (int j = 0; j < 4; ++j) {
      const T* row = g.mData + g.Index(0, ay.index[j], az.index[k]);
      double line = 0;
      for (int i = 0; i < 4; ++i) line += ax.weight[i] * row[ax.index[i]];
      plane += ay.weight[j] * line;
    }
    value += az.weight[k] * plane;
  }
  return value;
}

struct SplineAxis {
  i32 index[3];
  double weight[3];
};

SplineAxis MakeSplineAxis(double c, i32 n) {
  double base = std::floor(c), t = c - base;
  if (!(base >= 1)) base = 1, t = 0;
  if (base > n - 2) base = n - 2, t = 1;
  const i32 i = static_cast<i32>(base);
  return {{std::max(i - 1, 0), i, std::min(i + 1, n - 1)},
          {(t - 1) * (t - 1) / 2, 0.75 - (t - 0.5) * (t - 0.5), t * t / 2}};
}

template <class T>
double SampleSpline(const Grid<T>& g, const Vec3d& c) {
  const SplineAxis ax = MakeSplineAxis(c.x, g.mNx), ay = MakeSplineAxis(c.y, g.mNy),
                   az = MakeSplineAxis(c.z, g.mNz);
  double value = 0;
  for (int k = 0; k < 3; ++k)
    for (int j = 0; j < 3; ++j) {
      const T* row = g.mData + g.Index(0, ay.index[j], az.index[k]);
      for (int i = 0; i < 3; ++i)
        value += ax.weight[i] * ay.weight[j] * az.weight[k] * row[ax.index[i]];
    }
  return value;
}

AxisStencil CosineStencil(double c, i32 n) {
  const AxisStencil s = LinearStencil(c, n);
  return {s.index, (1 - std::cos(std::numbers::pi * s.fraction)) / 2};
}

void MakeMonotonicAxis(double c, i32 n, i32 (&index)[4], double& fraction) {
  const i32 last = n - 1;
  if (c >= n) {
    index[0] = n - 2;
    index[1] = index[2] = index[3] = last;
    fraction = 0;
    return;
  }
  const double inside = c > 0 ? c : 0.0;
  const i32 i = static_cast<i32>(inside);
  index[0] = std::max(i - 1, 0);
  index[1] = i;
  index[2] = std::min(i + 1, last);
  index[3] = std::min(i + 2, last);
  fraction = inside - i;
}

}  // namespace

MonotonicStencil MakeMonotonicStencil(const Vec3d& c, const VecInt3D& dims) {
  MonotonicStencil s;
  for (int a = 0; a < 3; ++a) MakeMonotonicAxis(c[a], dims[a], s.index[a], s.fraction[a]);
  return s;
}

template <class T>
double SampleMonotonic(const Grid<T>& g, const MonotonicStencil& s) {
  const i32* xs = s.index[0];
  double planes[4][4];
  for (int k = 0; k < 4; ++k) {
    const T* layer = g.mData + static_cast<std::ptrdiff_t>(s.index[2][k]) * g.mSlice;
    double rows[4][4];
    for (int j = 0; j < 4; ++j) {
      const T* row = layer + s.index[1][j] * g.mNx;
      for (int i = 0; i < 4; ++i) rows[i][j] = row[xs[i]];
    }
    double lines[4];
    HermiteStep<4>(rows, s.fraction[0], lines);
    for (int j = 0; j < 4; ++j) planes[j][k] = lines[j];
  }
  double columns[4];
  HermiteStep<4>(planes, s.fraction[1], columns);
  const double ends[4][1] = {{columns[0]}, {columns[1]}, {columns[2]}, {columns[3]}};
  double value[1];
  HermiteStep<1>(ends, s.fraction[2], value);
  return value[0];
}

template <class T>
double Sample(const Grid<T>& g, const Vec3d& c, i32 mode, const MonotonicStencil* stencil) {
  switch (mode) {
    case SAMPLE_COSINE:
      return SampleCorners(g, CosineStencil(c.x, g.mNx), CosineStencil(c.y, g.mNy),
                           CosineStencil(c.z, g.mNz));
    case SAMPLE_CUBIC: return SampleCubic(g, c);
    case SAMPLE_MONOTONIC:
      return SampleMonotonic(g, stencil ? *stencil : MakeMonotonicStencil(c, g.Dims()));
    case SAMPLE_BSPLINE: return SampleSpline(g, c);
    default: return SampleLinear(g, c);
  }
}

template <class T>
void Splat(Grid<T>& g, double value, const Vec3d& c, SplatOperation operation, bool lower,
           bool upper) {
  if (g.mNx < 2 || g.mNy < 2 || g.mNz < 2) return;
  const AxisStencil sx = LinearStencil(c.x, g.mNx), sy = LinearStencil(c.y, g.mNy),
                    sz = LinearStencil(c.z, g.mNz);
  for (int k = lower ? 0 : 1; k < (upper ? 2 : 1); ++k)
    for (int j = 0; j < 2; ++j)
      for (int i = 0; i < 2; ++i) {
        const double weight = (i ? sx.fraction : 1 - sx.fraction) *
                              (j ? sy.fraction : 1 - sy.fraction) *
                              (k ? sz.fraction : 1 - sz.fraction);
        T& sample = g(sx.index + i, sy.index + j, sz.index + k);
        const double share = weight * value;
        switch (operation) {
          case SplatOperation::Assign: sample = static_cast<T>(share); break;
          case SplatOperation::Add: sample = static_cast<T>(sample + share); break;
          case SplatOperation::Subtract: sample = static_cast<T>(sample - share); break;
          case SplatOperation::Multiply: sample = static_cast<T>(sample * share); break;
          case SplatOperation::Divide: sample = static_cast<T>(sample / share); break;
        }
      }
}

template double SampleMonotonic(const Grid<double>&, const MonotonicStencil&);
template double SampleMonotonic(const Grid<float>&, const MonotonicStencil&);
template double Sample(const Grid<double>&, const Vec3d&, i32, const MonotonicStencil*);
template double Sample(const Grid<float>&, const Vec3d&, i32, const MonotonicStencil*);
template void Splat(Grid<double>&, double, const Vec3d&, SplatOperation, bool, bool);
template void Splat(Grid<float>&, double, const Vec3d&, SplatOperation, bool, bool);

}  // namespace MELDO_GLOBAL
