// Whole files and folders, for commands: failures end them.
#pragma once
#include <filesystem>
#include <string_view>

namespace MELDO_GLOBAL::app {

/// `host::WriteFileAtomically` for commands: throws CommandError (kExitFile).
void WriteFileAtomically(const std::filesystem::path& path, std::string_view bytes);

/// Makes a folder with its parents. Throws CommandError (kExitFile).
void MakeFolder(const std::filesystem::path& path);

/// A name beside `path` that no file has yet: with .bak, .bak2, ... behind it.
std::filesystem::path BackupOf(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::app
