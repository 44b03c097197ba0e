// Several sweeps over a grid while its layers are at hand.
#pragma once
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Runs f(sweep, z) for sweeps 0 .. count - 1 over the layers [first, last). A sweep may read in a
/// layer and the two beside it what the one before has left there, and writes in the layer what no
/// other sweep reads, but for the next one. Sweep s follows a layer behind sweep s - 1, so that
/// memory is read once for all of them. Workers have slabs of their own, with one layer less at
/// each seam from sweep to sweep; what is missing there follows when the slabs on both sides are
/// done.
template <class F>
void SweepLayers(i32 first, i32 last, i32 count, i32 threads, F&& f) {
  const i32 leastLayers = 4 * count;  // so that seams keep apart
  const i32 slabs = std::clamp((last - first) / leastLayers, 1, std::max(threads, 1));
  ForEachBlock(slabs, threads, [&](i32 slab) {
    const IndexRange own = PartOf(slab, slabs, first, last);
    const i32 below = slab > 0, above = slab < slabs - 1;
    for (i32 front = own.first; front < own.last + count - 1; ++front)
      for (i32 s = 0; s < count; ++s) {
        const i32 z = front - s;
        if (z >= own.first + below * s && z < own.last - above * s) f(s, z);
      }
  });
  ForEachBlock(slabs - 1, threads, [&](i32 seam) {
    const i32 z0 = PartOf(seam, slabs, first, last).last;
    for (i32 s = 1; s < count; ++s)
      for (i32 z = z0 - s; z < z0 + s; ++z) f(s, z);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
