// The units in which files tell the values of fields.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The unit of the values that a kind of node, by type and scene list, has on grids: such as "m/s",
/// "1" for plain numbers, and empty for a kind without a field.
const char* UnitOfField(i32 typeId, i32 list);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
