#include "fluids/advection/row_sampling.h"

#include "fluids/advection/run_lanes.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// out[i] = mean of a[i], b[i], c[i], d[i]; pairs are added first, so that mirrored rows round
/// alike.
SULVA_WIDE_KERNEL void MeanOfFour(const double* a, const double* b, const double* c,
                                  const double* d, i32 n, double* __restrict out) {
  for (i32 i = 0; i < n; ++i) out[i] = 0.25 * ((a[i] + b[i]) + (c[i] + d[i]));
}

struct WeightedRow {
  const RowVectors* row;
  double weight;
};

/// end = start + sum of the weighted rows.
SULVA_WIDE_KERNEL void Advance(const RowVectors& start, const WeightedRow* rows, i32 count, i32 n,
                               RowVectors& end) {
  for (int a = 0; a < 3; ++a) {
    double* __restrict out = end.axis[a].v;
    const double* from = start.axis[a].v;
    const double* first = rows[0].row->axis[a].v;
    for (i32 i = 0; i < n; ++i) out[i] = first[i] * rows[0].weight;
    for (i32 r = 1; r < count; ++r) {
      const double* k = rows[r].row->axis[a].v;
      for (i32 i = 0; i < n; ++i) out[i] += k[i] * rows[r].weight;
    }
    for (i32 i = 0; i < n; ++i) out[i] += from[i];
  }
}
}  // namespace

SULVA_WIDE_KERNEL void FindCorners(const RowVectors& points, const Vec3d& offset,
                                   const VecInt3D& dims, i32 n, RowCorners& out) {
  const double *px = points.axis[0].v, *py = points.axis[1].v, *pz = points.axis[2].v;
  double *__restrict fx = out.fraction[0].v, *__restrict fy = out.fraction[1].v,
                     *__restrict fz = out.fraction[2].v;
  i32* __restrict index = out.index;
  const VecInt3D d = dims;
  const Vec3d o = offset;
  for (i32 i = 0; i < n; ++i) {
    const AxisStencil x = LinearStencil(px[i] - o.x, d.x), y = LinearStencil(py[i] - o.y, d.y),
                      z = LinearStencil(pz[i] - o.z, d.z);
    index[i] = (z.index * d.y + y.index) * d.x + x.index;
    fx[i] = x.fraction;
    fy[i] = y.fraction;
    fz[i] = z.fraction;
  }
}

namespace {

/// The lower corners of points among the faces of each axis, and their places between the faces
/// and the centres along each axis, which the components share.
struct FaceCorners {
  alignas(64) i32 index[3][kRowChunk];
  RowValues face[3], centre[3];
};

SULVA_WIDE_KERNEL void FindFaceCorners(const RowVectors& points, const VecInt3D& cells, i32 n,
                                       FaceCorners& out) {
  const double *px = points.axis[0].v, *py = points.axis[1].v, *pz = points.axis[2].v;
  double *__restrict fx = out.face[0].v, *__restrict fy = out.face[1].v,
                     *__restrict fz = out.face[2].v;
  double *__restrict cx = out.centre[0].v, *__restrict cy = out.centre[1].v,
                     *__restrict cz = out.centre[2].v;
  i32* __restrict u = out.index[0], * __restrict v = out.index[1], * __restrict w = out.index[2];
  const VecInt3D d = cells;
  for (i32 i = 0; i < n; ++i) {
    const AxisStencil x = LinearStencil(px[i], d.x + 1), y = LinearStencil(py[i], d.y + 1),
                      z = LinearStencil(pz[i], d.z + 1);
    const AxisStencil hx = LinearStencil(px[i] - 0.5, d.x), hy = LinearStencil(py[i] - 0.5, d.y),
                      hz = LinearStencil(pz[i] - 0.5, d.z);
    u[i] = (hz.index * d.y + hy.index) * (d.x + 1) + x.index;
    v[i] = (hz.index * (d.y + 1) + y.index) * d.x + hx.index;
    w[i] = (z.index * d.y + hy.index) * d.x + hx.index;
    fx[i] = x.fraction, fy[i] = y.fraction, fz[i] = z.fraction;
    cx[i] = hx.fraction, cy[i] = hy.fraction, cz[i] = hz.fraction;
  }
}

}  // namespace

SULVA_WIDE_KERNEL void FindCells(const RowVectors& points, const VecInt3D& cells, i32 n,
                                 i32* __restrict out) {
  const double *px = points.axis[0].v, *py = points.axis[1].v, *pz = points.axis[2].v;
  const VecInt3D d = cells;
  const auto cellOf = [](double c, i32 size) {
    const double low = c > 0 ? c : 0.0;
    return static_cast<i32>(low < size - 1 ? low : size - 1.0);
  };
  for (i32 i = 0; i < n; ++i)
    out[i] = (cellOf(pz[i], d.z) * d.y + cellOf(py[i], d.y)) * d.x + cellOf(px[i], d.x);
}

