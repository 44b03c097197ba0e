#include "fluids/advection/advection_kernel.h"

#include <algorithm>
#include <cmath>

#include "fluids/advection/sample_points.h"
#include "fluids/flow/solid_cells.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Of the correction, what it may be off by to keep a total. More is no error of a step: the flow
// itself doesn't keep it, as one that is set and crosses walls.
constexpr double kTrusted = 0.25;

/// Solid tests of one target; both skip the level set where the flags of the cell allow it.
class Solids {
 public:
  explicit Solids(const AdvectionData& data)
      : mSource(data.Shape()),
        mBoundary(*data.boundary),
        mCells(mSource.mLayout.dims),
        mCellSize(mSource.mLayout.cellSize),
        mSides(data.sides) {
    const Grid<u8>* flags = data.solidCells;
    if (flags && flags->mData && flags->Dims() == mCells) mFlags = flags->mData;
    if (mSource.mKind != kFaceX && mSource.mKind != kFaceY && mSource.mKind != kFaceZ)
      mOpen |= SolidCells::kOpenCentre;
    if (data.open && data.open->Dims() == mSource.Dims()) mFaces = data.open->mData;
  }

  /// Marks which of the samples first .. first + n - 1 of a row are solid; false when none is.
  bool FindSolid(i32 first, i32 y, i32 z, i32 n, bool* solid) const {
    if (mFaces) return FindClosed(mFaces + mSource.Index(first, y, z), n, solid);
    const Vec3d offset = OffsetOf(mSource.mKind);
    const bool known = mFlags && first + n <= mCells.x && y < mCells.y && z < mCells.z;
    const u8* flags = known ? mFlags + (mCells.y * z + y) * mCells.x + first : nullptr;
    i32 open = 0;
    for (i32 i = 0; known && i < n; ++i) open += (flags[i] & mOpen) != 0;
    if (open == n) return false;
    bool any = false;
    for (i32 i = 0; i < n; ++i) {
      solid[i] = !(known && (flags[i] & mOpen)) &&
                 mBoundary.IsSolid(Vec3d{double(first + i), double(y), double(z)} + offset, mSource,
                                   false);
      any |= solid[i];
    }
    return any;
  }
  /// Moves points (cells) out of solids and back through the sides, and marks those that it moved.
  void PushOut(RowVectors& points, i32 n, bool* moved) const {
    i32 cell[kRowChunk];
    if (mFlags) FindCells(points, mCells, n, cell);
    for (i32 i = 0; i < n; ++i) {
      moved[i] = false;
      if (mFlags && (mFlags[cell[i]] & SolidCells::kNoPushOut)) continue;
      Vec3d relative = points.At(i) * mCellSize;
      if (!mBoundary.PushOut(relative, true, kPushOutMargin, mSides)) continue;
      moved[i] = true;
      points.Set(i, relative / mCellSize);
    }
  }

 private:
  static bool FindClosed(const float* open, i32 n, bool* solid) {
    bool any = false;
    for (i32 i = 0; i < n; ++i) any |= solid[i] = !(open[i] > 0);
    return any;
  }

  const EGrid<double>& mSource;
  const GridBoundary& mBoundary;
  VecInt3D mCells;
  double mCellSize;
  u8 mSides;
  const u8* mFlags = nullptr;
  const float* mFaces = nullptr;
  u8 mOpen = SolidCells::kNoSolidSample;  ///< flags that make a sample of the target's kind open
};

/// Ends paths at thin walls.
void StopAtWalls(const AdvectionData& data, const RowVectors& start, i32 n, RowVectors& ends) {
  if (!data.thin) return;
  // A face beside a filled cell whose paths ended there would never change but by pressure.
  const auto cells =
      data.Shape().mKind <= kFaceZ ? ThinFaces::kFilledToo : ThinFaces::kWithoutFilled;
  for (i32 i = 0; i < n; ++i) ends.Set(i, data.thin->Stop(start.At(i), ends.At(i), cells));
}

