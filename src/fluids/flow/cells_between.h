// How far the grids of one lattice lie apart.
#pragma once
#include <cmath>

#include "grids/grid_layout.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How many cells the origin of `to` lies above that of `from`; both stand on one lattice.
inline VecInt3D CellsBetween(const GridLayout& from, const GridLayout& to) {
  VecInt3D cells;
  for (i32 a = 0; a < 3; ++a)
    cells[a] = static_cast<i32>(std::lround((to.simOrigin[a] - from.simOrigin[a]) / to.cellSize));
  return cells;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
