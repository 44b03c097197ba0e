// Links that are given and lead to what takes no part.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class iBase;

/// Puts an object to sleep whose link of a row leads to what is switched off or not in its scene;
/// true where it did. For links that, empty, mean something else. `scene/reachability.cpp` tells of
/// the same rows before the run.
bool RestsByDeadLink(iBase& object, i32 row);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
