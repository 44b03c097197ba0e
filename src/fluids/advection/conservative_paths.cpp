// Where the paths of a step that keeps the total of a field lead.
#include <algorithm>

#include "fluids/advection/clear_cells.h"
#include "fluids/advection/conservative_advection.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Whether no solid is near any of `n` points, given in cells, and so all corners of their blocks
/// hold smoke.
bool ConservativeAdvection::IsClear(const RowVectors& points, i32 n) const {
  constexpr u8 kClear = SolidCells::kNoPushOut | SolidCells::kOpenCentre;
  return AreClear(*mFlags, points, n, kClear, 1);
}

/// The blocks round the ends of paths, given in cells: points in solids are pushed out first, paths
/// end at walls, thin ones too, and of a block those cells count that can be reached from there.
void ConservativeAdvection::PlaceBlocks(const Flow& flow, const RowVectors& start, RowVectors& ends,
                                        i32 n, const BlockColumns& blocks) const {
  const bool isClear = mFlags && !flow.thin && IsClear(ends, n);
  if (!isClear) PushOut(flow, start, ends, n);
  FindCorners(ends, OffsetOf(kCentre), mDims, n, blocks.base, blocks.fraction);
  if (isClear) {
    std::fill_n(blocks.closed, n, u8{0});
    return;
  }
  for (i32 i = 0; i < n; ++i) blocks.closed[i] = mClosed->mData[blocks.base[i]];
  // What lies outside of the sides is no continuation of anything here.
  if (flow.thin)
    for (i32 i = 0; i < n; ++i)
      blocks.closed[i] |= static_cast<u8>(~flow.thin->Reach(ends.At(i), ThinFaces::kOutermostToo));
}

void ConservativeAdvection::PushOut(const Flow& flow, const RowVectors& start, RowVectors& ends,
                                    i32 n) const {
  i32 cells[kRowChunk];
  if (mFlags) FindCells(ends, mDims, n, cells);
  for (i32 i = 0; i < n; ++i) {
    if (mFlags && ((*mFlags)[cells[i]] & SolidCells::kNoPushOut)) continue;
    Vec3d relative = ends.At(i) * static_cast<double>(mCellSize);
    if (flow.boundary->PushOut(relative, true, kPushOutMargin, flow.boundary->mWalls))
      ends.Set(i, relative / static_cast<double>(mCellSize));
  }
  if (flow.thin)
    for (i32 i = 0; i < n; ++i) ends.Set(i, flow.thin->Stop(start.At(i), ends.At(i)));
}

/// The blocks that a run of inner cells of a row ask, by paths back from their centres.
void ConservativeAdvection::TraceRun(const Flow& flow, i32 y, i32 z, const IndexRange& run) {
  RowVectors start, k1, ends;
  for (i32 x = run.first; x < run.last; x += kRowChunk) {
    const i32 n = std::min(kRowChunk, run.last - x);
    SetRow(x, y, z, OffsetOf(kCentre), n, start);
    VelocityAtSamples(flow.velocity, kCentre, x, y, z, n, k1);
    TraceRow(flow.velocity, start, k1, -flow.step / mCellSize, flow.order, n, ends);
    PlaceBlocks(flow, start, ends, n, mBlocks.From(mHolds->Index(x, y, z)));
  }
}

void ConservativeAdvection::TraceLayer(const Flow& flow, i32 z) {
  for (i32 y = 0; y < mDims.y; ++y) {
    const IndexRange run = mRows.At(y, z), inner = mRows.Inner(y, z);
    if (run.IsEmpty()) continue;
    const i32 row = mHolds->Index(0, y, z);
    const u8* moves = mMoves->mData + row;
    // Cells in solids and in the outermost layer keep what they hold.
    const auto keep = [&](i32 first, i32 last) {
      for (i32 x = first; x < last; ++x)
        if (!moves[x]) mBlocks.Set(row + x, Contribution::Only(row + x));
    };
    if (IsOutermostRow(y, z) || inner.IsEmpty()) {
      keep(run.first, run.last);
      continue;
    }
    TraceRun(flow, y, z, inner);
    keep(run.first, inner.first);
    keep(inner.last, run.last);
    if (!(CommonBits(moves + inner.first, inner.last - inner.first) & 1))
      keep(inner.first, inner.last);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
