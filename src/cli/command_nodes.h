// `sulva nodes`: the catalogue, or one kind with its parameters, as text or JSON.
#pragma once
#include <string>

namespace MELDO_GLOBAL::app {

/// Prints the catalogue to standard output; `kind` (short name, label or id) picks one, empty
/// takes all. The tables that pictures use ("camera", "light", "render", "surface", "gas") can be
/// asked for too. An unknown kind gets a message and answers 2.
int RunNodes(const std::string& kind, bool json);

/// Prints the JSON schema of scene files to standard output (`sulva nodes --schema`).
int RunNodesSchema();

}  // namespace MELDO_GLOBAL::app
