// Node kinds that links to fields accept.
#pragma once
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The kinds of channels.
const std::vector<i32>& ChannelKinds();
/// The same and the solvers, which have fields of their own.
const std::vector<i32>& FieldKinds();

}  // namespace MELDO_GLOBAL::MELDO_SULVA
