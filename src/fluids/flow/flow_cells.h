// Fields on the cells of a flow, where the two have boxes of their own.
#pragma once
#include <memory>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Whether the cells of two layouts are those of one lattice, so that data can be copied.
bool AreOnOneLattice(const GridLayout& a, const GridLayout& b);

/// A copy of what a field holds over the cells of `layout`, the low end of its range where it has
/// no samples; null when the lattices differ or there is no memory.
std::unique_ptr<EGrid<double>> PartOver(const EGrid<double>& field, const GridLayout& layout);

/// Writes the samples of `part` but its outermost ones back into the field that it was taken from.
void PutBack(const EGrid<double>& part, EGrid<double>& field);

/// The samples of a field at the cells of a flow: its own where it stands on the flow's layout, as
/// it does while there is one solver, else a copy.
class CellSamples {
 public:
  /// False without a field, with one on another lattice, or without memory.
  bool Bind(const EGrid<double>* field, const GridLayout& layout);
  void Release();
  const EGrid<double>* Grid() const { return mGrid; }
  /// The samples as a copy of their own, to be changed; null without a field or memory.
  EGrid<double>* Own();
  /// One number per cell of the layout; null without a field.
  const double* Data() const { return mGrid ? mGrid->mData : nullptr; }

 private:
  const EGrid<double>* mGrid = nullptr;
  std::unique_ptr<EGrid<double>> mCopy;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
