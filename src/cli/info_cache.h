// What `sulva info` tells of the files of caches.
#pragma once
#include <filesystem>

namespace MELDO_GLOBAL::app {

/// Prints what stands in the file of a cache's frame, whose recording it is, and how long the cache
/// is that it belongs to. Throws CommandError (kExitFile) for one that can't be read.
void PrintCacheInfo(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::app
