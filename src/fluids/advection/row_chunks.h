// The samples of a pass, some at a time.
#pragma once
#include <algorithm>

#include "fluids/advection/even_rows.h"
#include "fluids/advection/path_solids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Some samples of a row with the velocity there.
struct SampleChunk {
  i32 index;    ///< of the first sample
  i32 x, y, z;  ///< of the same
  i32 n;
  RowVectors start, k1;
  bool solid[kRowChunk];
  bool anySolid;
};

/// Marks cells whose centre lies in a thin wall as solid too; true when any is.
inline bool MarkFilled(const ThinFaces& thin, const VecInt3D& first, SampleChunk& c) {
  bool any = false;
  for (i32 i = 0; i < c.n; ++i) {
    c.solid[i] = (c.anySolid && c.solid[i]) || thin.IsFilled(first + VecInt3D{i, 0, 0});
    any |= c.solid[i];
  }
  return any;
}

/// Calls f(chunk) for the samples of the box that are busy, and rest(index, n) for the others.
template <class Rest, class F>
void ForEachChunk(const AdvectionData& data, const PathSolids& solids, const CellBox& box,
                  Rest&& rest, F&& f) {
  const EGrid<double>& shape = data.Shape();
  const bool isCentred = OffsetOf(shape.mKind) == OffsetOf(kCentre);
  SampleChunk c;
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y)
      for (i32 x = box.min.x; x < box.max.x; x += kRowChunk) {
        const i32 last = std::min(x + kRowChunk, box.max.x), row = shape.Index(0, y, z);
        const IndexRange part = data.busy ? data.busy->PartOf(x, last, y, z) : IndexRange{x, last};
        rest(row + x, part.first - x);
        rest(row + part.last, last - part.last);
        if (part.IsEmpty()) continue;
        c.n = part.last - part.first;
        c.index = row + part.first;
        c.x = part.first;
        c.y = y;
        c.z = z;
        c.anySolid = solids.FindSolid(part.first, y, z, c.n, c.solid);
        if (data.thin && isCentred) c.anySolid = MarkFilled(*data.thin, {part.first, y, z}, c);
        SetRow(part.first, y, z, OffsetOf(shape.mKind), c.n, c.start);
        VelocityAtSamples(data.velocity, shape.mKind, part.first, y, z, c.n, c.k1);
        f(c);
      }
}

/// A pass can work by these settings.
inline bool HasSampling(const AdvectionData& data) {
  return data.sampling >= 0 && data.sampling <= 2;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
