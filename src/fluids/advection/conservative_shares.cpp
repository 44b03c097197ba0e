// Who gives what to whom in a step that keeps the total of a field.
#include "fluids/advection/conservative_advection.h"

#include <cmath>

#include "fluids/advection/share_rows.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kTrace = 1e-12;  // of a cell: what rounding leaves of it
constexpr double kHalf = 0.5;     // of a cell: those who ask for so much get all of it

/// Whether no corner has a weight.
bool IsEmpty(const Contribution& block, const CornerOffsets& corners) {
  bool any = !block.closed;
  if (!any) ForEachCorner(block, corners, [&](i32, double) { any = true; });
  return !any;
}

}  // namespace

/// Adds up what the cells of a slab ask for, each in its turn.
void ConservativeAdvection::AskSlab(i32 slab) {
  const i32 slabs = static_cast<i32>(mSlabs.size());
  const IndexRange layers = PartOf(slab, slabs, 0, mDims.z);
  const i32 first = layers.first * mSlice, n = layers.last * mSlice - first;
  i32 low = mAsked->mCount, high = 0;
  for (i32 i = 0; i < n; ++i) {
    low = std::min(low, mBlocks.base[first + i]);
    high = std::max(high, mBlocks.base[first + i]);
  }
  Slab& s = mSlabs[slab];
  s.layers = {low / mSlice, std::min(high / mSlice + 2, mDims.z)};
  s.asked.assign(i64{s.layers.last - s.layers.first} * mSlice, 0.0);
  AskRow(mBlocks.From(first), n, CornerOffsets(mDims.x, mSlice),
         s.asked.data() - i64{s.layers.first} * mSlice);
}

/// How much of every cell is asked for. The outermost layer gives without limit.
void ConservativeAdvection::FindAsked(const Flow& flow, const EGrid<double>& source) {
  ForEachBlock(static_cast<i32>(mSlabs.size()), flow.threads, [&](i32 slab) { AskSlab(slab); });
  double* all = mAsked->mData;
  mLeft = SumBlocks(mDims.z, 1, flow.threads, [&](i64 z, i64) {
    double* asked = all + z * mSlice;
    std::fill_n(asked, mSlice, 0.0);
    for (const Slab& slab : mSlabs) {
      if (z < slab.layers.first || z >= slab.layers.last) continue;
      const double* part = slab.asked.data() + (z - slab.layers.first) * mSlice;
      for (i32 i = 0; i < mSlice; ++i) asked[i] += part[i];
    }
    double left = 0;
    for (i32 y = 0; y < mDims.y; ++y)
      for (i32 x = 0; x < mDims.x;
           x += IsBorder({1, y, static_cast<i32>(z)}) ? 1 : std::max(1, mDims.x - 1)) {
        const i32 i = y * mDims.x + x;
        left -= (asked[i] - 1) * (source[z * mSlice + i] - flow.nothing);
        asked[i] = 1;
      }
    return left;
  });
}

/// Cells whose paths forward are found together.
struct ConservativeAdvection::Senders {
  i32 count = 0;
  i32 cells[kRowChunk];
  RowVectors start, velocity;

  void Add(const StaggeredVelocity& flow, i32 cell, const VecInt3D& at) {
    cells[count] = cell;
    start.Set(count, {at.x + 0.5, at.y + 0.5, at.z + 0.5});
    for (i32 a = 0; a < 3; ++a) {
      const EGrid<double>& g = flow.Component(a);
      const VecInt3D up = at + ExtraOf(a);
      velocity.axis[a].v[count] = 0.5 * (g(at.x, at.y, at.z) + g(up.x, up.y, up.z));
    }
    ++count;
  }
};

/// The cells from which no path of the step leads through an open side: who asks for less than they
/// hold doesn't leave the rest to the air outside.
CellBox ConservativeAdvection::FarFromSides(const Flow& flow) const {
  const i32 reach = 1 + static_cast<i32>(std::min(std::ceil(mLongest), 1e6));
  CellBox far{{0, 0, 0}, mDims};
  for (int a = 0; a < 3; ++a) {
    if (!(flow.boundary->mWalls & kLowWall[a])) far.min[a] += reach + 1;
    if (!(flow.boundary->mWalls & kHighWall[a])) far.max[a] -= reach + 1;
  }
  return far;
}

