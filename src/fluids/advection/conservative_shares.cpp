// Who gives what to whom in a step that keeps the total of a field.
#include "fluids/advection/conservative_advection.h"

#include <algorithm>

#include "fluids/advection/even_rows.h"
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

/// Adds up what the cells of a slab ask for, layer by layer, while their blocks are at hand.
void ConservativeAdvection::AskSlab(const Flow& flow, i32 slab) {
  const i32 slabs = static_cast<i32>(mSlabs.size());
  const IndexRange layers = PartOf(slab, slabs, 0, mDims.z);
  Slab& s = mSlabs[slab];
  s.layers = {};
  s.asked.clear();
  for (i32 z = layers.first; z < layers.last; ++z) {
    TraceLayer(flow, z);
    AskLayer(z, s);
  }
}

void ConservativeAdvection::AskLayer(i32 z, Slab& slab) const {
  i32 low = mVolume->mCount, high = -1;
  ForEachRun(z, [&](i32 c, i32 n) { WidenRange(mBlocks.base + c, n, low, high); });
  if (high < 0) return;
  IndexRange touched{low / mSlice, std::min(high / mSlice + 2, mDims.z)};
  IndexRange& layers = slab.layers;
  if (layers.IsEmpty()) layers = {touched.first, touched.first};
  touched = {std::min(touched.first, layers.first), std::max(touched.last, layers.last)};
  slab.asked.insert(slab.asked.begin(), i64{layers.first - touched.first} * mSlice, 0.0);
  layers = touched;
  slab.asked.resize(i64{layers.last - layers.first} * mSlice, 0.0);
  double* asked = slab.asked.data() - i64{layers.first} * mSlice;
  const CornerOffsets corners(mDims.x, mSlice);
  ForEachRun(z, [&](i32 c, i32 n) { AskRow(mBlocks.From(c), n, corners, asked); });
}

/// How much of every cell of a layer is asked for. The outermost layer gives without limit, and so
/// do cells, empty ones, that others would ask who aren't active. Returns what leaves so.
double ConservativeAdvection::FindAsked(const Flow& flow, const EGrid<double>& source, i32 z,
                                        double* asked) const {
  double left = 0;
  for (i32 y = 0; y < mDims.y; ++y) {
    const IndexRange run = mRows.At(y, z), core = mRows.Core(y, z);
    if (run.IsEmpty()) continue;
    const i32 row = y * mDims.x;
    double* a = asked + row;
    std::fill(a + run.first, a + run.last, core.IsEmpty() ? 1.0 : 0.0);
    if (core.IsEmpty()) continue;
    for (const Slab& slab : mSlabs) {
      if (z < slab.layers.first || z >= slab.layers.last) continue;
      const double* part = slab.asked.data() + i64{z - slab.layers.first} * mSlice + row;
      for (i32 x = core.first; x < core.last; ++x) a[x] += part[x];
    }
    std::fill(a + run.first, a + core.first, 1.0);
    std::fill(a + core.last, a + run.last, 1.0);
    const auto give = [&](i32 x) {
      left -= (a[x] - 1) * (source[z * mSlice + row + x] - flow.nothing);
      a[x] = 1;
    };
    if (IsOutermostRow(y, z)) {
      for (i32 x = core.first; x < core.last; ++x) give(x);
      continue;
    }
    if (core.first == 0) give(0);
    if (core.last == mDims.x) give(mDims.x - 1);
  }
  return left;
}

/// Cells whose paths forward are found together.
struct ConservativeAdvection::Senders {
  i32 count = 0;
  i32 cells[kRowChunk];
  double amounts[kRowChunk];  ///< of their content that nobody asks for
  RowVectors start, velocity;

