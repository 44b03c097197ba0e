// The one rule for the names that a scene gives to what it writes.
#pragma once
#include <string>
#include <vector>

#include "scene/scene_nodes.h"

namespace MELDO_GLOBAL::app {

/// Why a file may not have this name below the output folder, as the end of a sentence that begins
/// with it; empty where it may.
std::string FaultOfOutputName(const std::string& name);

/// Reports caches whose files would not lie in their folder.
void CheckCacheNames(SceneContext& context, const std::vector<MadeNode>& nodes);

}  // namespace MELDO_GLOBAL::app
