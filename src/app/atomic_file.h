// Files that appear under their name only when they are whole.
#pragma once
#include <filesystem>
#include <string_view>

namespace MELDO_GLOBAL::app {

/// Writes `bytes` to a file beside `path` (its name with ".part" behind it), flushes it to the disk
/// and renames it to `path`, which a reader therefore sees old, or new and whole. Makes the folders
/// that are missing. Throws CommandError (kExitFile) and removes the unfinished file.
void WriteFileAtomically(const std::filesystem::path& path, std::string_view bytes);

/// Makes a folder with its parents. Throws CommandError (kExitFile).
void MakeFolder(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::app
