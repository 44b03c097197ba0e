// Blocks of samples near a surface.
#pragma once
#include <algorithm>
#include <cmath>
#include <vector>

#include "grids/egrid.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The blocks of a level set, each as large as a cell of the scene, that come near its surface.
/// Values of these stand in columns, in the order of the blocks.
class NearBlocks {
 public:
  /// `cell` is that of the scene, simulation units. Near is what has samples less than 0.6 of it
  /// off the surface, or on both sides, and below `outside`.
  NearBlocks(const EGrid<double>& grid, double cell, double outside, i32 threads);
  /// Samples of a block along an axis.
  static i32 SideOf(double cell, double sample) {
    return std::max(1, static_cast<i32>(std::lround(cell / sample)));
  }

  i32 Count() const { return static_cast<i32>(mCorners.size()); }
  i32 Side() const { return mSide; }         ///< samples of a block along an axis
  double Length() const { return mLength; }  ///< the same, simulation units
  const VecInt3D& Dims() const { return mDims; }
  /// The first sample of a block.
  VecInt3D FirstSample(i32 i) const { return mCorners[i] * mSide; }
  /// The number of a block by its place, below 0 where it isn't near.
  i32 At(i32 x, i32 y, i32 z) const { return mNumbers[IndexOf({x, y, z})]; }
  /// Whether a block that isn't near lies inside, and how many do.
  bool IsDeep(i32 x, i32 y, i32 z) const { return At(x, y, z) == kDeep; }
  i64 DeepCount() const { return std::count(mNumbers.begin(), mNumbers.end(), kDeep); }

  template <class F>
  void ForEach(F&& f) const {
    constexpr i32 kRun = 256;
    ForEachBlock((Count() + kRun - 1) / kRun, mThreads, [&](i32 run) {
      for (i32 i = run * kRun; i < std::min(Count(), (run + 1) * kRun); ++i) f(i);
    });
  }
  /// Calls f(number, which) for the near ones among a block and those round it, `which` from 0 to
  /// 26, x fastest.
  template <class F>
  void ForEachAbout(i32 i, F&& f) const {
    const VecInt3D& b = mCorners[i];
    i32 which = 0;
    for (i32 z = b.z - 1; z <= b.z + 1; ++z)
      for (i32 y = b.y - 1; y <= b.y + 1; ++y)
        for (i32 x = b.x - 1; x <= b.x + 1; ++x, ++which) {
          if (std::min({x, y, z}) < 0 || x >= mDims.x || y >= mDims.y || z >= mDims.z) continue;
          if (const i32 number = At(x, y, z); number >= 0) f(number, which);
        }
  }
  /// Spreads a column by 1 2 1 along each axis, `turns` times; what leaves the near blocks is lost.
  void Spread(std::vector<double>& column, i32 turns) const;

 private:
  static constexpr i32 kAway = -1, kDeep = -2;

  i64 IndexOf(const VecInt3D& b) const { return (i64{b.z} * mDims.y + b.y) * mDims.x + b.x; }
  /// 0 where a block is near, else where it is.
  i32 PlaceOf(const EGrid<double>& grid, double outside, const VecInt3D& block) const;
  void SpreadAlong(i32 axis, const std::vector<double>& from, std::vector<double>& to) const;

  i32 mThreads, mSide;
  double mLength;
  VecInt3D mDims;
  std::vector<i32> mNumbers;
  std::vector<VecInt3D> mCorners;  ///< in blocks
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
