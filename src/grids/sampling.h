// Sampling of grids between their samples.
//
// All functions take sample coordinates of the grid: (p - simOrigin) * simToCell - OffsetOf(kind).
#pragma once
#include "grids/egrid.h"

namespace MELDO_GLOBAL {

enum SampleMode : i32 {
  SAMPLE_LINEAR = 0,     ///< trilinear
  SAMPLE_COSINE = 1,     ///< trilinear over (1 - cos(pi t)) / 2
  SAMPLE_CUBIC = 2,      ///< 4 x 4 x 4 Lagrange cubic
  SAMPLE_MONOTONIC = 3,  ///< 4 x 4 x 4 monotonic Hermite cubic
  SAMPLE_BSPLINE = 4,    ///< 3 x 3 x 3 quadratic B-spline; the caller adds 0.5 to each coordinate
};

/// Lower index and fraction of a linear stencil on an axis of `n` samples: below 0 the first
/// sample, beyond n - 2 the last one. Without a branch, so that it vectorises; NaN counts as 0.
struct AxisStencil {
  i32 index;
  double fraction;
};
inline AxisStencil LinearStencil(double c, i32 n) {
  const double low = c > 0 ? c : 0.0;
  const double inside = low < n - 1 ? low : n - 1.0;
  const i32 base = static_cast<i32>(inside);
  const i32 index = base < n - 2 ? base : n - 2;
  return {index, inside - index};
}

/// Trilinear sample of the eight corners of three stencils.
template <class T>
inline double SampleCorners(const Grid<T>& g, const AxisStencil& sx, const AxisStencil& sy,
                            const AxisStencil& sz) {
  const T* p = g.mData + g.Index(sx.index, sy.index, sz.index);
  const i32 ny = g.mNx, nz = g.mSlice;
  const double fx = sx.fraction, fy = sy.fraction, fz = sz.fraction;
  const auto lerp = [](double a, double b, double t) { return a + (b - a) * t; };
  const double c00 = lerp(p[0], p[1], fx);
  const double c10 = lerp(p[ny], p[ny + 1], fx);
  const double c01 = lerp(p[nz], p[nz + 1], fx);
  const double c11 = lerp(p[nz + ny], p[nz + ny + 1], fx);
  return lerp(lerp(c00, c10, fy), lerp(c01, c11, fy), fz);
}

/// Trilinear sample; never reads outside the array. Grids hold at least two samples per axis.
template <class T>
inline double SampleLinear(const Grid<T>& g, double x, double y, double z) {
  return SampleCorners(g, LinearStencil(x, g.mNx), LinearStencil(y, g.mNy),
                       LinearStencil(z, g.mNz));
}
template <class T>
inline double SampleLinear(const Grid<T>& g, const Vec3d& c) {
  return SampleLinear(g, c.x, c.y, c.z);
}

/// Indices i-1, i, i+1, i+2 per axis, clamped into the array, for a monotonic sample; computed once
/// and used for several grids of the same shape at the same point.
struct MonotonicStencil {
  i32 index[3][4];
  double fraction[3];
};
MonotonicStencil MakeMonotonicStencil(const Vec3d& c, const VecInt3D& dims);

/// Monotonic Hermite cubic sample: never leaves the interval of the two central samples on any
/// axis. Tangents as in Fedkiw, Stam, Jensen, "Visual Simulation of Smoke" (2001), appendix B.
/// Instantiated for float and double, as all templates below.
template <class T>
double SampleMonotonic(const Grid<T>& g, const MonotonicStencil& stencil);

/// A sample by mode. Mode 3 uses `stencil`, or makes one.
template <class T>
double Sample(const Grid<T>& g, const Vec3d& c, i32 mode,
              const MonotonicStencil* stencil = nullptr);

/// Gradient by central differences of trilinear samples half a cell to each side.
template <class T>
inline Vec3d SampleGradient(const Grid<T>& g, const Vec3d& c, double cellSize) {
  const double s = 1.0 / cellSize;
  return {(SampleLinear(g, c.x + 0.5, c.y, c.z) - SampleLinear(g, c.x - 0.5, c.y, c.z)) * s,
          (SampleLinear(g, c.x, c.y + 0.5, c.z) - SampleLinear(g, c.x, c.y - 0.5, c.z)) * s,
          (SampleLinear(g, c.x, c.y, c.z + 0.5) - SampleLinear(g, c.x, c.y, c.z - 0.5)) * s};
}

/// How `Splat` combines a weighted value with a sample.
enum class SplatOperation { Assign = 0, Add = 1, Subtract = 2, Multiply = 3, Divide = 4 };

/// Spreads `value` over the eight samples round `c` with trilinear weights; `lower` and `upper`
/// leave out the samples of a z layer. Nothing happens to a grid of a single sample on an axis.
template <class T>
void Splat(Grid<T>& g, double value, const Vec3d& c, SplatOperation operation, bool lower = true,
           bool upper = true);

}  // namespace MELDO_GLOBAL
