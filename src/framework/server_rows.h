// The parameters of a server that others speak of.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA::server_row {

enum Row : i32 {
  kSimulationUnits = 1001,
  kCellSize = 1002,
  kExtraSubsteps = 1005,
  kExtraMinSubsteps = 1010,
  kRenderCellSize = 1015,
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA::server_row
