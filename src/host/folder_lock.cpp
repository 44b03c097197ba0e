#include "host/folder_lock.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/atomic_file.h"

namespace MELDO_GLOBAL::host {

namespace fs = std::filesystem;

namespace {

std::string MachineName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "?";
}

/// Who holds a lock, as its file tells; empty where it doesn't.
std::string HolderOf(int file) {
  std::array<char, 200> text{};
  const ssize_t count = ::pread(file, text.data(), text.size(), 0);
  std::string holder(text.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
  holder.resize(std::min(holder.find('\n'), holder.size()));
  for (char& c : holder)
    if (static_cast<unsigned char>(c) < ' ') c = '?';
  return holder;
}

/// Whether a file that is open still has its name: another process may have removed it.
bool HasItsName(int file, const fs::path& path) {
  struct stat open {
  }, named{};
  return ::fstat(file, &open) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

/// Whether a file that is open has other names too, as in a copy of a folder by hard links.
bool HasOtherNames(int file) {
  struct stat open {};
  return ::fstat(file, &open) == 0 && open.st_nlink > 1;
}

}  // namespace

FolderLock::FolderLock(const fs::path& folder, const std::string& purpose, const std::string& name)
    : mPath(folder / name) {
  const auto fail = [&](const std::string& why) {
    if (mFile >= 0) ::close(mFile);
    throw FileError(why);
  };
  for (;;) {
    mFile = OpenToAppend(mPath);
    if (::flock(mFile, LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK) {
        mWarning = fmt::format("{} can't be locked ({}): see to it that nothing else writes there",
                               folder.string(), std::strerror(errno));
        return;
      }
      const std::string holder = HolderOf(mFile);
      fail(fmt::format("{} is in use{}; wait for its end, or name another folder with --out",
                       folder.string(), holder.empty() ? "" : " by " + holder));
    }
    const bool isNamed = HasItsName(mFile, mPath);
    if (isNamed && !HasOtherNames(mFile)) break;
    // What other names lead to isn't written into.
    if (isNamed && ::unlink(mPath.c_str()) != 0)
      fail(fmt::format("cannot write {}: {}", mPath.string(), std::strerror(errno)));
    ::close(std::exchange(mFile, -1));
  }
  const std::string holder =
      fmt::format("sulva {} (process {} on {})\n", purpose, ::getpid(), MachineName());
  // What a killed process wrote into it no longer holds.
  if (::ftruncate(mFile, 0) != 0 ||
      ::write(mFile, holder.data(), holder.size()) != static_cast<ssize_t>(holder.size()))
    mWarning = fmt::format("{}: can't be written: {}", mPath.string(), std::strerror(errno));
}

FolderLock::~FolderLock() {
  if (HasItsName(mFile, mPath)) ::unlink(mPath.c_str());
  ::close(mFile);
}

}  // namespace MELDO_GLOBAL::host
