// Velocity at the six sides of a grid.
#pragma once
#include <array>

#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The component grids of a staggered velocity.
using StaggeredGrids = std::array<EGrid<double>*, 3>;

/// Sets the staggered velocity at the sides of its grids. `walls` holds `WallBit`s. The normal
/// component of the first inner face is 0 at a wall, and is copied to the outermost face at every
/// side; the tangential components of the outermost layer at a wall are `factor` times those of the
/// layer inside it (1 slips freely, 0 sticks).
void SetWallVelocities(const StaggeredGrids& velocity, u8 walls, double factor);

/// The tangential part of `SetWallVelocities` alone.
void SetWallTangents(const StaggeredGrids& velocity, u8 walls, double factor);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
