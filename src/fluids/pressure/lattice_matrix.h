// A symmetric matrix of the cells of a grid.
#pragma once
#include <vector>

#include "grids/staggered_arrays.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A symmetric matrix whose row c, a cell of a grid, couples to the cells c +- 1, c +- nx and
/// c +- nx ny: a diagonal and three bands above it. Entries below the diagonal equal those above
/// and aren't stored. Cells of the outermost layer have no rows; a row whose diagonal is 0 counts
/// as a row without entries.
class LatticeMatrix {
 public:
  /// The part [first, last) of a line of cells along x that holds all its rows; the line starts at
  /// index `base`.
  struct Line {
    i32 base = 0;
    i32 first = 0, last = 0;
    bool IsEmpty() const { return first >= last; }
  };

  /// A matrix without entries for the cells of a grid; false when the memory can't be had. Runs on
  /// up to `threads` workers.
  bool SetLattice(const VecInt3D& dims, i32 threads);
  void Free();

  const VecInt3D& Dims() const { return mDims; }
  i32 Rows() const { return static_cast<i32>(mBands.Length()); }
  /// Distance of a cell's neighbours on an axis.
  i32 Offset(i32 axis) const { return axis == 0 ? 1 : axis == 1 ? mDims.x : mDims.x * mDims.y; }

  /// Adds to an entry of `row`, a cell off the outermost layer; `column` is the row itself or a
  /// neighbour. An addition below the diagonal is left to its twin above. Safe across rows.
  void AddToElement(i32 row, i32 column, double value);

  double* Diagonal() const { return mBands[0]; }
  /// Entries (c, c + Offset(axis)) by c.
  double* Upper(i32 axis) const { return mBands[1 + axis]; }

  /// Rows stand beside inner cells without rows whose value is 0, as those of a liquid at its
  /// surface. The entry from a row to such a cell above it tells how strongly the two couple; what
  /// a diagonal has beyond its entries couples it to those below.
  bool mHasAir = false;

  /// Finds the lines; call when all entries are in, before `LineAt`.
  void FindLines(i32 threads);
  /// The line at (y, z), both from 1 to n - 2.
  const Line& LineAt(i32 y, i32 z) const { return mLines[mDims.y * z + y]; }

 private:
  VecInt3D mDims{};
  StaggeredArrays mBands{4};
  std::vector<Line> mLines;
};

/// Layers of a slab that is walked in waves: wave t holds the lines (y, z) = (1 + t - k, z0 + k)
/// for k below this number. Lines of a wave don't touch one another, and all lower neighbours of a
/// line lie in earlier waves, so the result is that of the order z, y, x.
inline constexpr i32 kWaveLines = 4;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
