// Sums of particles into grids, the same for any number of workers.
#pragma once
#include "fluids/particles/particle_sort.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Calls f(entry) for the sorted particles in slabs of layers of cells, those of a slab one after
/// the other in the order of the sort. f may add to samples up to one layer beyond a particle's
/// own: slabs run in two colours, and those of a colour are as far apart as a slab is thick, so
/// that none touches what another one writes.
template <class F>
void ForEachInSlabs(const ParticleSort& sort, i32 threads, F&& f) {
  constexpr i32 kSlab = 4;
  const VecInt3D n = sort.Layout().dims;
  const i32 slabs = (n.z + kSlab - 1) / kSlab;
  for (const i32 colour : {0, 1})
    ForEachBlock((slabs + 1 - colour) / 2, threads, [&](i32 pair) {
      const i32 first = (2 * pair + colour) * kSlab;
      sort.ForEachInBox({0, 0, first}, {n.x, n.y, first + kSlab}, f);
    });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
