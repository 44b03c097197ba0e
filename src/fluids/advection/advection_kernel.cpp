#include "fluids/advection/advection_kernel.h"

#include <algorithm>
#include <cmath>

#include "fluids/advection/even_rows.h"
#include "fluids/advection/row_chunks.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

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
void MarkBeyondSides(const AdvectionData& data, const RowVectors& points, i32 n, u8* marks) {
  if (data.sides == kWallsAll) return;
  const Vec3d offset = OffsetOf(data.Shape().mKind);
  const VecInt3D size = data.Shape().Dims();
  for (i32 a = 0; a < 3; ++a) {
    const double low = offset[a], high = offset[a] + size[a] - 1;
    const bool opensLow = !(data.sides & kLowWall[a]), opensHigh = !(data.sides & kHighWall[a]);
    const double* p = points.axis[a].v;
    const ValueRange range = RangeOf(p, n);
    if (!(opensLow && range.least < low) && !(opensHigh && range.most > high)) continue;
    for (i32 i = 0; i < n; ++i)
      if ((opensLow && p[i] < low) || (opensHigh && p[i] > high))
        marks[i] |= CorrectedRow::kUncorrected;
  }
}

/// The ends of the paths of a chunk over a time of `step`, given in cells; `bent` marks those that
/// a solid or a side moved. False when none is.
bool Trace(const AdvectionData& data, const PathSolids& solids, const SampleChunk& c, double step,
           RowVectors& ends, bool* bent) {
  TraceRow(data.velocity, c.start, c.k1, step / data.Shape().mLayout.cellSize, data.order, c.n,
           ends);
  const bool any = solids.PushOut(ends, c.n, bent);
  StopAtWalls(data, c.start, c.n, ends);
  return any;
}

/// Samples of a chunk that are solid keep what the source holds there.
void KeepSolid(const SampleChunk& c, const Grid<double>& source, double* row) {
  for (i32 i = 0; c.anySolid && i < c.n; ++i)
    if (c.solid[i]) row[i] = source[c.index + i];
}

/// How much thinner what moved along the paths of a chunk gets. A parcel grows by the mean outflow
/// at both ends; with paths of one velocity alone by that of where this was looked up, for it is
/// the share by which such paths part.
void FindThinning(const AdvectionData& data, const SampleChunk& c, const SamplePoints& from,
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

// Nearer to a sample than this, in cells, a path starts at it.
constexpr double kHair = 1e-5;

/// Along each axis whose samples the start is a hair from, takes that sample for the lowest and
/// marks it, unless it is an outermost one.
void MarkAtSamples(const RowCorners& corners, i32 i, const Grid<double>& shape, i32& start,
                   u8& marks) {
  const VecInt3D dims = shape.Dims();
  const i32 step[3] = {1, shape.mNx, shape.mSlice};
  const i32 index = corners.index[i];
  marks = 0;
  const i32 at[3] = {index % dims.x, index / dims.x % dims.y, index / shape.mSlice};
  for (i32 a = 0; a < 3; ++a) {
    const double f = corners.fraction[a].v[i];
    const i32 up = f > 1 - kHair;
    if ((f >= kHair && !up) || at[a] + up < 1 || at[a] + up > dims[a] - 2) continue;
    start += up * step[a];
    marks |= CorrectedRow::kAtX << a;
  }
}

/// Leaves where the paths of a chunk start for the second half of the step. `bent` may be null.
void KeepStarts(const AdvectionData& data, const SamplePoints& from, const bool* bent,
                const SampleChunk& c) {
  i32* starts = data.starts->mData + c.index;
  u8* marks = data.marks->mData + c.index;
  std::copy_n(from.corners.index, c.n, starts);
  std::fill_n(marks, c.n, u8{0});
  for (i32 a = 0; a < 3; ++a) {
    const double* f = from.corners.fraction[a].v;
    const ValueRange range = RangeOf(f, c.n);
    if (range.least >= kHair && range.most <= 1 - kHair) continue;
    for (i32 i = 0; i < c.n; ++i)
      if (f[i] < kHair || f[i] > 1 - kHair) marks[i] = CorrectedRow::kAtAny;
  }
  for (i32 i = 0; i < c.n; ++i)
    if (marks[i]) MarkAtSamples(from.corners, i, data.Shape(), starts[i], marks[i]);
  if (!bent && !from.isParted) return;
  for (i32 i = 0; i < c.n; ++i)
    if ((bent && bent[i]) || from.IsParted(i)) marks[i] |= CorrectedRow::kUncorrected;
}

/// Marks samples that are solid, or whose paths forward end where thin walls part what is there.
void MarkEnds(const SampleChunk& c, const SamplePoints& to, u8* marks) {
  for (i32 i = 0; to.isParted && i < c.n; ++i)
    if (to.IsParted(i)) marks[i] |= CorrectedRow::kUncorrected;
  for (i32 i = 0; c.anySolid && i < c.n; ++i)
    if (c.solid[i]) marks[i] |= CorrectedRow::kSolid;
}

/// Writes what holds nothing to one of the grids of each field.
auto NothingGoesTo(const AdvectionData& data, auto grid) {
  return [&data, grid](i32 index, i32 n) {
    for (const AdvectedField& field : data.fields)
      std::fill_n((field.*grid)->mData + index, n, field.walls.nothing);
  };
}

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
  const PathSolids solids(data);
  RowVectors ends;
  RowValues thinning;
  SamplePoints from;
  bool bent[kRowChunk];
  ForEachChunk(data, solids, box, NothingGoesTo(data, &AdvectedField::destination),
               [&](const SampleChunk& c) {
                 Trace(data, solids, c, -data.step, ends, bent);
                 from.Find(data.Shape(), data.thin, ends, c.n);
                 if (data.outflow) FindThinning(data, c, from, thinning.v);
                 for (const AdvectedField& field : data.fields) {
                   double* out = field.destination->mData + c.index;
                   SampleRow(data.sampling, *field.source, field.spline, from, out);
                   for (i32 i = 0; data.outflow && i < c.n; ++i) out[i] *= thinning.v[i];
                   KeepSolid(c, *field.source, out);
                 }
               });
}

