// Files that appear under their name only when they are whole, and reading whole files.
#pragma once
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace MELDO_GLOBAL::host {

/// A file that can't be read or written; `what()` names it and says why.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the name of a file that isn't whole yet ends with.
inline constexpr std::string_view kPartSuffix = ".part";

/// Writes `bytes` to a file beside `path` (its name with ".part" behind it), flushes it to the disk
/// and renames it to `path`, which a reader therefore sees old, or new and whole. Makes the folders
/// that are missing. Throws FileError and removes the unfinished file.
void WriteFileAtomically(const std::filesystem::path& path, std::string_view bytes);

/// Makes a folder with its parents. Throws FileError.
void MakeFolder(const std::filesystem::path& path);

/// All bytes of a file. Throws FileError.
std::string ReadFile(const std::filesystem::path& path);

/// Removes the unfinished files that a killed process left in a folder and the folders in it.
void RemoveParts(const std::filesystem::path& folder);

}  // namespace MELDO_GLOBAL::host
