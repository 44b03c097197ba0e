// Scene files whose volumes link objects where they should link mesh nodes.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "scene/json_tree.h"

namespace MELDO_GLOBAL::app {

struct SceneFix {
  std::string text;                ///< of the whole file
  std::vector<std::string> notes;  ///< what was done, a clause for each node; empty: nothing
};

/// Puts mesh nodes between volumes and the objects that they link: a `volume` gets a `mesh` below
/// it, and so does a `volume_multi` for each object in a list of up to four entries; the objects
/// of a longer list go into one `mesh_multi`. All else in `text`, comments too, stays as it is.
/// `root` is `text`, read.
SceneFix FixVolumes(std::string_view text, const JsonValue& root);

}  // namespace MELDO_GLOBAL::app