  void Add(const StaggeredVelocity& flow, i32 cell, double amount, const VecInt3D& at) {
    cells[count] = cell;
    amounts[count] = amount;
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
  const i32 reach = 1 + std::max({mFarthest.x, mFarthest.y, mFarthest.z});
  CellBox far{{0, 0, 0}, mDims};
  for (int a = 0; a < 3; ++a) {
    if (!(flow.boundary->mWalls & kLowWall[a])) far.min[a] += reach + 1;
    if (!(flow.boundary->mWalls & kHighWall[a])) far.max[a] -= reach + 1;
  }
  return far;
}

/// Cells that are asked for too little of what they hold send the rest where the flow goes.
void ConservativeAdvection::SendLayer(const Flow& flow, const CellBox& far, i32 z, double* asked) {
  std::vector<ForwardContribution>& list = mForward[z];
  list.clear();
  IndexRange& reach = mReach[z] = {mDims.z, 0};
  if (z == 0 || z == mDims.z - 1) return;
  Senders senders;
  for (i32 y = 1; y < mDims.y - 1; ++y) {
    const bool isFar = z >= far.min.z && z < far.max.z && y >= far.min.y && y < far.max.y;
    const IndexRange core = mRows.Core(y, z);
    const IndexRange inner{std::max(core.first, 1), std::min(core.last, mDims.x - 1)};
    if (inner.IsEmpty()) continue;
    double* row = asked + y * mDims.x;
    const auto send = [&](i32 first, i32 last, double enough) {
      if (first >= last || RangeOf(row + first, last - first).least >= enough) return;
      for (i32 x = first; x < last; ++x) {
        const i32 c = mHolds->Index(x, y, z);
        if (!(row[x] < enough) || !mMoves->mData[c]) continue;
        senders.Add(flow.velocity, c, 1.0 - row[x], {x, y, z});
        row[x] = 1;
        if (senders.count < kRowChunk) continue;
        SendForward(flow, senders, z);
        senders.count = 0;
      }
    };
    const i32 low = isFar ? std::clamp(far.min.x, inner.first, inner.last) : inner.last;
    const i32 high = isFar ? std::clamp(far.max.x, low, inner.last) : inner.last;
    send(inner.first, low, 1 - kTrace);
    send(low, high, kHalf);
    send(high, inner.last, 1 - kTrace);
  }
  SendForward(flow, senders, z);
  for (const ForwardContribution& forward : list) {
    reach.first = std::min(reach.first, forward.block.base / mSlice);
    reach.last = std::max(reach.last, forward.block.base / mSlice + 2);
  }
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
    ForwardContribution forward{.cell = cell, .amount = from.amounts[i], .block = blocks.At(i)};
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

/// What every cell gives for each share that is asked of it, and where the rest goes.
void ConservativeAdvection::Settle(const Flow& flow, const EGrid<double>& source, bool sharp) {
  const CellBox far = FarFromSides(flow);
  mLeft = SumBlocks(mDims.z, 1, flow.threads, [&](i64 layer, i64) {
    thread_local std::vector<double> asked;
    asked.resize(mSlice);
    const i32 z = static_cast<i32>(layer);
    const double left = FindAsked(flow, source, z, asked.data());
    SendLayer(flow, far, z, asked.data());
    ForEachRun(z, [&](i32 c, i32 n) {
      FindGiven(source.mData + c, mVolume->mData + c, asked.data() + c - z * mSlice, flow.nothing,
                n, mGivenContent->mData + c, mGivenVolume->mData + c);
      if (sharp)
        mSharpening.FindStrengths(source.mData + c, mVolume->mData + c, flow.nothing, c, n);
    });
    return left;
  });
}

/// What every cell asks for, of what the field and the volume hold, in the share that each giver
/// can spare. The outermost layer keeps what it holds, whatever is asked of it.
void ConservativeAdvection::Gather(const Flow& flow, const Carried& to, bool sharp) {
  const double *content = mGivenContent->mData, *volume = mGivenVolume->mData;
  const CornerOffsets corners(mDims.x, mSlice);
  ForEachLayer(flow, [&](i32 z) {
    ForEachRun(z, [&](i32 c, i32 n) {
      GatherRow(mBlocks.From(c), n, corners, content, volume, to.content + c, to.volume + c);
      if (sharp) mSharpening.FindLimits(mBlocks.From(c), mMoves->mData + c, c, n);
    });
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
