// Which cells a step that keeps totals has to look at.
#pragma once
#include <vector>

#include "fluids/advection/busy_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A run of cells along x for each row: all that holds something, and as much of what is round it
/// as the step can bring it to, or takes it from. A plume fills a fifth of its box.
class RowRuns {
 public:
  /// All cells.
  void TakeAll(const VecInt3D& dims);
  /// Those within `reach` and as far as evening sees of a cell that holds more than a trace, or
  /// whose flags, as `SolidCells` has them, tell of a solid; those of the traces with less round
  /// them. Paths lead `reach` cells along each axis, and solids move `travel` cells.
  void Take(const SparseField& field, const Grid<u8>& flags, const VecInt3D& reach, i32 travel,
            i32 threads);
  /// None of them.
  void TakeNone(const VecInt3D& dims);
  void Clear() { mRows.clear(); }
  bool IsEmpty() const { return mRows.empty(); }

  const VecInt3D& Dims() const { return mDims; }
  IndexRange At(i32 y, i32 z) const { return mRows[z * mDims.y + y]; }
  /// Without the outermost cells.
  IndexRange Inner(i32 y, i32 z) const {
    const IndexRange all = At(y, z);
    return {std::max(all.first, 1), std::min(all.last, mDims.x - 1)};
  }
  /// The cells whose neighbourhood, as far as paths lead, is active: nobody else asks for anything
  /// of theirs.
  IndexRange Core(i32 y, i32 z) const { return mCore[z * mDims.y + y]; }
  /// Whether paths from active rows lead to this one.
  bool IsNear(i32 y, i32 z) const { return mNear[z * mDims.y + y]; }
  /// Calls f(first, last) for the parts of a row that were active in `before`, of the same size,
  /// and aren't any more.
  template <class F>
  void ForEachLeft(const RowRuns& before, i32 y, i32 z, F&& f) const {
    const IndexRange was = before.At(y, z), now = At(y, z);
    if (now.IsEmpty()) {
      if (!was.IsEmpty()) f(was.first, was.last);
      return;
    }
    if (was.first < now.first) f(was.first, std::min(was.last, now.first));
    if (was.last > now.last) f(std::max(was.first, now.last), was.last);
  }

 private:
  std::vector<IndexRange> FindWithin(const SparseField& field, const Grid<u8>& flags, double trace,
                                     const VecInt3D& reach, i32 threads) const;
  void FindCore(const VecInt3D& reach);
  void FindNear(const VecInt3D& reach);

  VecInt3D mDims{};
  std::vector<IndexRange> mRows, mCore;  ///< by y and z
  std::vector<u8> mNear;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
