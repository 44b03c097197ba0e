// Where the paths of a step that keeps the total of a field lead.
#include <algorithm>
#include <cmath>

#include "fluids/advection/clear_cells.h"
#include "fluids/advection/conservative_advection.h"
#include "fluids/advection/run_lanes.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

SULVA_WIDE_KERNEL double MostApart(const double* a, const double* b, i32 n) {
  RunLanes lanes{};
  i32 i = 0;
  for (; i + kRun <= n; i += kRun) {
    RunLanes p, q;
    Load(a + i, p);
    Load(b + i, q);
    p -= q;
    p = p < 0 ? -p : p;
    lanes = p > lanes ? p : lanes;
  }
  double most = 0;
  for (int lane = 0; lane < kRun; ++lane) most = std::max(most, lanes[lane]);
  for (; i < n; ++i) most = std::max(most, std::abs(a[i] - b[i]));
  return most;
}

}  // namespace

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
  RowCorners corners;
  FindCorners(ends, OffsetOf(kCentre), mDims, n, corners);
  std::copy_n(corners.index, n, blocks.base);
  for (int a = 0; a < 3; ++a) std::copy_n(corners.fraction[a].v, n, blocks.fraction[a]);
  if (isClear) {
    std::fill_n(blocks.closed, n, u8{0});
    return;
  }
  for (i32 i = 0; i < n; ++i) blocks.closed[i] = mClosed->mData[corners.index[i]];
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

/// The blocks that the inner cells of a row ask, by paths back from their centres. Returns how long
/// these are along an axis, at most.
double ConservativeAdvection::TraceInnerRow(const Flow& flow, i32 y, i32 z) {
  RowVectors start, k1, ends;
  double longest = 0;
  for (i32 x = 1; x < mDims.x - 1; x += kRowChunk) {
    const i32 n = std::min(kRowChunk, mDims.x - 1 - x), first = mHolds->Index(x, y, z);
    for (i32 i = 0; i < n; ++i) start.Set(i, {x + i + 0.5, y + 0.5, z + 0.5});
    VelocityAtSamples(flow.velocity, kCentre, x, y, z, n, k1);
    TraceRow(flow.velocity, start, k1, -flow.step / mCellSize, flow.order, n, ends);
    for (int a = 0; a < 3; ++a)
      longest = std::max(longest, MostApart(start.axis[a].v, ends.axis[a].v, n));
    PlaceBlocks(flow, start, ends, n, mBlocks.From(first));
  }
  return longest;
}

void ConservativeAdvection::RecordBackward(const Flow& flow) {
  mLongest = MaxBlocks(mDims.z, 1, flow.threads, [&](i64 layer, i64) {
    const i32 z = static_cast<i32>(layer);
    double longest = 0;
    for (i32 y = 0; y < mDims.y; ++y) {
      const bool isBorder = z == 0 || z == mDims.z - 1 || y == 0 || y == mDims.y - 1;
      if (!isBorder) longest = std::max(longest, TraceInnerRow(flow, y, z));
      // Cells in solids and in the outermost layer keep what they hold.
      const i32 first = mHolds->Index(0, y, z), last = first + mDims.x - 1;
      for (i32 c = first; c <= last; ++c)
        if (!mMoves->mData[c]) mBlocks.Set(c, Contribution::Only(c));
    }
    return longest;
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
