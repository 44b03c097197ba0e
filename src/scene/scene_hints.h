// What a valid scene most likely doesn't mean.
#pragma once
#include "scene/loaded_scene.h"
#include "scene/scene_places.h"

namespace MELDO_GLOBAL::app {

/// Warns of what is allowed but shows nothing, such as lengths in the wrong unit or a channel that
/// no node moves. The document stands at its first frame.
void AddHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);

}  // namespace MELDO_GLOBAL::app
