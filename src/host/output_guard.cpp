#include "host/output_guard.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>

#include "host/file_error.h"

namespace MELDO_GLOBAL::host {

namespace fs = std::filesystem;

namespace {

std::atomic<const OutputGuard*> gGuard{nullptr};

}  // namespace

bool IsBelow(const fs::path& path, const fs::path& folder) {
  const auto [end, at] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
  return end == folder.end();
}

OutputGuard::OutputGuard(fs::path folder, bool allowOutside)
    : mFolder(std::move(folder)), mAllowOutside(allowOutside) {
  std::error_code failed;
  mReal = fs::canonical(mFolder, failed);
  struct stat found {};
  if (failed || ::stat(mFolder.c_str(), &found) != 0)
    throw FileError(fmt::format("cannot open the folder {}", mFolder.string()));
  mDevice = found.st_dev;
  mNumber = found.st_ino;
  gGuard = this;
}

OutputGuard::~OutputGuard() { gGuard = nullptr; }

void OutputGuard::CheckSame() const {
  struct stat found {};
  if (::stat(mFolder.c_str(), &found) != 0)
    throw FileError(fmt::format("the output folder {} is gone; put it back and go on with --resume",
                                mFolder.string()));
  if (found.st_dev != mDevice || found.st_ino != mNumber)
    throw FileError(
        fmt::format("{} is another folder than at the start of the run; put the output "
                    "folder back and go on with --resume",
                    mFolder.string()));
}

bool OutputGuard::Holds(const fs::path& path) const {
  std::error_code failed;
  const fs::path real = fs::weakly_canonical(fs::absolute(path), failed);
  return !failed && IsBelow(real, mReal);
}

void OutputGuard::Refuse(const fs::path& path) const {
  throw FileError(
      fmt::format("cannot write {}: it leads out of the output folder {}; add "
                  "--allow-outside to let it",
                  path.string(), mFolder.string()));
}

void OutputGuard::CheckPath(const fs::path& path) {
  const OutputGuard* guard = gGuard;
  if (!guard) return;
  guard->CheckSame();
  if (!guard->mAllowOutside && !guard->Holds(path)) guard->Refuse(path);
}

void OutputGuard::CheckFolder(int folder, const fs::path& path) {
  const OutputGuard* guard = gGuard;
  if (!guard || guard->mAllowOutside) return;
  // Where the folder really lies, whatever its name leads to by now.
  std::error_code failed;
  const fs::path real = fs::read_symlink(fmt::format("/proc/self/fd/{}", folder), failed);
  if (failed ? !guard->Holds(path.parent_path()) : !IsBelow(real, guard->mReal))
    guard->Refuse(path);
}

}  // namespace MELDO_GLOBAL::host
