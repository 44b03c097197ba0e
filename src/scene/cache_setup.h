// Scenes that get the nodes which record them.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "scene/json_tree.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

struct CacheSetup {
  std::string text;                ///< of the whole scene file
  std::vector<std::string> notes;  ///< what was done, a sentence for each server
};

/// Throws CommandError (kExitUsage) for a node that no cache takes.
void CheckCacheable(const host::BaseNode& node);

/// Gives every server of a scene cachers for the nodes in its `cache_objects`, or, where that list
/// is empty, for all fields, flows, groups of particles and meshers that none records yet: one for
/// what has grids, one for particles, one for meshes. The server's other `cache_...`
/// parameters say how. With `cache_setup_mode` new_server the nodes are copied below a server of
/// their own, which plays them back. All else in `text`, comments too, stays as it is. `root` is
/// `text`, read, and `scene` what it means.
/// Throws CommandError (kExitUsage) for a node that has its cache, or when nothing is left to do.
CacheSetup SetUpCaches(std::string_view text, const JsonValue& root, const LoadedScene& scene);

}  // namespace MELDO_GLOBAL::app