/// Marks points farther out through an open side than the outermost samples: nobody knows what is
/// there.
void MarkBeyondSides(const AdvectionData& data, const RowVectors& points, i32 n, bool* beyond) {
  if (data.sides == kWallsAll) return;
  const Vec3d offset = OffsetOf(data.Shape().mKind);
  const VecInt3D size = data.Shape().Dims();
  for (i32 a = 0; a < 3; ++a) {
    const double low = offset[a], high = offset[a] + size[a] - 1;
    const bool opensLow = !(data.sides & kLowWall[a]), opensHigh = !(data.sides & kHighWall[a]);
    const double* p = points.axis[a].v;
    for (i32 i = 0; i < n; ++i)
      beyond[i] |= (opensLow && p[i] < low) || (opensHigh && p[i] > high);
  }
}

/// Some samples of a row with the velocity there, and where the paths that end there start.
struct Chunk {
  i32 index;  ///< of the first sample
  i32 z;
  i32 n;
  RowVectors start, k1, from;
  bool solid[kRowChunk];
  bool anySolid;
  bool bent[kRowChunk];  ///< a solid or a side moved `from`, or paths lead where nobody knows
};

/// Calls f(chunk) for all samples of the box, with paths traced back.
template <class F>
void ForEachChunk(const AdvectionData& data, const Solids& solids, const CellBox& box, F&& f) {
  const EGrid<double>& shape = data.Shape();
  const Vec3d offset = OffsetOf(shape.mKind);
  const double step = -data.step / shape.mLayout.cellSize;
  Chunk c;
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y)
      for (i32 x = box.min.x; x < box.max.x; x += kRowChunk) {
        c.n = std::min(kRowChunk, box.max.x - x);
        c.index = shape.Index(x, y, z);
        c.z = z;
        c.anySolid = solids.FindSolid(x, y, z, c.n, c.solid);
        for (i32 i = 0; i < c.n; ++i)
          c.start.Set(i, {x + i + offset.x, y + offset.y, z + offset.z});
        VelocityAtSamples(data.velocity, shape.mKind, x, y, z, c.n, c.k1);
        TraceRow(data.velocity, c.start, c.k1, step, data.order, c.n, c.from);
        solids.PushOut(c.from, c.n, c.bent);
        StopAtWalls(data, c.start, c.n, c.from);
        f(c);
      }
}

/// Writes the values of a chunk; a solid sample takes what the source holds there.
void Store(const Chunk& c, const double* values, const Grid<double>& source, double* out) {
  double* row = out + c.index;
  if (!c.anySolid) {
    std::copy_n(values, c.n, row);
    return;
  }
  for (i32 i = 0; i < c.n; ++i) row[i] = c.solid[i] ? source[c.index + i] : values[i];
}

/// How much thinner what moved along the paths of a chunk gets. A parcel grows by the mean outflow
/// at both ends; with paths of one velocity alone by that of where this was looked up, for it is
/// the share by which such paths part.
void FindThinning(const AdvectionData& data, const Chunk& c, const SamplePoints& from,
                  double* factors) {
  const double* end = data.outflow->mData + c.index;
  if (data.order == 0) {
    for (i32 i = 0; i < c.n; ++i) factors[i] = std::exp(-data.step * end[i]);
    return;
  }
  RowValues start;
  Interpolate(*data.outflow, from.corners, c.n, start.v);
  for (i32 i = 0; i < c.n; ++i) factors[i] = std::exp(-0.5 * data.step * (start.v[i] + end[i]));
}

