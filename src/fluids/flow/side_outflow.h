// What a flow carries through the open sides of its box.
#pragma once
#include "fluids/flow/flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What leaves `field`, which stands on the cells of the flow, through open sides in a step, less
/// what comes in there, in values above nothing times cells: through every face goes what lies on
/// the path that ends there.
double FindSideOutflow(const Flow& flow, const Grid<double>& field,
                       const ScalarWalls::Values& values);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
