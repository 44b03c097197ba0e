// What a corrected step has to know of the air beyond open sides.
#pragma once
#include "fluids/advection/advection_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Where air leaves through an open side, the outermost layer of what was predicted, of one layer
/// of cells, takes what the paths bring there: the field goes on as it does in front of the side.
/// Where air comes in it keeps what it holds.
void PredictOutside(const AdvectionData& data, i32 z);

/// Adds the corrections of the air that comes in, beside one layer of cells, to the sums of those
/// fields that have some. A field is corrected to as much in all as it was, over all there is: what
/// lies beyond a side takes its part. It holds the same as before, for more air comes behind it, so
/// that the limits leave nothing of its correction.
void AddInflowCorrections(const AdvectionData& data, i32 z);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