/// Cells that are asked for too little of what they hold send the rest where the flow goes.
void ConservativeAdvection::RecordForward(const Flow& flow) {
  const double* asked = mAsked->mData;
  const CellBox far = FarFromSides(flow);
  ForEachLayer(flow, [&](i32 z) {
    std::vector<ForwardContribution>& list = mForward[z];
    list.clear();
    IndexRange& reach = mReach[z] = {mDims.z, 0};
    if (z == 0 || z == mDims.z - 1) return;
    Senders senders;
    for (i32 y = 1; y < mDims.y - 1; ++y) {
      const bool isFar = z >= far.min.z && z < far.max.z && y >= far.min.y && y < far.max.y;
      for (i32 x = 1; x < mDims.x - 1; ++x) {
        const i32 c = mHolds->Index(x, y, z);
        const double enough = isFar && x >= far.min.x && x < far.max.x ? kHalf : 1 - kTrace;
        if (!(asked[c] < enough) || !mMoves->mData[c]) continue;
        senders.Add(flow.velocity, c, {x, y, z});
        if (senders.count < kRowChunk) continue;
        SendForward(flow, senders, z);
        senders.count = 0;
      }
    }
    SendForward(flow, senders, z);
    for (const ForwardContribution& forward : list) {
      mAsked->mData[forward.cell] = 1;
      reach.first = std::min(reach.first, forward.block.base / mSlice);
      reach.last = std::max(reach.last, forward.block.base / mSlice + 2);
    }
  });
}

void ConservativeAdvection::SendForward(const Flow& flow, const Senders& from, i32 z) {
  i32 base[kRowChunk];
  u8 closed[kRowChunk];
  RowVectors ends, fractions;
  const BlockColumns blocks{
      base, closed, {fractions.axis[0].v, fractions.axis[1].v, fractions.axis[2].v}};
  TraceRow(flow.velocity, from.start, from.velocity, flow.step / mCellSize, flow.order, from.count,
           ends);
  PlaceBlocks(flow, from.start, ends, from.count, blocks);
  const CornerOffsets corners(mDims.x, mSlice);
  for (i32 i = 0; i < from.count; ++i) {
    const i32 cell = from.cells[i];
    ForwardContribution forward{
        .cell = cell, .amount = 1.0 - mAsked->mData[cell], .block = blocks.At(i)};
    // Enclosed by solids on all sides: it keeps the rest.
    if (IsEmpty(forward.block, corners)) forward.block = Contribution::Only(cell);
    // Beyond an open side the flow takes along all that nobody inside asks for.
    const u8* moves = mMoves->mData + forward.block.base;
    if (!moves[0] || !moves[corners.at[7]]) {
      bool leaves = false;
      ForEachCorner(forward.block, corners,
                    [&](i32 corner, double w) { leaves |= w > 0 && !mMoves->mData[corner]; });
      if (leaves) forward.block = Contribution::None(cell);
    }
    mForward[z].push_back(forward);
  }
}

/// What every cell asks for, of what the field and the volume hold, in the share that each giver
/// can spare. The outermost layer keeps what it holds, whatever is asked of it.
void ConservativeAdvection::Gather(const Flow& flow, const double* source, const Carried& to) {
  double *content = mGivenContent->mData, *volume = mGivenVolume->mData;
  ForEachLayer(flow, [&](i32 z) {
    const i32 c = z * mSlice;
    FindGiven(source + c, mVolume->mData + c, mAsked->mData + c, flow.nothing, mSlice, content + c,
              volume + c);
  });
  const CornerOffsets corners(mDims.x, mSlice);
  ForEachLayer(flow, [&](i32 z) {
    const i32 c = z * mSlice;
    GatherRow(mBlocks.From(c), mSlice, corners, content, volume, to.content + c, to.volume + c);
  });
}

/// What the cells send on top of it, in cell order. What goes beyond an open side is gone.
void ConservativeAdvection::Scatter(const Flow& flow, const Carried& to) {
  const double *givenContent = mGivenContent->mData, *givenVolume = mGivenVolume->mData;
  const CornerOffsets corners(mDims.x, mSlice);
  ForEachLayer(flow, [&](i32 layer) {
    const i32 first = layer * mSlice, last = first + mSlice;
    for (i32 z = 0; z < mDims.z; ++z) {
      if (layer < mReach[z].first || layer >= mReach[z].last) continue;
      for (const ForwardContribution& forward : mForward[z]) {
        const i32 base = forward.block.base;
        if (base >= last || base + mSlice < first) continue;
        const double content = givenContent[forward.cell] * forward.amount;
        const double volume = givenVolume[forward.cell] * forward.amount;
        ForEachCorner(forward.block, corners, [&](i32 corner, double w) {
          if (corner < first || corner >= last) return;
          to.content[corner] += w * content;
          to.volume[corner] += w * volume;
        });
      }
    }
  });
  mLeft += SumBlocks(mDims.z, 1, flow.threads, [&](i64 z, i64) {
    double left = 0;
    for (const ForwardContribution& forward : mForward[z])
      if (forward.block.closed == 0xff) left += givenContent[forward.cell] * forward.amount;
    return left;
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
