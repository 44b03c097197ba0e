// Finds where a liquid has no room for more.
#pragma once
#include "fluids/flow/full_rooms.h"
#include "fluids/particles/particle_sort.h"
#include "fluids/pressure/closed_regions.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Finds the rooms that are full after a step: closed regions with as many particles as fill what
/// is open of them (`open`, fractions of the cells of `sort`; `rest` particles fill a cell, and
/// with 0 any number does). A room that was full stays so as long as it holds as many, whatever
/// bubbles chance opens in it: each would let some more in.
void FindFullRooms(const ClosedRegions& regions, const ParticleSort& sort, const EGrid<float>& open,
                   double rest, FullRooms& full);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
