// Files that can't grow, as on a full disk.
#pragma once
#include <sys/resource.h>

#include <csignal>

namespace MELDO_GLOBAL::host {

/// While one lives, no file of this process and of those that it starts grows beyond `bytes`.
class FileLimit {
 public:
  explicit FileLimit(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &mBefore);
    const rlimit limit{bytes, mBefore.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileLimit() { ::setrlimit(RLIMIT_FSIZE, &mBefore); }
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;

 private:
  rlimit mBefore{};
};

}  // namespace MELDO_GLOBAL::host
