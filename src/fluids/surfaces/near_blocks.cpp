#include "fluids/surfaces/near_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

NearBlocks::NearBlocks(const EGrid<double>& grid, double cell, double outside, i32 threads)
    : mThreads(threads),
      mSide(SideOf(cell, grid.mLayout.cellSize)),
      mLength(mSide * double(grid.mLayout.cellSize)) {
  for (int a = 0; a < 3; ++a) mDims[a] = (grid.Dims()[a] - 2) / mSide + 1;
  mNumbers.resize(std::size_t(mDims.x) * mDims.y * mDims.z);
  std::vector<std::vector<VecInt3D>> layers(mDims.z);
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y)
      for (i32 x = 0; x < mDims.x; ++x) {
        const i32 place = mNumbers[IndexOf({x, y, z})] = PlaceOf(grid, outside, {x, y, z});
        if (place == 0) layers[z].push_back({x, y, z});
      }
  });
  for (const auto& layer : layers)
    for (const VecInt3D& corner : layer) {
      mNumbers[IndexOf(corner)] = Count();
      mCorners.push_back(corner);
    }
}

i32 NearBlocks::PlaceOf(const EGrid<double>& grid, double outside, const VecInt3D& block) const {
  constexpr double kNear = 0.6;
  double low = grid(block.x * mSide, block.y * mSide, block.z * mSide), high = low;
  VecInt3D last;
  for (int a = 0; a < 3; ++a) last[a] = std::min((block[a] + 1) * mSide, grid.Dims()[a] - 1);
  for (i32 z = block.z * mSide; z <= last.z; ++z)
    for (i32 y = block.y * mSide; y <= last.y; ++y) {
      const double* row = grid.mData + grid.Index(0, y, z);
      for (i32 x = block.x * mSide; x <= last.x; ++x) {
        low = std::min(low, row[x]);
        high = std::max(high, row[x]);
      }
    }
  if (low < std::min(kNear * mLength, outside) && high > -kNear * mLength) return 0;
  return high < 0 ? kDeep : kAway;
}

/// 1 2 1 along an axis.
void NearBlocks::SpreadAlong(i32 axis, const std::vector<double>& from,
                             std::vector<double>& to) const {
  const i64 step = axis == 0 ? 1 : axis == 1 ? mDims.x : i64{mDims.x} * mDims.y;
  ForEach([&](i32 i) {
    const i64 at = IndexOf(mCorners[i]);
    const i32 before = mCorners[i][axis] > 0 ? mNumbers[at - step] : -1;
    const i32 behind = mCorners[i][axis] + 1 < mDims[axis] ? mNumbers[at + step] : -1;
    to[i] = 0.5 * from[i] +
            0.25 * ((before >= 0 ? from[before] : 0) + (behind >= 0 ? from[behind] : 0));
  });
}

void NearBlocks::Spread(std::vector<double>& column, i32 turns) const {
  std::vector<double> other(column.size());
  for (i32 turn = 0; turn < turns; ++turn)
    for (i32 axis = 0; axis < 3; ++axis) {
      SpreadAlong(axis, column, other);
      column.swap(other);
    }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
