// Level sets without bumps.
#pragma once
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Takes bumps off the surface of a level set, by `steps` passes of a small binomial filter over
/// samples near it, none of which moves by more than a quarter of a cell, so that drops stay. Then
/// the surface is moved by as much as brings the volume back. Samples of `outside` or more with
/// none below beside them, and the outermost ones, stay as they are. The result doesn't depend on
/// `threads`.
void SmoothSurfaceOf(EGrid<double>& grid, double outside, i32 steps, i32 threads);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
