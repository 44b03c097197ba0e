#include "fluids/operators/advection_kernel.h"

#include <cstring>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kPushOutMargin = 0.001;

/// The velocity at the samples of a row, by component: each the mean of four stored values, which
/// coincide where fewer are needed.
class RowVelocity {
 public:
  static constexpr i32 kChunk = 64;

  RowVelocity(const StaggeredVelocity& velocity, i32 kind, i32 y, i32 z) {
    const VecInt3D back = kind < 3 ? ExtraOf(kind) : VecInt3D{};
    for (i32 c = 0; c < 3; ++c) {
      const EGrid<double>& g = velocity.Component(c);
      const double* at = g.mData + g.Index(0, y, z);
      if (c == kind) {
        for (auto& tap : mTaps[c]) tap = at;
        continue;
      }
      const VecInt3D up = ExtraOf(c);
      const i32 next = g.Index(up.x, up.y, up.z), before = g.Index(back.x, back.y, back.z);
      mTaps[c][0] = at;
      mTaps[c][1] = at + next;
      mTaps[c][2] = at - before;
      mTaps[c][3] = at + next - before;
    }
  }

  /// Fills `k` for samples first .. first + n - 1.
  void Load(i32 first, i32 n) {
    for (i32 c = 0; c < 3; ++c) {
      const double *a = mTaps[c][0] + first, *b = mTaps[c][1] + first, *d = mTaps[c][2] + first,
                   *e = mTaps[c][3] + first;
      double* out = k[c];
      for (i32 i = 0; i < n; ++i) out[i] = 0.25 * ((a[i] + b[i]) + (d[i] + e[i]));
    }
  }
  Vec3d At(i32 i) const { return {k[0][i], k[1][i], k[2][i]}; }

  double k[3][kChunk];

 private:
  const double* mTaps[3][4];
};

/// Solid tests of one target; both skip the level set where the cell is known to be clear.
class Solids {
 public:
  Solids(const AdvectionData& data)
      : mSource(*data.source),
        mBoundary(*data.boundary),
        mCells(data.source->mLayout.dims),
        mCellSize(data.source->mLayout.cellSize) {
    if (data.clear && data.clear->mData && data.clear->Dims() == mCells) mClear = data.clear->mData;
  }

  /// None of the samples (x .. x + n - 1, y, z) is solid; false means: ask for each.
  bool IsRowClear(i32 x, i32 n, i32 y, i32 z) const {
    return mClear && x + n <= mCells.x && y < mCells.y && z < mCells.z &&
           !std::memchr(mClear + Index(x, y, z), 0, n);
  }
  bool IsSolid(i32 x, i32 y, i32 z) const {
    return mBoundary.IsSolid(Vec3d{double(x), double(y), double(z)} + OffsetOf(mSource.mKind),
                             mSource, false);
  }
  /// Moves `p` (cells) out of solids and into the domain; whether it moved.
  bool PushOut(Vec3d& p) const {
    if (mClear &&
        mClear[Index(CellOf(p.x, mCells.x), CellOf(p.y, mCells.y), CellOf(p.z, mCells.z))])
      return false;
    Vec3d relative = p * mCellSize;
    if (!mBoundary.PushOut(relative, true, kPushOutMargin)) return false;
    p = relative / mCellSize;
    return true;
  }

 private:
  i32 Index(i32 x, i32 y, i32 z) const { return (mCells.y * z + y) * mCells.x + x; }
  static i32 CellOf(double c, i32 n) {
    const double low = c > 0 ? c : 0.0;
    return static_cast<i32>(low < n - 1 ? low : n - 1.0);
  }

  const EGrid<double>& mSource;
  const GridBoundary& mBoundary;
  VecInt3D mCells;
  double mCellSize;
  const u8* mClear = nullptr;
};

template <AdvectionSampling Mode>
inline double SampleAt(const Grid<double>& g, const Vec3d& c) {
  if constexpr (Mode == AdvectionSampling::Linear) {
    return SampleLinear(g, c);
  } else if constexpr (Mode == AdvectionSampling::BSpline) {
    return Sample(g, c + Vec3d{0.5, 0.5, 0.5}, SAMPLE_BSPLINE);
  } else {
    const MonotonicStencil stencil = MakeMonotonicStencil(c, g.Dims());
    return Sample(g, c, SAMPLE_MONOTONIC, &stencil);
  }
}

/// Limits `value` to the eight samples round `c`.
inline double Limit(const Grid<double>& g, const Vec3d& c, double value) {
  const AxisStencil sx = LinearStencil(c.x, g.mNx), sy = LinearStencil(c.y, g.mNy),
                    sz = LinearStencil(c.z, g.mNz);
  const double* p = g.mData + g.Index(sx.index, sy.index, sz.index);
  const i32 ny = g.mNx, nz = g.mSlice;
  const auto low = [](double a, double b) { return a < b ? a : b; };
  const auto high = [](double a, double b) { return a > b ? a : b; };
  const double least = low(low(low(p[0], p[1]), low(p[ny], p[ny + 1])),
                           low(low(p[nz], p[nz + 1]), low(p[nz + ny], p[nz + ny + 1])));
  const double most = high(high(high(p[0], p[1]), high(p[ny], p[ny + 1])),
                           high(high(p[nz], p[nz + 1]), high(p[nz + ny], p[nz + ny + 1])));
  return value < least ? least : value > most ? most : value;
}

