// Sampling at many points at once: the arithmetic of indices runs in vector registers, the loads of
// corners follow in a loop of their own.
#pragma once
#include "fluids/fields/trace_path.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Points that are worked on together.
inline constexpr i32 kRowChunk = 64;

/// A value per point.
struct alignas(64) RowValues {
  double v[kRowChunk];
};
/// Three components of a value per point: positions in cells, or velocities.
struct RowVectors {
  RowValues axis[3];

  Vec3d At(i32 i) const { return {axis[0].v[i], axis[1].v[i], axis[2].v[i]}; }
  void Set(i32 i, const Vec3d& p) {
    for (int a = 0; a < 3; ++a) axis[a].v[i] = p[a];
  }
};
/// The lower corner of a point's eight samples and its place between them.
struct RowCorners {
  alignas(64) i32 index[kRowChunk];
  RowValues fraction[3];
};

/// The samples first .. first + n - 1 of a row of a grid whose kind has an offset.
void SetRow(i32 first, i32 y, i32 z, const Vec3d& offset, i32 n, RowVectors& points);

/// Corners of the samples of a grid of `dims` samples round points given in cells; `offset` is that
/// of the grid's kind. Points outside count as on the border, as in `LinearStencil`.
void FindCorners(const RowVectors& points, const Vec3d& offset, const VecInt3D& dims, i32 n,
                 RowCorners& out);
void FindCorners(const RowVectors& points, const Vec3d& offset, const VecInt3D& dims, i32 n,
                 i32* index, double* const fraction[3]);
/// Index of the cell that holds each point, among `cells` cells; points outside count as in the
/// outermost layer.
void FindCells(const RowVectors& points, const VecInt3D& cells, i32 n, i32* out);

/// Trilinear samples.
void Interpolate(const Grid<double>& grid, const RowCorners& corners, i32 n, double* out);
/// Limits `values` to the eight samples round each point.
void LimitToCorners(const Grid<double>& grid, const RowCorners& corners, i32 n, double* values);

/// Velocities at the points start + step k.
void SampleVelocity(const StaggeredVelocity& velocity, const RowVectors& start, const RowVectors& k,
                    double step, i32 n, RowVectors& out);

/// `TracePath` for many points; `k1` holds the velocities at `start`.
void TraceRow(const StaggeredVelocity& velocity, const RowVectors& start, const RowVectors& k1,
              double step, i32 order, i32 n, RowVectors& end);

/// Velocities at the samples first .. first + n - 1 of a row of a grid of `kind`: each component
/// the mean of the stored values beside the sample.
void VelocityAtSamples(const StaggeredVelocity& velocity, i32 kind, i32 first, i32 y, i32 z, i32 n,
                       RowVectors& out);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
