// Files that appear under their name only when they are whole, and reading whole files.
#pragma once
#include <cstddef>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/types.h"

namespace MELDO_GLOBAL::host {

/// A file that can't be read or written; `what()` names it and says why.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the name of a file that isn't whole yet ends with. Unfinished files are removed, so no
/// other program's files, such as downloads, may end so.
inline constexpr std::string_view kPartSuffix = ".sulva-part";

/// A file that is written beside `path` (its name with `kPartSuffix` behind it) until `Commit`
/// gives it its name, so that a reader sees it old, or new and whole. Without `Commit` nothing is
/// left of it. All of it throws FileError.
class PartFile {
 public:
  /// Makes the folders that are missing.
  explicit PartFile(std::filesystem::path path);
  ~PartFile();
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  void Append(std::string_view bytes);
  /// Over bytes that were appended.
  void Patch(u64 at, std::string_view bytes);
  /// Bytes that were appended, from byte `at` on.
  void Read(u64 at, std::span<char> bytes) const;
  /// Flushes the file to the disk and gives it its name.
  void Commit();

 private:
  std::filesystem::path mPath, mPart;
  int mFile = -1;
};

/// Writes a whole file by way of a PartFile. Throws FileError.
void WriteFileAtomically(const std::filesystem::path& path, std::string_view bytes);

/// Makes a folder with its parents. Throws FileError.
void MakeFolder(const std::filesystem::path& path);

/// All bytes of a file. Throws FileError.
std::string ReadFile(const std::filesystem::path& path);

/// Removes the unfinished files that a killed process left in a folder and the folders in it.
void RemoveParts(const std::filesystem::path& folder);

}  // namespace MELDO_GLOBAL::host
