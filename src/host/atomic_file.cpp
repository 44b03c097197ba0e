#include "host/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace MELDO_GLOBAL::host {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void Fail(const fs::path& path, int error) {
  throw FileError("cannot write " + path.string() + ": " + std::strerror(error));
}

/// Repeats a system call that moves bytes from or to `at` until all are moved, or one fails or
/// moves none; the bytes moved, or the error's number below 0.
template <class Char, class Call>
i64 MoveAll(Char* at, std::size_t bytes, Call&& call) {
  std::size_t moved = 0;
  while (moved < bytes) {
    const ssize_t count = call(at + moved, bytes - moved, moved);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -errno;
    if (count == 0) break;
    moved += static_cast<std::size_t>(count);
  }
  return static_cast<i64>(moved);
}

/// Closes a file at the end of its life.
struct Descriptor {
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  int number;
};

}  // namespace

PartFile::PartFile(fs::path path) : mPath(std::move(path)), mPart(mPath) {
  if (mPath.has_parent_path()) MakeFolder(mPath.parent_path());
  mPart += kPartSuffix;
  mFile = ::open(mPart.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (mFile < 0) Fail(mPath, errno);
}

PartFile::~PartFile() {
  if (mFile < 0) return;
  ::close(mFile);
  ::unlink(mPart.c_str());
}

void PartFile::Append(std::string_view bytes) {
  const i64 written =
      MoveAll(bytes.data(), bytes.size(),
              [&](const char* at, std::size_t n, std::size_t) { return ::write(mFile, at, n); });
  if (written < 0) Fail(mPath, static_cast<int>(-written));
}

void PartFile::Patch(u64 at, std::string_view bytes) {
  const i64 written =
      MoveAll(bytes.data(), bytes.size(), [&](const char* from, std::size_t n, std::size_t done) {
        return ::pwrite(mFile, from, n, static_cast<off_t>(at + done));
      });
  if (written < 0) Fail(mPath, static_cast<int>(-written));
}

void PartFile::Read(u64 at, std::span<char> bytes) const {
  const i64 read =
      MoveAll(bytes.data(), bytes.size(), [&](char* to, std::size_t n, std::size_t done) {
        return ::pread(mFile, to, n, static_cast<off_t>(at + done));
      });
  if (read != static_cast<i64>(bytes.size())) Fail(mPath, read < 0 ? static_cast<int>(-read) : EIO);
}

void PartFile::Commit() {
  if (::fsync(mFile) != 0) Fail(mPath, errno);
  // Some file systems tell of a failed write when the file is closed.
  const int closed = ::close(std::exchange(mFile, -1));
  if (closed != 0 || ::rename(mPart.c_str(), mPath.c_str()) != 0) {
    const int error = errno;
    ::unlink(mPart.c_str());
    Fail(mPath, error);
  }
}

void MakeFolder(const fs::path& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (!error && !fs::is_directory(path, error) && !error)
    error = std::make_error_code(std::errc::not_a_directory);
  if (error) throw FileError("cannot make the folder " + path.string() + ": " + error.message());
}

void WriteFileAtomically(const fs::path& path, std::string_view bytes) {
  PartFile file(path);
  file.Append(bytes);
  file.Commit();
}

std::string ReadFile(const fs::path& path) {
  const auto fail = [&](int error) {
    throw FileError("cannot read " + path.string() + ": " + std::strerror(error));
  };
  std::error_code failed;
  std::string bytes;
  const Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (file.number < 0) fail(errno);
  const auto size = fs::file_size(path, failed);
  if (failed) fail(failed.value());
  bytes.resize(size);
  const i64 count = MoveAll(bytes.data(), bytes.size(), [&](char* at, std::size_t n, std::size_t) {
    return ::read(file.number, at, n);
  });
  if (count < 0) fail(static_cast<int>(-count));
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

void RemoveParts(const fs::path& folder) {
  std::error_code failed;
  std::vector<fs::path> parts;
  constexpr auto options = fs::directory_options::skip_permission_denied;
  for (fs::recursive_directory_iterator entry(folder, options, failed), end;
       !failed && entry != end; entry.increment(failed)) {
    std::error_code ignored;
    if (entry->path().extension() == kPartSuffix && entry->is_regular_file(ignored))
      parts.push_back(entry->path());
  }
  for (const fs::path& part : parts) fs::remove(part, failed);
}

}  // namespace MELDO_GLOBAL::host