namespace {

/// Trilinear samples of points whose lower corners are at p, p + 1, ...
template <class T>
inline __attribute__((always_inline)) void InterpolateLanes(const double* p, i32 ny, i32 nz,
                                                            const double* const fraction[3], i32 i,
                                                            double* out) {
  T x, y, z;
  Load(fraction[0] + i, x);
  Load(fraction[1] + i, y);
  Load(fraction[2] + i, z);
  LerpCorners(p, ny, nz, x, y, z, out + i);
}

template <class T>
inline __attribute__((always_inline)) void LimitLanes(const double* p, i32 ny, i32 nz,
                                                      double* value) {
  T least, most, v;
  FindCornerExtremes(p, ny, nz, least, most);
  Load(value, v);
  v = most < v ? most : v;
  v = least > v ? least : v;
  Store(v, value);
}

SULVA_WIDE_KERNEL void InterpolateRow(const Grid<double>& grid, const i32* index,
                                      const double* const fraction[3], i32 n, double* out) {
  const double* data = grid.mData;
  const i32 ny = grid.mNx, nz = grid.mSlice;
  for (i32 i = 0; i < n;) {
    const double* p = data + index[i];
    if (i + kRun <= n && IsRun(index + i)) {
      InterpolateLanes<RunLanes>(p, ny, nz, fraction, i, out);
      i += kRun;
    } else {
      InterpolateLanes<double>(p, ny, nz, fraction, i++, out);
    }
  }
}

}  // namespace

void Interpolate(const Grid<double>& grid, const RowCorners& corners, i32 n, double* out) {
  const double* const fraction[3] = {corners.fraction[0].v, corners.fraction[1].v,
                                     corners.fraction[2].v};
  InterpolateRow(grid, corners.index, fraction, n, out);
}

SULVA_WIDE_KERNEL void LimitToCorners(const Grid<double>& grid, const RowCorners& corners, i32 n,
                                      double* values) {
  const double* data = grid.mData;
  const i32 ny = grid.mNx, nz = grid.mSlice;
  for (i32 i = 0; i < n;) {
    const double* p = data + corners.index[i];
    if (i + kRun <= n && IsRun(corners.index + i)) {
      LimitLanes<RunLanes>(p, ny, nz, values + i);
      i += kRun;
    } else {
      LimitLanes<double>(p, ny, nz, values + i++);
    }
  }
}

void SampleVelocity(const StaggeredVelocity& velocity, const RowVectors& points, i32 n,
                    RowVectors& out) {
  FaceCorners corners;
  FindFaceCorners(points, velocity.Component(0).Dims() - ExtraOf(kFaceX), n, corners);
  for (i32 a = 0; a < 3; ++a) {
    const double* fraction[3];
    for (i32 b = 0; b < 3; ++b) fraction[b] = (a == b ? corners.face : corners.centre)[b].v;
    InterpolateRow(velocity.Component(a), corners.index[a], fraction, n, out.axis[a].v);
  }
}

void TraceRow(const StaggeredVelocity& velocity, const RowVectors& start, const RowVectors& k1,
              double step, i32 order, i32 n, RowVectors& end) {
  RowVectors k2, k3, k4;
  const auto advance = [&](std::initializer_list<WeightedRow> rows) {
    WeightedRow scaled[4];
    i32 count = 0;
    for (const WeightedRow& r : rows) scaled[count++] = {r.row, r.weight * step};
    Advance(start, scaled, count, n, end);
  };
  const auto sampleAfter = [&](const RowVectors& k, double weight, RowVectors& out) {
    advance({{&k, weight}});
    SampleVelocity(velocity, end, n, out);
  };
  switch (order) {
    case 1: sampleAfter(k1, 1.0, k2); return advance({{&k1, 0.5}, {&k2, 0.5}});
    case 2:
      sampleAfter(k1, 0.5, k2);
      sampleAfter(k2, 0.75, k3);
      return advance({{&k1, 2.0 / 9.0}, {&k2, 1.0 / 3.0}, {&k3, 4.0 / 9.0}});
    case 3:
      sampleAfter(k1, 0.5, k2);
      sampleAfter(k2, 0.5, k3);
      sampleAfter(k3, 1.0, k4);
      return advance({{&k1, 1.0 / 6.0}, {&k2, 1.0 / 3.0}, {&k3, 1.0 / 3.0}, {&k4, 1.0 / 6.0}});
    default: return advance({{&k1, 1.0}});
  }
}

void VelocityAtSamples(const StaggeredVelocity& velocity, i32 kind, i32 first, i32 y, i32 z, i32 n,
                       RowVectors& out) {
  const VecInt3D back = kind >= 0 && kind < 3 ? ExtraOf(kind) : VecInt3D{};
  for (i32 c = 0; c < 3; ++c) {
    const EGrid<double>& g = velocity.Component(c);
    const double* at = g.mData + g.Index(first, y, z);
    double* k = out.axis[c].v;
    if (c == kind) {
      std::copy_n(at, n, k);
      continue;
    }
    const VecInt3D up = ExtraOf(c);
    const i32 next = g.Index(up.x, up.y, up.z), before = g.Index(back.x, back.y, back.z);
    MeanOfFour(at, at + next, at - before, at + next - before, n, k);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