/// The sum of at(i), in four running sums.
template <class F>
double SumOf(i32 n, F&& at) {
  double sum[4] = {};
  i32 i = 0;
  for (; i + 4 <= n; i += 4)
    for (i32 lane = 0; lane < 4; ++lane) sum[lane] += at(i + lane);
  for (; i < n; ++i) sum[0] += at(i);
  return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

/// Limits the corrected values of a chunk, which take the place of `values`: at first those at the
/// ends of paths back from where the correction is due. `thinning` may be null.
void CorrectRow(const AdvectedField& field, const Chunk& c, const SamplePoints& from,
                const SamplePoints& to, const double* thinning, double* values) {
  const double* predicted = field.predicted->mData + c.index;
  const double* before = field.source->mData + c.index;
  const double half = 0.5 * field.strength;
  RowValues whole;
  for (i32 i = 0; i < c.n; ++i) {
    whole.v[i] = half * (before[i] - values[i]);
    values[i] = predicted[i] + whole.v[i];
  }
  LimitToCorners(*field.source, from.corners, c.n, values);
  for (i32 i = 0; i < c.n; ++i)
    if (c.bent[i] || from.IsParted(i) || to.IsParted(i)) {
      values[i] = predicted[i];
      whole.v[i] = 0;
    }
  if (!field.corrections) return;
  RowValues left;
  for (i32 i = 0; i < c.n; ++i) left.v[i] = values[i] - predicted[i];
  for (i32 i = 0; c.anySolid && i < c.n; ++i)
    if (c.solid[i]) whole.v[i] = left.v[i] = 0;
  for (i32 i = 0; thinning && i < c.n; ++i) {
    whole.v[i] *= thinning[i];
    left.v[i] *= thinning[i];
  }
  Correction& sums = field.corrections[c.z];
  RowValues lost;
  for (i32 i = 0; i < c.n; ++i)
    lost.v[i] = before[i] - predicted[i] * (thinning ? thinning[i] : 1.0);
  for (i32 i = 0; c.anySolid && i < c.n; ++i)
    if (c.solid[i]) lost.v[i] = 0;
  sums.lost += SumOf(c.n, [&](i32 i) { return lost.v[i]; });
  sums.whole += SumOf(c.n, [&](i32 i) { return whole.v[i]; });
  sums.up += SumOf(c.n, [&](i32 i) { return left.v[i] > 0 ? left.v[i] : 0.0; });
  sums.down += SumOf(c.n, [&](i32 i) { return left.v[i] > 0 ? 0.0 : left.v[i]; });
}

bool HasSampling(const AdvectionData& data) { return data.sampling >= 0 && data.sampling <= 2; }

/// Copies the part of the outermost layer of samples that a box of inner samples leaves out: whole
/// rows beside it, and the ends of its own rows.
void CopyBorder(const AdvectedField& field, const CellBox& box) {
  const Grid<double>& source = *field.source;
  double* out = field.predicted->mData;
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

void FindOutflow(const StaggeredVelocity& velocity, const std::array<const EGrid<float>*, 3>& open,
                 i32 threads, Grid<double>& outflow) {
  const double perCell = 1 / velocity.Component(0).mLayout.simCell.x;
  ForEachBlock(outflow.mNz, threads, [&](i32 z) {
    double* layer = outflow.mData + z * outflow.mSlice;
    std::fill_n(layer, outflow.mSlice, 0.0);
    if (z == 0 || z == outflow.mNz - 1) return;
    for (i32 a = 0; a < 3; ++a) {
      const EGrid<double>& u = velocity.Component(a);
      const VecInt3D up = ExtraOf(a);
      const i32 next = u.Index(up.x, up.y, up.z);
      const auto flow = [&](i32 face) {
        return open[a] ? u.mData[face] * double{open[a]->mData[face]} : u.mData[face];
      };
      for (i32 y = 1; y < outflow.mNy - 1; ++y)
        for (i32 x = 1; x < outflow.mNx - 1; ++x) {
          const i32 face = u.Index(x, y, z);
          layer[y * outflow.mNx + x] += (flow(face + next) - flow(face)) * perCell;
        }
    }
  });
}

void AdvectBackward(const AdvectionData& data, const CellBox& box) {
  if (!HasSampling(data)) return;
  RowValues values, thinning;
  SamplePoints from;
  ForEachChunk(data, Solids(data), box, [&](const Chunk& c) {
    from.Find(data.Shape(), data.thin, c.from, c.n);
    for (const AdvectedField& field : data.fields) {
      SampleRow(data.sampling, *field.source, field.spline, from, values.v);
      if (data.outflow) {
        if (&field == &data.fields.front()) FindThinning(data, c, from, thinning.v);
        for (i32 i = 0; i < c.n; ++i) values.v[i] *= thinning.v[i];
      }
      Store(c, values.v, *field.source, field.destination->mData);
    }
  });
}

void Predict(const AdvectionData& data, const CellBox& box) {
  if (!HasSampling(data)) return;
  for (const AdvectedField& field : data.fields) CopyBorder(field, box);
  RowValues values;
  SamplePoints from;
  ForEachChunk(data, Solids(data), box, [&](const Chunk& c) {
    from.Find(data.Shape(), data.thin, c.from, c.n);
    for (const AdvectedField& field : data.fields) {
      SampleRow(data.sampling, *field.source, field.spline, from, values.v);
      Store(c, values.v, *field.source, field.predicted->mData);
    }
  });
}

void Correct(const AdvectionData& data, const CellBox& box) {
  if (!HasSampling(data)) return;
  const Solids solids(data);
  const double step = data.step / data.Shape().mLayout.cellSize;
  RowVectors end;
  RowValues values;
  SamplePoints from, to;
  bool bent[kRowChunk];
  ForEachChunk(data, solids, box, [&](Chunk& c) {
    TraceRow(data.velocity, c.start, c.k1, step, data.order, c.n, end);
    solids.PushOut(end, c.n, bent);
    StopAtWalls(data, c.start, c.n, end);
    MarkBeyondSides(data, end, c.n, c.bent);
    from.Find(data.Shape(), data.thin, c.from, c.n);
    to.Find(data.Shape(), data.thin, end, c.n);
    double* factors = data.outflow ? data.thinning->mData + c.index : nullptr;
    if (factors) {
      FindThinning(data, c, from, factors);
      for (i32 i = 0; i < c.n; ++i)
        if (c.anySolid && c.solid[i]) factors[i] = 1;
    }
    for (const AdvectedField& field : data.fields) {
      SampleRow(data.sampling, *field.predicted, field.spline, to, values.v);
      CorrectRow(field, c, from, to, factors, values.v);
      Store(c, values.v, *field.source, field.destination->mData);
    }
  });
}

void FindBalance(AdvectedField& field, i32 layers) {
  if (!field.corrections) return;
  Correction sums;
  for (i32 z = 0; z < layers; ++z) {
    sums.whole += field.corrections[z].whole;
    sums.up += field.corrections[z].up;
    sums.down += field.corrections[z].down;
    sums.lost += field.corrections[z].lost;
  }
  const double all = sums.up - sums.down;
  if (field.keepsTotal && std::abs(sums.lost - sums.whole) <= kTrusted * all)
    sums.whole = sums.lost;
  const double excess = sums.up + sums.down - sums.whole;
  if (excess > 0 && sums.up > 0)
    field.up = std::max(0.0, (sums.whole - sums.down) / sums.up);
  else if (excess < 0 && sums.down < 0)
    field.down = std::max(0.0, (sums.whole - sums.up) / sums.down);
}

void Balance(const AdvectionData& data, const CellBox& box) {
  const double* thinning = data.outflow ? data.thinning->mData : nullptr;
  const i32 n = box.max.x - box.min.x;
  for (const AdvectedField& field : data.fields)
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) {
        const i32 first = field.destination->Index(box.min.x, y, z);
        const double* predicted = field.predicted->mData + first;
        double* values = field.destination->mData + first;
        if (field.up != 1 || field.down != 1)
          for (i32 i = 0; i < n; ++i) {
            const double correction = values[i] - predicted[i];
            values[i] = predicted[i] + correction * (correction > 0 ? field.up : field.down);
          }
        if (thinning)
          for (i32 i = 0; i < n; ++i) values[i] *= thinning[first + i];
      }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
