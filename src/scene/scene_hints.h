// What a valid scene most likely doesn't mean.
#pragma once
#include <map>
#include <string>

#include "scene/loaded_scene.h"
#include "scene/scene_places.h"

namespace MELDO_GLOBAL::app {

/// The emitters of which nothing ever comes out, by node, and why, in a clause: their shape has no
/// inside, or it lies where no gas ever is.
std::map<host::NodeId, std::string> FindEmptyShapes(const LoadedScene& scene,
                                                    const ScenePlaces& places);

/// Warns of what is allowed but shows nothing, such as lengths in the wrong unit. The document
/// stands at its first frame.
void AddHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics);

}  // namespace MELDO_GLOBAL::app
