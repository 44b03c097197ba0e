// Parameter rows that channel nodes share.
#pragma once
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What every channel has: buffers, bounds and the viewport display.
host::ParameterTable ChannelRows();
/// The value range of a scalar channel, followed by `ChannelRows`.
host::ParameterTable ScalarChannelRows(double valueMax);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
