// Keeps two processes from writing into one folder.
#pragma once
#include <filesystem>
#include <string>

namespace MELDO_GLOBAL::host {

/// The file that a folder is locked by.
inline constexpr std::string_view kLockName = ".sulva-lock";

/// Holds a folder as long as it lives. The system takes the lock from a process that ends in
/// whatever way, so that the file a killed one leaves holds nobody back.
class FolderLock {
 public:
  /// The folder is there; `name` is that of the lock's file. `purpose` tells others what holds it.
  /// Throws FileError where another process holds the folder, or the file can't be made. Where the
  /// file system knows no locks, there is none, and `Warning` says so.
  FolderLock(const std::filesystem::path& folder, const std::string& purpose,
             const std::string& name = std::string(kLockName));
  /// Gives the folder back and removes the file.
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

  const std::string& Warning() const { return mWarning; }

 private:
  std::filesystem::path mPath;
  int mFile = -1;
  std::string mWarning;
};

}  // namespace MELDO_GLOBAL::host
