// `sulva new`: a ready-made scene to start from.
#pragma once
#include <filesystem>
#include <string>

namespace MELDO_GLOBAL::app {

/// Lists the ready-made scenes (empty `name`), or copies one with its assets to `file`, by default
/// `<name>.json` in the working directory. Nothing that exists is overwritten.
/// Throws CommandError where a file can't be read or written.
int RunNew(const std::string& name, const std::filesystem::path& file);

}  // namespace MELDO_GLOBAL::app
