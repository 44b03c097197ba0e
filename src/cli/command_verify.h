// The command `sulva verify`.
#pragma once
#include <filesystem>

namespace MELDO_GLOBAL::app {

/// Holds an output folder against its manifest: whether every frame and file is there with its
/// bytes, of one simulation, and every checkpoint whole. Prints a line a finding, and a last one.
/// Answers kExitFile where there are findings; changes nothing. Throws CommandError (kExitFile)
/// where there is no manifest to go by.
int RunVerify(const std::filesystem::path& out);

}  // namespace MELDO_GLOBAL::app
