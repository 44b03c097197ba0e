// Files that appear under their name only when they are whole, and reading whole files.
#pragma once
#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "host/file_error.h"
#include "host/types.h"

namespace MELDO_GLOBAL::host {

/// What the name of a file that isn't whole yet ends with. Unfinished files are removed, so no
/// other program's files, such as downloads, may end so.
inline constexpr std::string_view kPartSuffix = ".sulva-part";

/// A file that is written beside `path` until `Commit` gives it its name, so that a reader sees it
/// old, or new and whole. Without `Commit` nothing is left of it. All of it throws FileError.
///
/// Beside it stands a new file of a name that nothing has (the file's own, a tag and
/// `kPartSuffix`), in the folder as it was opened: what others planted there is neither followed
/// nor waited for, and two processes never write into one another's. It is locked as long as this
/// process lives, which tells unfinished files from those that a killed process left.
class PartFile {
 public:
  /// Makes the folders that are missing, where the OutputGuard allows it.
  explicit PartFile(std::filesystem::path path);
  ~PartFile();
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  void Append(std::string_view bytes);
  /// Over bytes that were appended.
  void Patch(u64 at, std::string_view bytes);
  /// Bytes that were appended, from byte `at` on.
  void Read(u64 at, std::span<char> bytes) const;
  /// Flushes the file to the disk, gives it its name and flushes the folder.
  void Commit();

 private:
  std::filesystem::path mPath;
  std::string mName, mPart;  ///< in the folder
  int mFolder = -1, mFile = -1;
};

/// Writes a whole file by way of a PartFile. Throws FileError.
void WriteFileAtomically(const std::filesystem::path& path, std::string_view bytes);

/// Makes a folder with its parents, where the OutputGuard allows it. Throws FileError.
void MakeFolder(const std::filesystem::path& path);

/// Opens a plain file to append lines to it, made where it is missing, and answers its descriptor.
/// A link is refused, and so is what is no plain file. Throws FileError.
int OpenToAppend(const std::filesystem::path& path);

/// All bytes of a plain file. Throws FileError; what is no plain file, such as a pipe, isn't waited
/// for.
std::string ReadFile(const std::filesystem::path& path);

/// The name that an unfinished file would have had; empty where the file is none.
std::filesystem::path NameOfPart(const std::filesystem::path& part);

/// Removes an unfinished file, unless a living process writes it.
void RemovePart(const std::filesystem::path& part);

/// Removes the unfinished files that a killed process left in a folder and the folders in it, but
/// for the one below it that is named `spared`.
void RemoveParts(const std::filesystem::path& folder, const std::string& spared = {});

/// Gives 0, 1 and 2 to nothing where they are closed, so that no file of ours gets their number and
/// what is printed doesn't land in it. Printing then fails.
void SettleStandardDescriptors();

}  // namespace MELDO_GLOBAL::host
