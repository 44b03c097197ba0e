// What a valid scene most likely doesn't mean.
#pragma once
#include "scene/loaded_scene.h"

namespace MELDO_GLOBAL::app {

/// Warns of what is allowed but shows nothing, such as lengths in the wrong unit or a channel that
/// no node moves. The document stands at its first frame.
void AddHints(const LoadedScene& scene, Diagnostics& diagnostics);

}  // namespace MELDO_GLOBAL::app
