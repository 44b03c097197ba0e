// Level sets without bumps.
#pragma once
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Takes bumps off the surface of a level set, by `steps` passes of a small binomial filter over
/// samples near it, none of which moves by more than a quarter of a cell, so that drops stay. Then
/// the surface is moved by as much as brings the volume back. Samples of `outside` or more with
/// none below beside them, and the outermost ones, stay as they are. The result doesn't depend on
/// `threads`.
///
/// Samples a cell apart cut off the edges of what they show. Where less than `liquid`, a volume in
/// cubed simulation units, is enclosed, convex edges move outwards until all of it is, by up to
/// three times what the filter takes off them, and then all of it by up to 0.06 cells; what lacks
/// much more than edges take isn't missed.
void SmoothSurfaceOf(EGrid<double>& grid, double outside, i32 steps, i32 threads,
                     double liquid = 0);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
