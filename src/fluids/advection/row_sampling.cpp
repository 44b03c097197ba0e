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

SULVA_WIDE_KERNEL void MeanOfTwo(const double* a, const double* b, i32 n, double* __restrict out) {
  for (i32 i = 0; i < n; ++i) out[i] = 0.5 * (a[i] + b[i]);
}

struct WeightedRow {
  const RowVectors* row;
  double weight;
};

/// end = start + sum of the weighted rows.
template <i32 kCount>
inline __attribute__((always_inline)) void AdvanceBy(const RowVectors& start,
                                                     const WeightedRow* rows, i32 n,
                                                     RowVectors& end) {
  for (int a = 0; a < 3; ++a) {
    double* __restrict out = end.axis[a].v;
    const double* from = start.axis[a].v;
    const double* k[kCount];
    double weight[kCount];
    for (int r = 0; r < kCount; ++r) {
      k[r] = rows[r].row->axis[a].v;
      weight[r] = rows[r].weight;
    }
    for (i32 i = 0; i < n; ++i) {
      double sum = k[0][i] * weight[0];
      for (int r = 1; r < kCount; ++r) sum += k[r][i] * weight[r];
      out[i] = sum + from[i];
    }
  }
}

SULVA_WIDE_KERNEL void Advance(const RowVectors& start, const WeightedRow* rows, i32 count, i32 n,
                               RowVectors& end) {
  switch (count) {
    case 1: return AdvanceBy<1>(start, rows, n, end);
    case 2: return AdvanceBy<2>(start, rows, n, end);
    case 3: return AdvanceBy<3>(start, rows, n, end);
    default: return AdvanceBy<4>(start, rows, n, end);
  }
}
}  // namespace

SULVA_WIDE_KERNEL void SetRow(i32 first, i32 y, i32 z, const Vec3d& offset, i32 n,
                              RowVectors& points) {
  double *__restrict px = points.axis[0].v, *__restrict py = points.axis[1].v,
                     *__restrict pz = points.axis[2].v;
  const Vec3d o = offset;
  for (i32 i = 0; i < n; ++i) {
    px[i] = static_cast<double>(first + i) + o.x;
    py[i] = y + o.y;
    pz[i] = z + o.z;
  }
}

SULVA_WIDE_KERNEL void FindCorners(const RowVectors& points, const Vec3d& offset,
                                   const VecInt3D& dims, i32 n, i32* __restrict index,
                                   double* const fraction[3]) {
  const double *px = points.axis[0].v, *py = points.axis[1].v, *pz = points.axis[2].v;
  double* __restrict fx = fraction[0], * __restrict fy = fraction[1], * __restrict fz = fraction[2];
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

void FindCorners(const RowVectors& points, const Vec3d& offset, const VecInt3D& dims, i32 n,
                 RowCorners& out) {
  double* const fraction[3] = {out.fraction[0].v, out.fraction[1].v, out.fraction[2].v};
  FindCorners(points, offset, dims, n, out.index, fraction);
}

namespace {

/// The lower corners of points among the faces of each axis, and their places between the faces
/// and the centres along each axis, which the components share.
struct FaceCorners {
  alignas(64) i32 index[3][kRowChunk];
  RowValues face[3], centre[3];
};

/// Of the points start + step k.
SULVA_WIDE_KERNEL void FindFaceCorners(const RowVectors& start, const RowVectors& k, double step,
                                       const VecInt3D& cells, i32 n, FaceCorners& out) {
  const double *px = start.axis[0].v, *py = start.axis[1].v, *pz = start.axis[2].v;
  const double *kx = k.axis[0].v, *ky = k.axis[1].v, *kz = k.axis[2].v;
  double *__restrict fx = out.face[0].v, *__restrict fy = out.face[1].v,
                     *__restrict fz = out.face[2].v;
  double *__restrict cx = out.centre[0].v, *__restrict cy = out.centre[1].v,
                     *__restrict cz = out.centre[2].v;
  i32* __restrict u = out.index[0], * __restrict v = out.index[1], * __restrict w = out.index[2];
  const VecInt3D d = cells;
  for (i32 i = 0; i < n; ++i) {
    const double ex = kx[i] * step + px[i], ey = ky[i] * step + py[i], ez = kz[i] * step + pz[i];
    const AxisStencil x = LinearStencil(ex, d.x + 1), y = LinearStencil(ey, d.y + 1),
                      z = LinearStencil(ez, d.z + 1);
    const AxisStencil hx = LinearStencil(ex - 0.5, d.x), hy = LinearStencil(ey - 0.5, d.y),
                      hz = LinearStencil(ez - 0.5, d.z);
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

SULVA_WIDE_KERNEL void InterpolateRow(const Grid<double>& grid, const i32* index,
                                      const double* const fraction[3], i32 n,
                                      double* __restrict out) {
  const double *fx = fraction[0], *fy = fraction[1], *fz = fraction[2];
  const std::ptrdiff_t ny = grid.mNx, nz = grid.mSlice;
  ForEachRun(
      grid.mData, index, n,
      [&](i32 i, const auto& from) __attribute__((always_inline)) {
        RunLanes x, y, z;
        Load(fx + i, x);
        Load(fy + i, y);
        Load(fz + i, z);
        LerpCorners(from, ny, nz, x, y, z, out + i);
      },
      [&](i32 i, const auto& from) __attribute__((always_inline)) {
        LerpCorners(from, ny, nz, fx[i], fy[i], fz[i], out + i);
      });
}

}  // namespace

void Interpolate(const Grid<double>& grid, const RowCorners& corners, i32 n, double* out) {
  const double* const fraction[3] = {corners.fraction[0].v, corners.fraction[1].v,
                                     corners.fraction[2].v};
  InterpolateRow(grid, corners.index, fraction, n, out);
}

SULVA_WIDE_KERNEL void LimitToCorners(const Grid<double>& grid, const RowCorners& corners, i32 n,
                                      double* values) {
  const std::ptrdiff_t ny = grid.mNx, nz = grid.mSlice;
  const auto limit = [&]<class T>(const auto& from, double* at, T v)
      __attribute__((always_inline)) {
    T least, most;
    FindCornerExtremes(from, ny, nz, least, most);
    Load(at, v);
    v = most < v ? most : v;
    v = least > v ? least : v;
    Store(v, at);
  };
  ForEachRun(
      grid.mData, corners.index, n,
      [&](i32 i, const auto& from)
          __attribute__((always_inline)) { limit(from, values + i, RunLanes{}); },
      [&](i32 i, const auto& from)
          __attribute__((always_inline)) { limit(from, values + i, 0.0); });
}

void SampleVelocity(const StaggeredVelocity& velocity, const RowVectors& start, const RowVectors& k,
                    double step, i32 n, RowVectors& out) {
  FaceCorners corners;
  FindFaceCorners(start, k, step, velocity.Component(0).Dims() - ExtraOf(kFaceX), n, corners);
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
    SampleVelocity(velocity, start, k, weight * step, n, out);
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
    if (before == 0)
      MeanOfTwo(at, at + next, n, k);
    else
      MeanOfFour(at, at + next, at - before, at + next - before, n, k);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
