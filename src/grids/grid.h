// Dense 3D arrays.
#pragma once
#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include "grids/grid_memory.h"
#include "host/types.h"
#include "host/vector.h"

namespace MELDO_GLOBAL {

/// Where the samples of a grid sit in a cell.
enum GridKind : i32 {
  kFaceX = 0,
  kFaceY = 1,
  kFaceZ = 2,
  kNode = 14,
  kCentre = 60,
  kEdgeZ = 103,
  kEdgeY = 104,
  kEdgeX = 105,
};

/// Offset of the samples of a kind from a cell's lower corner, in cells.
constexpr Vec3d OffsetOf(i32 kind) {
  switch (kind) {
    case kFaceX: return {0, 0.5, 0.5};
    case kFaceY: return {0.5, 0, 0.5};
    case kFaceZ: return {0.5, 0.5, 0};
    case kNode:
    case kEdgeX:
    case kEdgeY:
    case kEdgeZ: return {0, 0, 0};
    default: return {0.5, 0.5, 0.5};
  }
}

/// Samples that a kind has beyond the cells of its layout, per axis.
constexpr VecInt3D ExtraOf(i32 kind) {
  switch (kind) {
    case kFaceX: return {1, 0, 0};
    case kFaceY: return {0, 1, 0};
    case kFaceZ: return {0, 0, 1};
    case kNode: return {1, 1, 1};
    default: return {0, 0, 0};
  }
}

/// The product of three sizes; one that an index can't number is limited to the largest i32, and
/// a grid of that count has no data.
constexpr i32 CountOf(const VecInt3D& dims) {
  constexpr i64 most = std::numeric_limits<i32>::max();
  const i64 slice = std::min(i64{dims.x} * dims.y, most);
  return static_cast<i32>(std::min(slice * dims.z, most));
}

template <class T>
class iGrid {
 public:
  virtual ~iGrid() = default;
};

/// A dense array of `mNx * mNy * mNz` samples, x fastest, with the box of samples that hold data.
///
/// An allocation that fails leaves `mData` null with `mCount` set; owners test it.
template <class T>
class Grid : public iGrid<T> {
 public:
  i32 mKind;
  i32 mNx, mNy, mNz;
  i32 mCount;
  i32 mSlice;  ///< step between z layers
  T* mData = nullptr;
  VecInt3D mActiveMin;  ///< starts at the size: empty
  VecInt3D mActiveMax;  ///< the last sample that holds data; starts at 0
  double mRangeMin = 0;
  double mRangeMax = 0;

  Grid(const VecInt3D& dims, i32 kind)
      : mKind(kind),
        mNx(dims.x),
        mNy(dims.y),
        mNz(dims.z),
        mCount(CountOf(dims)),
        mSlice(CountOf({dims.x, dims.y, 1})) {
    ResetActive();
    if (mCount > 0) {
      mData = static_cast<T*>(AllocateGridMemory(dims, sizeof(T)));
      if (mData) std::uninitialized_value_construct_n(mData, mCount);
    }
  }
  Grid(const Grid& other) : Grid(other.Dims(), other.mKind) {
    if (mData && other.mData) std::copy_n(other.mData, mCount, mData);
    mActiveMin = other.mActiveMin;
    mActiveMax = other.mActiveMax;
    mRangeMin = other.mRangeMin;
    mRangeMax = other.mRangeMax;
  }
  Grid& operator=(const Grid&) = delete;
  ~Grid() override {
    if (!mData) return;
    std::destroy_n(mData, mCount);
    FreeGridMemory(mData, sizeof(T) * mCount);
  }

  VecInt3D Dims() const { return {mNx, mNy, mNz}; }
  i32 Index(i32 x, i32 y, i32 z) const { return (mNy * z + y) * mNx + x; }
  T& operator()(i32 x, i32 y, i32 z) { return mData[Index(x, y, z)]; }
  const T& operator()(i32 x, i32 y, i32 z) const { return mData[Index(x, y, z)]; }
  T& operator[](i32 index) { return mData[index]; }
  const T& operator[](i32 index) const { return mData[index]; }

  void Fill(const T& value) { std::fill_n(mData, mCount, value); }
  /// Swaps the data alone: both grids have the same shape.
  void Swap(Grid& other) { std::swap(mData, other.mData); }
  void ResetActive() {
    mActiveMin = Dims();
    mActiveMax = {0, 0, 0};
  }
  bool IsActiveEmpty() const {
    return mActiveMin.x > mActiveMax.x || mActiveMin.y > mActiveMax.y ||
           mActiveMin.z > mActiveMax.z;
  }
  i64 GetByteSize() const { return mCount * static_cast<i64>(sizeof(T)) + 24; }
};

}  // namespace MELDO_GLOBAL
