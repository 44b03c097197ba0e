#include "host/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace MELDO_GLOBAL::host {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const fs::path& path, int error) {
  throw FileError("cannot write " + path.string() + ": " + std::strerror(error));
}

/// An open file descriptor that is closed at the end of its life.
class Descriptor {
 public:
  Descriptor(const fs::path& path, int flags)
      : mFd(::open(path.c_str(), flags | O_CLOEXEC, 0666)) {}
  ~Descriptor() {
    if (mFd >= 0) ::close(mFd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool IsOpen() const { return mFd >= 0; }
  /// 0, or the error's number.
  int Write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t written = ::write(mFd, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return errno;
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
  }
  /// Fills `bytes`, less where the file ends; the count, or the error's number below 0.
  long Read(std::string& bytes) {
    std::size_t count = 0;
    while (count < bytes.size()) {
      const ssize_t read = ::read(mFd, bytes.data() + count, bytes.size() - count);
      if (read < 0 && errno == EINTR) continue;
      if (read < 0) return -errno;
      if (read == 0) break;
      count += static_cast<std::size_t>(read);
    }
    return static_cast<long>(count);
  }
  int Sync() { return ::fsync(mFd) == 0 ? 0 : errno; }

 private:
  int mFd;
};

/// Writes and flushes the file beside; the number of the error, or 0.
int WritePart(const fs::path& part, std::string_view bytes) {
  Descriptor file(part, O_WRONLY | O_CREAT | O_TRUNC);
  if (!file.IsOpen()) return errno;
  if (const int error = file.Write(bytes)) return error;
  return file.Sync();
}

}  // namespace

void MakeFolder(const fs::path& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (!error && !fs::is_directory(path, error) && !error)
    error = std::make_error_code(std::errc::not_a_directory);
  if (error) throw FileError("cannot make the folder " + path.string() + ": " + error.message());
}

void WriteFileAtomically(const fs::path& path, std::string_view bytes) {
  if (path.has_parent_path()) MakeFolder(path.parent_path());
  fs::path part = path;
  part += kPartSuffix;
  int error = WritePart(part, bytes);
  if (!error && ::rename(part.c_str(), path.c_str()) != 0) error = errno;
  if (error) {
    ::unlink(part.c_str());
    Fail(path, error);
  }
}

std::string ReadFile(const fs::path& path) {
  const auto fail = [&](int error) {
    throw FileError("cannot read " + path.string() + ": " + std::strerror(error));
  };
  Descriptor file(path, O_RDONLY);
  if (!file.IsOpen()) fail(errno);
  std::error_code failed;
  std::string bytes;
  bytes.resize(fs::file_size(path, failed));
  if (failed) fail(failed.value());
  const long count = file.Read(bytes);
  if (count < 0) fail(static_cast<int>(-count));
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

void RemoveParts(const fs::path& folder) {
  std::error_code failed;
  std::vector<fs::path> parts;
  for (fs::recursive_directory_iterator entry(folder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    std::error_code ignored;
    if (entry->path().extension() == kPartSuffix && entry->is_regular_file(ignored))
      parts.push_back(entry->path());
  }
  for (const fs::path& part : parts) fs::remove(part, failed);
}

}  // namespace MELDO_GLOBAL::host
