// `sulva check`: reads and validates a scene, runs nothing.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

namespace MELDO_GLOBAL::app {

/// Prints a one-line summary to standard output and answers 0, or all problems to standard error
/// and answers 3. Throws CommandError where the scene file can't be read.
/// With `strict` a warning answers 3 too. With `fix` it first brings volumes that link objects up
/// to date (see scene_fix.h), in the file itself; what the file held before goes to a new file
/// beside it that ends in ".bak".
int RunCheck(const std::filesystem::path& scene, bool fix = false, bool strict = false);

}  // namespace MELDO_GLOBAL::app