void Predict(const AdvectionData& data, const CellBox& box) {
  if (!HasSampling(data)) return;
  for (const AdvectedField& field : data.fields) CopyBorder(field, box);
  const PathSolids solids(data);
  RowVectors ends;
  SamplePoints from;
  bool bent[kRowChunk];
  ForEachChunk(data, solids, box, NothingGoesTo(data, &AdvectedField::predicted),
               [&](const SampleChunk& c) {
                 const bool anyBent = Trace(data, solids, c, -data.step, ends, bent);
                 from.Find(data.Shape(), data.thin, ends, c.n);
                 KeepStarts(data, from, anyBent ? bent : nullptr, c);
                 if (data.outflow) {
                   double* factors = data.thinning->mData + c.index;
                   FindThinning(data, c, from, factors);
                   for (i32 i = 0; c.anySolid && i < c.n; ++i)
                     if (c.solid[i]) factors[i] = 1;
                 }
                 for (const AdvectedField& field : data.fields) {
                   double* out = field.predicted->mData + c.index;
                   SampleRow(data.sampling, *field.source, field.spline, from, out);
                   KeepSolid(c, *field.source, out);
                 }
               });
}

void Correct(const AdvectionData& data, const CellBox& box) {
  if (!HasSampling(data)) return;
  const PathSolids solids(data);
  RowVectors ends;
  RowValues returned;
  SamplePoints to;
  u8 marks[kRowChunk];
  bool bent[kRowChunk];
  ForEachChunk(data, solids, box, NothingGoesTo(data, &AdvectedField::destination),
               [&](const SampleChunk& c) {
                 // Whatever solids do to a path forward, it tells what went there.
                 Trace(data, solids, c, data.step, ends, bent);
                 std::copy_n(data.marks->mData + c.index, c.n, marks);
                 MarkBeyondSides(data, ends, c.n, marks);
                 to.Find(data.Shape(), data.thin, ends, c.n);
                 MarkEnds(c, to, marks);
                 for (const AdvectedField& field : data.fields) {
                   SampleRow(data.sampling, *field.predicted, field.spline, to, returned.v);
                   const CorrectedRow row{
                       .before = field.source->mData + c.index,
                       .predicted = field.predicted->mData + c.index,
                       .returned = returned.v,
                       .share = 0.5 * field.strength,
                       .limits = field.source->mData,
                       .corners = data.starts->mData + c.index,
                       .ny = field.source->mNx,
                       .nz = field.source->mSlice,
                       .marks = marks,
                       .thinning = data.outflow ? data.thinning->mData + c.index : nullptr};
                   double* out = field.destination->mData + c.index;
                   if (!field.balance) {
                     CorrectRow(row, c.n, out);
                     continue;
                   }
                   field.balance->ForEachStretch(
                       c.x, c.x + c.n, c.y, c.z, [&](i32 piece, i32 first, i32 last) {
                         CorrectAndSumRow(row.From(first - c.x), last - first, out + (first - c.x),
                                          field.balance->SumsOf(c.z, piece));
                       });
                 }
               });
}

void Balance(const AdvectionData& data, const CellBox& box) {
  const double* thinning = data.outflow ? data.thinning->mData : nullptr;
  for (const AdvectedField& field : data.fields)
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) {
        const IndexRange part = data.busy ? data.busy->PartOf(box.min.x, box.max.x, y, z)
                                          : IndexRange{box.min.x, box.max.x};
        const i32 row = field.destination->Index(0, y, z);
        const double* predicted = field.predicted->mData + row;
        double* values = field.destination->mData + row;
        if (field.balance && field.balance->Scales())
          field.balance->ForEachStretch(
              part.first, part.last, y, z, [&](i32 piece, i32 x, i32 last) {
                const auto [up, down] = field.balance->FactorsOf(piece);
                for (; x < last; ++x) {
                  const double correction = values[x] - predicted[x];
                  values[x] = predicted[x] + correction * (correction > 0 ? up : down);
                }
              });
        if (thinning)
          for (i32 x = part.first; x < part.last; ++x) values[x] *= thinning[row + x];
      }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
