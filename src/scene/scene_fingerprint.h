// What checkpoints, caches and exports recognise their scene by.
#pragma once
#include <set>
#include <string>
#include <vector>

#include "host/document.h"
#include "scene/json_tree.h"

namespace MELDO_GLOBAL::app {

/// A number that changes with all that a simulation depends on: the scene file's content without
/// its exports, pictures and last frame, the `overrides` that it depends on, and the polygons of
/// its objects. Comments, spaces, the file's place, the order of nodes and that of the members of
/// an object don't count.
///
/// The nodes of the names in `without` don't count either.
u64 FingerprintOf(const JsonValue& scene, const std::vector<std::string>& overrides,
                  const host::Document& document, const std::set<std::string>& without = {});

/// Whether a node is a cache that records, which changes nothing of what is simulated.
bool IsRecorder(const host::BaseNode& node);
/// The names of all of them in a document.
std::set<std::string> RecordersOf(const host::Document& document);

}  // namespace MELDO_GLOBAL::app
