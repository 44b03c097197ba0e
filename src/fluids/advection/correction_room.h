// What the limits leave a corrected field to come out even with.
#pragma once
#include "fluids/advection/advection_data.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Adds to the balances of fields that have an excess how far their values could go: the way to the
/// limit on the other side, times the part of a cell that the flow goes there in the step, at most
/// one. Where nothing moves nothing was made too much. All of `Balance` is there.
void SumRoom(const AdvectionData& data, const CellBox& box);

/// Takes the shares of that room: values stay inside of their limits, and the sum comes out even.
void LevelRoom(const AdvectionData& data, const CellBox& box);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
