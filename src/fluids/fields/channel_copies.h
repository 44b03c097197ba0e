// Helpers of the channel classes on their owned grids.
#pragma once
#include <memory>

#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A copy of a grid that may be absent.
template <class G>
std::unique_ptr<G> CopyOf(const std::unique_ptr<G>& grid) {
  return grid ? std::make_unique<G>(*grid) : nullptr;
}

/// Empties a grid that may be absent.
template <class G>
void ResetGrid(const std::unique_ptr<G>& grid, double initial) {
  if (!grid || !grid->mData) return;
  grid->ResetActive();
  grid->Fill(initial);
}

/// A sample at `c`, in cells of the layout, by mode; 0 without a grid.
template <class G>
double SampleGrid(const G* grid, const Vec3d& c, i32 mode, const MonotonicStencil* stencil) {
  if (!grid || !grid->mData) return 0;
  Vec3d p = c - OffsetOf(grid->mKind);
  if (mode == SAMPLE_LINEAR) return SampleLinear(*grid, p);
  if (mode == SAMPLE_BSPLINE) p += Vec3d{0.5, 0.5, 0.5};
  return Sample(*grid, p, mode, stencil);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
