// Who writes which layer, when the work of many objects meets in the same grids.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL {

/// Deals the z layers of the world's cell lattice to workers, in blocks of a fixed thickness.
///
/// All grids of a scene lie on one lattice, so a layer has the same owner for every object and
/// every grid. Where each worker writes its own layers only, and takes what its neighbours' cells
/// give to them in the order of the cells, the sums don't depend on the number of workers.
struct LayerOwner {
  i32 index = 0;  ///< the worker
  i32 count = 1;  ///< workers

  static constexpr i32 kThickness = 4;

  /// Whether this worker owns a layer, given in cells of the lattice.
  bool Owns(i32 globalLayer) const {
    const i32 block = globalLayer >= 0 ? globalLayer / kThickness
                                       : -((-globalLayer + kThickness - 1) / kThickness);
    const i32 owner = block % count;
    return (owner < 0 ? owner + count : owner) == index;
  }
  /// Whether it owns the layer or one next to it, where a splat reaches.
  bool Reaches(i32 globalLayer) const {
    return Owns(globalLayer) || Owns(globalLayer - 1) || Owns(globalLayer + 1);
  }
};

}  // namespace MELDO_GLOBAL
