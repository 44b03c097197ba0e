// `sulva graph`: the graph of a scene's nodes, as a listing or as a web page.
#pragma once
#include <filesystem>

namespace MELDO_GLOBAL::app {

/// Prints the nodes of a scene by the stage in which they run, with their links, to standard
/// output; with `page` writes a web page of them to that file instead. The page stands alone: it
/// asks for nothing else. An invalid scene gets its messages and answers 3; throws CommandError
/// (kExitFile) where a file can't be read or written.
int RunGraph(const std::filesystem::path& scene, const std::filesystem::path& page);

}  // namespace MELDO_GLOBAL::app
