// Level sets without bumps.
#pragma once
#include "grids/egrid.h"
#include "grids/point_lookup.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What the surface of a liquid has to hold.
struct SurfaceLiquid {
  double cell = 1;  ///< of the scene, simulation units
  /// Its particles, of which each fills `each`, cubed simulation units; without them it holds what
  /// it held before bumps were taken off.
  const PointLookup* points = nullptr;
  double each = 0;
  double full = 0;  ///< by how much that overfills what is full all round; 0 where it isn't known
};

/// Takes bumps off the surface of a level set, by `steps` passes of a small binomial filter over
/// samples near it, none of which moves by more than a quarter of a cell. Then each place of the
/// surface moves by what the cells about it lack of the liquid. Samples of `outside` or more with
/// none below beside them, and the outermost ones, stay as they are. Returns `full`,
/// found where it was 0 and enough is full. The result doesn't depend on `threads`.
double SmoothSurfaceOf(EGrid<double>& grid, double outside, i32 steps, i32 threads,
                       const SurfaceLiquid& liquid);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
