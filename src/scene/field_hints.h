// What a valid scene most likely doesn't mean by its fields.
#pragma once
#include "scene/loaded_scene.h"
#include "scene/scene_places.h"

namespace MELDO_GLOBAL::app {

/// Warns of fields that are read and that nothing puts anything into, that nothing moves, or that
/// are moved twice, and of values that no field can hold.
void AddFieldHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);

}  // namespace MELDO_GLOBAL::app
