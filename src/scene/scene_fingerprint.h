// What a checkpoint recognises its scene by.
#pragma once
#include <string>
#include <vector>

#include "host/document.h"
#include "scene/json_tree.h"

namespace MELDO_GLOBAL::app {

/// A number that changes with all that a simulation depends on: the scene file's content without
/// its exports, pictures and last frame, the `overrides` that it depends on, and the polygons of
/// its objects. Comments, spaces and the file's place don't count.
u64 FingerprintOf(const JsonValue& scene, const std::vector<std::string>& overrides,
                  const host::Document& document);

}  // namespace MELDO_GLOBAL::app
