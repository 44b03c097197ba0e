// `sulva check`: reads and validates a scene, runs nothing.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

namespace MELDO_GLOBAL::app {

/// Prints a one-line summary to standard output and answers 0, or all problems to standard error
/// and answers 3. Throws CommandError where the scene file can't be read.
int RunCheck(const std::filesystem::path& scene, const std::vector<std::string>& overrides = {});

}  // namespace MELDO_GLOBAL::app
