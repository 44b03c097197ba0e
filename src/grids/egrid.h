// A grid with a place in the world.
#pragma once
#include <limits>

#include "grids/active_rows.h"
#include "grids/for_each_cell.h"
#include "grids/grid.h"
#include "grids/grid_layout.h"

namespace MELDO_GLOBAL {

/// A dense array with a `GridLayout`. `S` is the scalar of the layout, always double.
template <class T, class S = double>
class EGrid : public Grid<T> {
 public:
  GridLayout mLayout;
  VecInt3D mLastIndex;  ///< largest usable index of the layout's cells, per axis

  /// `dims` is the size of the array; on the staggered axes of `kind` the layout has one cell less.
  EGrid(const VecInt3D& dims, const Vec3d& worldSize, f32 cellSize, i32 kind,
        const Vec3d& worldOrigin)
      : Grid<T>(dims, kind) {
    mLayout.Set(dims - ExtraOf(kind), worldSize, cellSize, worldOrigin);
    mLastIndex = mLayout.dims - VecInt3D{1, 1, 1};
  }
  /// A zeroed grid of `kind` over the cells of `layout`.
  EGrid(const GridLayout& layout, i32 kind)
      : EGrid(layout.dims + ExtraOf(kind), layout.worldSize, layout.cellSize, kind,
              layout.worldOrigin) {}
  EGrid(const EGrid&) = default;

  /// A position in simulation units as sample coordinates of this grid.
  Vec3d ToSamples(const Vec3d& p) const { return mLayout.ToCells(p) - OffsetOf(this->mKind); }
  /// The position of a sample in simulation units.
  Vec3d PositionOf(i32 x, i32 y, i32 z) const {
    return mLayout.simOrigin +
           (Vec3d{double(x), double(y), double(z)} + OffsetOf(this->mKind)) * mLayout.simCell;
  }

  /// Rebuilds the active box from the data, and cleans the data.
  ///
  /// With ref = 0 for face kinds and `min` otherwise. Faces: a value within 1e-6 of ref becomes
  /// ref, any other extends the box. Others: a value of at least ref + 1e-6 extends the box and is
  /// limited to `max`, NaN stays, any other becomes ref; with `skipBorder` the outermost layer
  /// becomes ref. A box of a single sample grows by one on each axis. A range without bounds has
  /// nothing to clean: the whole grid is active.
  void UpdateActive(double min, double max, bool skipBorder) {
    const bool face = this->mKind < 3 && this->mKind >= 0;
    constexpr double huge = std::numeric_limits<double>::max();
    if (!face && min <= -huge && max >= huge) {
      this->mActiveMin = {0, 0, 0};
      this->mActiveMax = this->Dims() - VecInt3D{1, 1, 1};
      if (this->mActiveMin == this->mActiveMax) this->mActiveMax = {1, 1, 1};
      return;
    }
    const ActiveRule<T> rule(face, min, max);
    const i32 border = skipBorder && !face ? 1 : 0;
    const i32 first = border, count = this->mNx - 2 * border;
    VecInt3D lo = this->Dims(), hi{0, 0, 0};
    for (i32 z = 0; z < this->mNz; ++z)
      for (i32 y = 0; y < this->mNy; ++y) {
        T* row = this->mData + this->Index(0, y, z);
        if (border && (z == 0 || z == this->mNz - 1 || y == 0 || y == this->mNy - 1)) {
          std::fill_n(row, this->mNx, rule.reference);
          continue;
        }
        if (border) row[0] = row[this->mNx - 1] = rule.reference;
        const ActiveRow found = LookAtRow(row + first, count, rule);
        if (found.hasData) {
          for (i32 x = first; x < lo.x; ++x)
            if (rule.IsData(row[x])) lo.x = x;
          for (i32 x = first + count - 1; x > hi.x; --x)
            if (rule.IsData(row[x])) hi.x = x;
          lo = {lo.x, std::min(lo.y, y), std::min(lo.z, z)};
          hi = {hi.x, std::max(hi.y, y), std::max(hi.z, z)};
        }
        if (found.isUnclean) CleanRow(row + first, count, rule);
      }
    this->mActiveMin = lo;
    this->mActiveMax = hi;
    if (this->mActiveMin == this->mActiveMax) this->mActiveMax += VecInt3D{1, 1, 1};
  }

  /// The samples that `UpdateActive` would count as data, of those in a box; a range without bounds
  /// makes it all of them.
  CellBox FindData(const CellBox& box) const {
    const bool face = this->mKind < 3 && this->mKind >= 0;
    constexpr double huge = std::numeric_limits<double>::max();
    if (!face && this->mRangeMin <= -huge && this->mRangeMax >= huge) return box;
    const ActiveRule<T> rule(face, this->mRangeMin, this->mRangeMax);
    CellBox found{box.max, box.min};
    ForEachCell(box, [&](i32 x, i32 y, i32 z) {
      if (!rule.IsData(this->mData[this->Index(x, y, z)])) return;
      found.min = Min(found.min, {x, y, z});
      found.max = Max(found.max, {x + 1, y + 1, z + 1});
    });
    return found;
  }
};

}  // namespace MELDO_GLOBAL
