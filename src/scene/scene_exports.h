// The section "exports" of a scene file.
#pragma once
#include <vector>

#include "scene/loaded_scene.h"
#include "scene/scene_context.h"
#include "scene/scene_values.h"

namespace MELDO_GLOBAL::app {

/// Reads the list of exports; names of grids are resolved to nodes that hold grids. What doesn't
/// fit gets a message and is left out.
std::vector<ExportSpec> ReadExports(SceneContext& context, const NameTable& names,
                                    const JsonValue& list);

}  // namespace MELDO_GLOBAL::app
