// Which cells of a grid no solid can touch.
#pragma once
#include <memory>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A byte per cell: 1 where all eight nodes of the solid level set are clearly positive and the
/// cell isn't in the outermost layer, so that a point in the cell neither lies in a solid nor is
/// moved by a push-out. Lets kernels over many points skip both tests with the same result.
class SolidCells {
 public:
  SolidCells() = default;
  SolidCells(const SolidCells&) {}

  /// `levelSet` stands on nodes; the result doesn't depend on `threads`.
  void Build(const EGrid<double>& levelSet, i32 threads);
  void Release() { mClear.reset(); }
  /// Null before the first `Build`.
  const Grid<u8>* Get() const { return mClear.get(); }

 private:
  std::unique_ptr<Grid<u8>> mClear;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
