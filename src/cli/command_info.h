// `sulva info`: what a file holds.
#pragma once
#include <filesystem>

namespace MELDO_GLOBAL::app {

/// Prints what a cache, a checkpoint or a volume file holds and answers the exit code. Throws
/// CommandError (kExitFile) for a file that is none of them or is damaged.
int RunInfo(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::app
