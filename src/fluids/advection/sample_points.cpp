#include "fluids/advection/sample_points.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Samples where walls part the corners: the trilinear weights of those that count, to sum to 1.
void SampleParted(const Grid<double>& g, const SamplePoints& at, double* out) {
  for (i32 i = 0; i < at.n; ++i) {
    if (!at.IsParted(i)) continue;
    double sum = 0, weights = 0;
    for (i32 k = 0; k < 8; ++k) {
      if (!(at.reach[i] >> k & 1)) continue;
      double w = 1;
      for (i32 a = 0; a < 3; ++a) {
        const double f = at.corners.fraction[a].v[i];
        w *= k & 4 >> a ? f : 1 - f;
      }
      sum += w * g[at.corners.index[i] + (k >> 2) + (k >> 1 & 1) * g.mNx + (k & 1) * g.mSlice];
      weights += w;
    }
    out[i] = sum / weights;
  }
}

/// The corners of a point that have a weight worth naming.
u8 CornersInUse(const RowCorners& corners, i32 i) {
  constexpr double kHair = 1e-5;
  u32 used = 0xff;
  constexpr u32 kHigh[3] = {0xf0, 0xcc, 0xaa};
  for (i32 a = 0; a < 3; ++a) {
    const double f = corners.fraction[a].v[i];
    if (f < kHair) used &= ~kHigh[a];
    if (f > 1 - kHair) used &= kHigh[a];
  }
  return static_cast<u8>(used);
}

void SampleFreely(i32 sampling, const Grid<double>& g, const Grid<double>* spline,
                  const SamplePoints& at, double* out) {
  const Vec3d offset = OffsetOf(at.kind);
  switch (static_cast<AdvectionSampling>(sampling)) {
    case AdvectionSampling::Linear: return Interpolate(g, at.corners, at.n, out);
    case AdvectionSampling::BSpline:
      for (i32 i = 0; i < at.n; ++i)
        out[i] = Sample(*spline, at.points->At(i) - offset + Vec3d{0.5, 0.5, 0.5}, SAMPLE_BSPLINE);
      // It passes through the samples, and swings beyond them at edges.
      return LimitToCorners(g, at.corners, at.n, out);
    case AdvectionSampling::Monotonic:
      for (i32 i = 0; i < at.n; ++i) {
        const Vec3d c = at.points->At(i) - offset;
        const MonotonicStencil stencil = MakeMonotonicStencil(c, g.Dims());
        out[i] = Sample(g, c, SAMPLE_MONOTONIC, &stencil);
      }
  }
}

}  // namespace

void SamplePoints::Find(const Grid<double>& shape, const ThinFaces* thin, const RowVectors& at,
                        i32 count) {
  points = &at;
  n = count;
  kind = shape.mKind;
  FindCorners(at, OffsetOf(kind), shape.Dims(), n, corners);
  isParted = false;
  if (!thin) return;
  for (i32 i = 0; i < n; ++i) {
    reach[i] = kind <= kFaceZ ? thin->ReachFaces(at.At(i), kind) : thin->Reach(at.At(i));
    // Whether walls part corners of no weight is for rounding to say.
    const u8 used = CornersInUse(corners, i);
    if ((reach[i] & used) == used) reach[i] = 0xff;
    isParted |= reach[i] != 0xff;
  }
}

void SampleRow(i32 sampling, const Grid<double>& g, const Grid<double>* spline,
               const SamplePoints& at, double* out) {
  SampleFreely(sampling, g, spline, at, out);
  if (at.isParted) SampleParted(g, at, out);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
