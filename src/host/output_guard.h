// Where this process may write.
#pragma once
#include <filesystem>

#include "host/types.h"

namespace MELDO_GLOBAL::host {

/// While one lives, files are made in its folder alone, and only as long as that is the folder that
/// it was at the start. One at a time; any thread may write.
class OutputGuard {
 public:
  /// `folder` is there. `allowOutside` lets files be made elsewhere too. Throws FileError.
  OutputGuard(std::filesystem::path folder, bool allowOutside);
  ~OutputGuard();
  OutputGuard(const OutputGuard&) = delete;
  OutputGuard& operator=(const OutputGuard&) = delete;

  /// Throws FileError where the folder has vanished or another one has its name.
  void CheckSame() const;

  /// Whether the path leads into the folder, links and parents of it that don't exist yet counted.
  bool Holds(const std::filesystem::path& path) const;

  /// What the living guard, if there is one, says of a path that is going to be made. Throws
  /// FileError.
  static void CheckPath(const std::filesystem::path& path);
  /// The same of a folder that is open, in which the file `path` is going to be made.
  static void CheckFolder(int folder, const std::filesystem::path& path);

 private:
  [[noreturn]] void Refuse(const std::filesystem::path& path) const;

  std::filesystem::path mFolder;
  std::filesystem::path mReal;  ///< without links, absolute
  bool mAllowOutside;
  u64 mDevice = 0, mNumber = 0;  ///< what the folder is known by
};

/// Whether `path` is `folder` or lies below it; both as they are written.
bool IsBelow(const std::filesystem::path& path, const std::filesystem::path& folder);

}  // namespace MELDO_GLOBAL::host
