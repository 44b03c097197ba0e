// Cells that still particles share out.
#pragma once
#include <algorithm>
#include <cmath>

#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Into how many parts along an axis still particles share out the cells of a grid, which they
/// fill evenly though chance put them off the middles of their parts; 0 for other cells.
struct EvenCells : Grid<u8> {
  using Grid<u8>::Grid;
  i32 PartsAt(const Vec3d& p) const {
    VecInt3D cell;
    for (i32 a = 0; a < 3; ++a) cell[a] = std::clamp(static_cast<i32>(p[a]), 0, Dims()[a] - 1);
    return (*this)[Index(cell.x, cell.y, cell.z)];
  }
  /// A place, in cells, or the middle of its part.
  Vec3d Place(const Vec3d& p) const {
    const double parts = PartsAt(p);
    if (!(parts > 0)) return p;
    const auto middle = [&](double v) { return (std::floor(v * parts) + 0.5) / parts; };
    return {middle(p.x), middle(p.y), middle(p.z)};
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
