#include "fluids/advection/row_sampling.h"

#include <cstring>

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

/// Points whose corners lie side by side are taken together: a smooth flow leaves neighbours
/// together, and what they load lies in a row.
constexpr i32 kRun = 4;
typedef double RunLanes __attribute__((vector_size(kRun * sizeof(double))));

inline bool IsRun(const i32* index) {
  return index[1] - index[0] == 1 && index[2] - index[0] == 2 && index[3] - index[0] == 3;
}

/// value = the numbers from `p` on, one per lane. By reference, since lanes that the baseline has
/// no registers for can't be returned.
template <class T>
inline __attribute__((always_inline)) void Load(const double* p, T& value) {
  std::memcpy(&value, p, sizeof(T));
}

/// value += (the numbers from `p` on - value) * t.
template <class T>
inline __attribute__((always_inline)) void LerpTo(const double* p, const T& t, T& value) {
  T other;
  Load(p, other);
  value += (other - value) * t;
}

/// Trilinear samples of points whose lower corners are at p, p + 1, ...
template <class T>
inline __attribute__((always_inline)) void InterpolateLanes(const double* p, i32 ny, i32 nz,
                                                            const RowCorners& corners, i32 i,
                                                            double* out) {
  const double* q = p + nz;
  T x, y, z, low, lowY, high, highY;
  Load(corners.fraction[0].v + i, x);
  Load(corners.fraction[1].v + i, y);
  Load(corners.fraction[2].v + i, z);
  Load(p, low);
  Load(p + ny, lowY);
  Load(q, high);
  Load(q + ny, highY);
  LerpTo(p + 1, x, low);
  LerpTo(p + ny + 1, x, lowY);
  LerpTo(q + 1, x, high);
  LerpTo(q + ny + 1, x, highY);
  low += (lowY - low) * y;
  high += (highY - high) * y;
  low += (high - low) * z;
  std::memcpy(out + i, &low, sizeof(T));
}

template <class T>
inline __attribute__((always_inline)) void LimitLanes(const double* p, i32 ny, i32 nz,
                                                      double* value) {
  T least, most, v;
  Load(p, least);
  most = least;
  for (const i32 corner : {1, ny, ny + 1, nz, nz + 1, nz + ny, nz + ny + 1}) {
    Load(p + corner, v);
    least = v < least ? v : least;
    most = v > most ? v : most;
  }
  Load(value, v);
  v = most < v ? most : v;
  v = least > v ? least : v;
  std::memcpy(value, &v, sizeof(T));
}

}  // namespace

SULVA_WIDE_KERNEL void Interpolate(const Grid<double>& grid, const RowCorners& corners, i32 n,
                                   double* out) {
  const double* data = grid.mData;
  const i32 ny = grid.mNx, nz = grid.mSlice;
  for (i32 i = 0; i < n;) {
    const double* p = data + corners.index[i];
    if (i + kRun <= n && IsRun(corners.index + i)) {
      InterpolateLanes<RunLanes>(p, ny, nz, corners, i, out);
      i += kRun;
    } else {
      InterpolateLanes<double>(p, ny, nz, corners, i++, out);
    }
  }
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
  RowCorners corners;
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>& g = velocity.Component(a);
    FindCorners(points, OffsetOf(a), g.Dims(), n, corners);
    Interpolate(g, corners, n, out.axis[a].v);
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
