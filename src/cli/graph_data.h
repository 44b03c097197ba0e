// The graph of a scene's nodes as data: what a page or a listing shows of it.
#pragma once
#include <nlohmann/json.hpp>

#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

/// An object with
///   title, frames [first, last], fps;
///   stages [{number, name, work}];
///   kinds {type: {label, class, group, stages, priority, parameters [{name, id, type, unit, help,
///     default, limits, choices}]}};
///   nodes [{name, path, type, group, parent, enabled, position, values {parameter: {value, keys}},
///     obstacle {...}, idle, unread}], where values hold what differs from the defaults, idle says
///     why the node never works, and unread is there where it only serves and nobody reads it;
///   links [{from, to, parameter}], from the node that names another to the one that it names, by
///     index into nodes.
/// Objects, materials and exports are nodes of this graph too.
nlohmann::ordered_json GraphData(const LoadedScene& scene);

}  // namespace MELDO_GLOBAL::app
