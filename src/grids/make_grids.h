// Sets of grids that work together.
#pragma once
#include <memory>

#include "grids/grid.h"

namespace MELDO_GLOBAL {

/// Makes those of some grids that are missing, with samples at the centres of `dims` cells; false
/// where there is no memory for one.
template <class... T>
bool MakeGrids(const VecInt3D& dims, std::unique_ptr<Grid<T>>&... grids) {
  const auto make = [&]<class S>(std::unique_ptr<Grid<S>>& grid) {
    if (!grid) grid = std::make_unique<Grid<S>>(dims, kCentre);
    return grid->mData != nullptr;
  };
  return (make(grids) && ...);
}

}  // namespace MELDO_GLOBAL
