// Moving values from one grid into another, and grids into another container.
#pragma once
#include <memory>

#include "grids/egrid.h"
#include "grids/for_each_cell.h"
#include "host/worker_pool.h"

namespace MELDO_GLOBAL {

/// How a source value `v` goes into the target sample `t`.
enum ResampleWrite : i32 {
  kWriteValue = 0,      ///< t = v
  kWriteNormalise = 1,  ///< t = (v - source.mRangeMin) / source.mRangeMax
  kWriteScale = 2,      ///< t = v * target.mRangeMax + target.mRangeMin
  kWriteMin = 3,        ///< t = min(t, v)
  kWriteMax = 4,        ///< t = max(t, v)
};

/// Resamples between grids of one value type, by direct copy on a shared cell lattice or by
/// sampling at the positions of the target's samples.
template <class T>
class EGridResamplerOf {
 public:
  i32 mSampleMode = 0;
  i32 mWriteMode = 0;
  const EGrid<T>* mSource = nullptr;
  EGrid<T>* mTarget = nullptr;
  /// Samples added to a target index by `Copy`, subtracted from a source coordinate by
  /// `Interpolate`.
  VecInt3D mOffset{};
  bool mDirect = false;
  bool mIncludeBorder = true;  ///< the target's outermost layer as well

  /// False without a source, a target or a layer.
  bool Init(const EGrid<T>* source, EGrid<T>* target, bool direct, i32 sampleMode, i32 writeMode,
            const VecInt3D& offset, bool includeBorder);
  /// The whole target on `threads` workers; false on a cancel.
  bool Run(i32 threads, host::HostThread* thread = nullptr);

  /// Samples the source at the place of every target sample in [min, max), each kind at its own
  /// offset in the cell. Write modes as told at `ResampleWrite`. False on a null grid or a cancel;
  /// the target then holds part of the data.
  bool Interpolate(const VecInt3D& min, const VecInt3D& max, host::HostThread* thread);
  /// Copies the source sample at the target's index plus `mOffset`, for all samples of the box; the
  /// box moved by the offset must lie inside the source. False on a null grid or a cancel.
  bool Copy(const VecInt3D& min, const VecInt3D& max, host::HostThread* thread);
};

using EGridResampler = EGridResamplerOf<double>;
using EGridfResampler = EGridResamplerOf<float>;

/// The overlap of two grids on the same lattice of global cells: a box of the target, and what
/// takes its indices to the source.
struct GridOverlap {
  CellBox box;
  VecInt3D offset{};
};
template <class T>
GridOverlap OverlapOf(const EGrid<T>& source, const EGrid<T>& target);

/// A grid of array size `dims` that holds `initial`, with the data of `old` in place where both
/// grids have samples, every one bit-equal. `old` (may be null, of one cell carries nothing over)
/// has the same cell size, and origins are whole numbers of cells. The active box is empty, the
/// value range that of `old`. When the allocation fails the grid's `mData` is null.
template <class T>
std::unique_ptr<EGrid<T>> Resized(const EGrid<T>* old, const VecInt3D& dims, const Vec3d& worldSize,
                                  f32 cellSize, i32 kind, const Vec3d& worldOrigin, double initial);
/// The same for the samples of `kind` over the cells of `layout`.
template <class T>
std::unique_ptr<EGrid<T>> Resized(const EGrid<T>* old, const GridLayout& layout, i32 kind,
                                  double initial) {
  return Resized(old, layout.dims + ExtraOf(kind), layout.worldSize, layout.cellSize, kind,
                 layout.worldOrigin, initial);
}

}  // namespace MELDO_GLOBAL