/// Calls f(index, start, velocity at start) for every sample of the box that isn't solid, and
/// solid(index) for the others.
template <class F, class S>
inline void ForEachOpenSample(const AdvectionData& data, const Solids& solids, const CellBox& box,
                              F&& f, S&& solid) {
  const EGrid<double>& source = *data.source;
  const Vec3d offset = OffsetOf(source.mKind);
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      RowVelocity row(data.velocity, source.mKind, y, z);
      const i32 index = source.Index(0, y, z);
      for (i32 first = box.min.x; first < box.max.x; first += RowVelocity::kChunk) {
        const i32 n = std::min(RowVelocity::kChunk, box.max.x - first);
        row.Load(first, n);
        const bool clear = solids.IsRowClear(first, n, y, z);
        for (i32 i = 0; i < n; ++i) {
          const i32 x = first + i;
          if (!clear && solids.IsSolid(x, y, z)) {
            solid(index + x);
            continue;
          }
          f(index + x, Vec3d{x + offset.x, y + offset.y, z + offset.z}, row.At(i));
        }
      }
    }
}

template <int Order, AdvectionSampling Mode, class S>
void Trace(const AdvectionData& data, const CellBox& box, double* out, S&& solid) {
  const Solids solids(data);
  const EGrid<double>& source = *data.source;
  const Vec3d offset = OffsetOf(source.mKind);
  const double step = -data.step / source.mLayout.cellSize;
  ForEachOpenSample(
      data, solids, box,
      [&](i32 index, const Vec3d& start, const Vec3d& k1) {
        Vec3d p = TracePath<Order>(data.velocity, start, k1, step);
        solids.PushOut(p);
        out[index] = SampleAt<Mode>(source, p - offset);
      },
      solid);
}

template <int Order, AdvectionSampling Mode>
void CorrectTraced(const AdvectionData& data, const CellBox& box) {
  const Solids solids(data);
  const EGrid<double>& source = *data.source;
  const Grid<double>& predicted = *data.predicted;
  double* out = data.destination->mData;
  const Vec3d offset = OffsetOf(source.mKind);
  const double step = data.step / source.mLayout.cellSize;
  const double half = 0.5 * data.strength;
  ForEachOpenSample(
      data, solids, box,
      [&](i32 index, const Vec3d& start, const Vec3d& k1) {
        Vec3d from = TracePath<Order>(data.velocity, start, k1, -step);
        if (solids.PushOut(from)) {
          out[index] = predicted[index];
          return;
        }
        Vec3d to = TracePath<Order>(data.velocity, start, k1, step);
        solids.PushOut(to);
        const double returned = SampleAt<Mode>(predicted, to - offset);
        const double value = predicted[index] + half * (source[index] - returned);
        out[index] = Limit(source, from - offset, value);
      },
      [](i32) {});
}

/// Calls f.template operator()<Order, Mode>() for the order and sampling of `data`.
template <class F>
void Dispatch(const AdvectionData& data, F&& f) {
  const auto withOrder = [&]<AdvectionSampling Mode>() {
    switch (data.order) {
      case 1: return f.template operator()<1, Mode>();
      case 2: return f.template operator()<2, Mode>();
      case 3: return f.template operator()<3, Mode>();
      default: return f.template operator()<0, Mode>();
    }
  };
  switch (static_cast<AdvectionSampling>(data.sampling)) {
    case AdvectionSampling::Linear:
      return withOrder.template operator()<AdvectionSampling::Linear>();
    case AdvectionSampling::BSpline:
      return withOrder.template operator()<AdvectionSampling::BSpline>();
    case AdvectionSampling::Monotonic:
      return withOrder.template operator()<AdvectionSampling::Monotonic>();
  }
}

/// Copies the part of the outermost layer of samples that a box of inner samples leaves out: whole
/// rows beside it, and the ends of its own rows.
void CopyBorder(const AdvectionData& data, const CellBox& box) {
  const Grid<double>& source = *data.source;
  double* out = data.predicted->mData;
  const bool first = box.min.z == 1, last = box.max.z == source.mNz - 1;
  for (i32 z = box.min.z - first; z < box.max.z + last; ++z)
    for (i32 y = 0; y < source.mNy; ++y) {
      const i32 row = source.Index(0, y, z), end = source.mNx - 1;
      if (z == 0 || z == source.mNz - 1 || y == 0 || y == source.mNy - 1) {
        std::copy_n(source.mData + row, source.mNx, out + row);
      } else {
        out[row] = source[row];
        out[row + end] = source[row + end];
      }
    }
}

}  // namespace

void AdvectBackward(const AdvectionData& data, const CellBox& box) {
  Dispatch(data, [&]<int Order, AdvectionSampling Mode>() {
    Trace<Order, Mode>(data, box, data.destination->mData, [](i32) {});
  });
}

void Predict(const AdvectionData& data, const CellBox& box) {
  CopyBorder(data, box);
  const double* source = data.source->mData;
  double* out = data.predicted->mData;
  Dispatch(data, [&]<int Order, AdvectionSampling Mode>() {
    Trace<Order, Mode>(data, box, out, [=](i32 index) { out[index] = source[index]; });
  });
}

void Correct(const AdvectionData& data, const CellBox& box) {
  Dispatch(data,
           [&]<int Order, AdvectionSampling Mode>() { CorrectTraced<Order, Mode>(data, box); });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
