// Scene files: from JSON text to a document of host objects and nodes.
#pragma once
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "scene/loaded_scene.h"

namespace MELDO_GLOBAL::app {

/// The bytes of a scene file. Throws CommandError (kExitFile).
std::string ReadSceneText(const std::filesystem::path& path);

/// Reads a scene file and applies `overrides` (each "NODE.PARAMETER=VALUE", as `--set` takes
/// them). The document stands at its first frame. Problems go to `diagnostics`; with an error among
/// them the result is empty (exit code 3).
/// Throws CommandError (kExitFile) where the scene file itself can't be read.
std::optional<LoadedScene> LoadScene(const std::filesystem::path& path, Diagnostics& diagnostics,
                                     const std::vector<std::string>& overrides = {});

}  // namespace MELDO_GLOBAL::app
