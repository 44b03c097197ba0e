// Where fields that move can't change.
#pragma once
#include <span>
#include <vector>

#include "fluids/fields/trace_path.h"
#include "grids/fixed_blocks.h"
#include "grids/grid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A field and the value of a cell that holds nothing.
struct SparseField {
  const Grid<double>* field;
  double nothing;
};

/// The largest magnitude of `n` numbers; not a finite one where one of them isn't.
double LargestOf(const double* values, i32 n);
/// How many cells along each axis a path of a step leads at most, where `perCell` is the time of
/// the step over the cell size; false where that is too far to look at, or not finite.
bool FindReach(const StaggeredVelocity& velocity, double perCell, i32 threads, VecInt3D& reach);

/// Runs of cells along x that a step has to move: where no path can meet anything but cells that
/// hold nothing, and no solid, the fields stay as they are. A plume fills a fifth of its box.
class BusyBlocks {
 public:
  /// Finds the runs of fields on cells, which paths of at most `reach` cells along each axis read.
  /// `flags` are those of `SolidCells`, of the fields' size.
  void Find(std::span<const SparseField> fields, const Grid<u8>& flags, const VecInt3D& reach,
            i32 threads);

  /// The part of the cells [first, last) of an inner row that holds all that are busy; `first` is 1
  /// or lies a multiple of 64 behind it.
  IndexRange PartOf(i32 first, i32 last, i32 y, i32 z) const;

 private:
  static constexpr i32 kCells = 4;  ///< of a block

  u8* Row(std::vector<u8>& marks, i32 y, i32 z) const {
    return marks.data() + (i64{mDims.y} * z + y) * mBlocks;
  }
  void MarkRow(std::span<const SparseField> fields, const Grid<u8>& flags, i32 y, i32 z,
               u8* marks) const;

  VecInt3D mDims{};
  i32 mBlocks = 0;         ///< of a row: from cell 1 on, with those at the ends
  std::vector<u8> mMarks;  ///< by block: it is busy
  std::vector<u8> mSpread;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
