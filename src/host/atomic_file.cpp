#include "host/atomic_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host/file_reader.h"
#include "host/output_guard.h"

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

/// Memory that is touched for the first time costs a third in large pages, where there are any.
void PreferLargePages(char* memory, std::size_t bytes) {
  const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  const std::size_t skipped = (page - reinterpret_cast<std::uintptr_t>(memory) % page) % page;
  if (bytes > skipped + page) ::madvise(memory + skipped, bytes - skipped, MADV_HUGEPAGE);
}

/// What was renamed or made in a folder is there after a power cut too. Not every file system knows
/// how to.
void SyncFolder(int folder, const fs::path& path) {
  if (::fsync(folder) != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP)
    Fail(path, errno);
}

/// Closes a file at the end of its life.
struct Descriptor {
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  int number;
};

}  // namespace

PartFile::PartFile(fs::path path) : mPath(std::move(path)), mName(mPath.filename().string()) {
  const fs::path folder = mPath.has_parent_path() ? mPath.parent_path() : fs::path(".");
  MakeFolder(folder);
  mFolder = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (mFolder < 0) Fail(mPath, errno);
  // Renaming would put a file in the place of a device or a pipe.
  struct stat there {};
  if (::fstatat(mFolder, mName.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 &&
      !S_ISREG(there.st_mode) && !S_ISLNK(there.st_mode)) {
    ::close(mFolder);
    Fail(mPath, S_ISDIR(there.st_mode) ? EISDIR : EEXIST);
  }
  try {
    OutputGuard::CheckFolder(mFolder, mPath);
    static std::atomic<u32> made{0};
    do {
      mPart = fmt::format("{}.{:x}-{:x}{}", mName, ::getpid(), made++, kPartSuffix);
      mFile = ::openat(mFolder, mPart.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                       0666);
    } while (mFile < 0 && errno == EEXIST);
    if (mFile < 0) Fail(mPath, errno);
  } catch (...) {
    ::close(mFolder);
    throw;
  }
  ::flock(mFile, LOCK_EX | LOCK_NB);  // where the file system knows locks
}

PartFile::~PartFile() {
  if (mFile >= 0) {
    ::close(mFile);
    ::unlinkat(mFolder, mPart.c_str(), 0);
  }
  ::close(mFolder);
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
  if (closed != 0 || ::renameat(mFolder, mPart.c_str(), mFolder, mName.c_str()) != 0) {
    const int error = errno;
    ::unlinkat(mFolder, mPart.c_str(), 0);
    Fail(mPath, error);
  }
  SyncFolder(mFolder, mPath);
}

void MakeFolder(const fs::path& path) {
  OutputGuard::CheckPath(path);
  std::error_code error;
  if (fs::create_directories(path, error)) {
    const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const Descriptor folder{::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (folder.number >= 0) SyncFolder(folder.number, path);
  }
  if (!error && !fs::is_directory(path, error) && !error)
    error = std::make_error_code(std::errc::not_a_directory);
  if (error) throw FileError("cannot make the folder " + path.string() + ": " + error.message());
}

void WriteFileAtomically(const fs::path& path, std::string_view bytes) {
  PartFile file(path);
  file.Append(bytes);
  file.Commit();
}

int OpenToAppend(const fs::path& path) {
  MakeFolder(path.has_parent_path() ? path.parent_path() : fs::path("."));
  // A pipe without a reader would have to be waited for.
  const int file =
      ::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  struct stat found {};
  if (file < 0 || ::fstat(file, &found) != 0) Fail(path, errno);
  if (S_ISREG(found.st_mode)) return file;
  ::close(file);
  throw FileError("cannot write " + path.string() + ": it is no plain file");
}

std::string ReadFile(const fs::path& path) { return ReadFileBy(path, {}); }

namespace {

[[noreturn]] void FailToRead(const fs::path& path, const char* why) {
  throw FileError("cannot read " + path.string() + ": " + why);
}

/// The size of a file that was opened, if that is a plain one.
u64 PlainSize(int file, const fs::path& path) {
  struct stat found {};
  if (file < 0 || ::fstat(file, &found) != 0) FailToRead(path, std::strerror(errno));
  if (S_ISDIR(found.st_mode)) FailToRead(path, std::strerror(EISDIR));
  if (!S_ISREG(found.st_mode)) FailToRead(path, "it is no plain file");
  return static_cast<u64>(found.st_size);
}

constexpr int kToRead = O_RDONLY | O_NONBLOCK | O_CLOEXEC;

}  // namespace

FileParts::FileParts(fs::path path)
    : mPath(std::move(path)), mFile(::open(mPath.c_str(), kToRead)) {
  try {
    mSize = PlainSize(mFile, mPath);
  } catch (const FileError&) {
    if (mFile >= 0) ::close(mFile);
    throw;
  }
}
FileParts::~FileParts() { ::close(mFile); }

void FileParts::Read(u64 at, std::span<char> bytes) const {
  const i64 count =
      MoveAll(bytes.data(), bytes.size(), [&](char* to, std::size_t n, std::size_t done) {
        return ::pread(mFile, to, n, static_cast<off_t>(at + done));
      });
  if (count < 0) FailToRead(mPath, std::strerror(static_cast<int>(-count)));
  if (static_cast<std::size_t>(count) < bytes.size()) FailToRead(mPath, "it ends too early");
}

std::string ReadFileBy(const fs::path& path, const std::function<void(std::string_view)>& look) {
  const Descriptor file{::open(path.c_str(), kToRead)};
  const std::size_t size = static_cast<std::size_t>(PlainSize(file.number, path));
  // A piece that stays in the processor's caches costs less than filling new memory twice.
  constexpr std::size_t kPiece = std::size_t{1} << 18;
  std::string bytes;
  bytes.reserve(size);
  PreferLargePages(bytes.data(), size);
  std::vector<char> piece(std::min(kPiece, size));
  while (bytes.size() < size) {
    const std::size_t wanted = std::min(piece.size(), size - bytes.size());
    const i64 count = MoveAll(piece.data(), wanted, [&](char* at, std::size_t n, std::size_t) {
      return ::read(file.number, at, n);
    });
    if (count < 0) FailToRead(path, std::strerror(static_cast<int>(-count)));
    bytes.append(piece.data(), static_cast<std::size_t>(count));
    if (look) look(bytes);
    if (static_cast<std::size_t>(count) < wanted) break;
  }
  return bytes;
}

fs::path NameOfPart(const fs::path& part) {
  if (part.extension() != kPartSuffix) return {};
  const fs::path tagged = part.parent_path() / part.stem();
  return tagged.has_extension() ? tagged.parent_path() / tagged.stem() : fs::path();
}

void RemovePart(const fs::path& part) {
  const Descriptor file{::open(part.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
  if (file.number >= 0 && ::flock(file.number, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    return;
  std::error_code ignored;
  fs::remove(part, ignored);
}

void RemoveParts(const fs::path& folder, const std::string& spared) {
  std::error_code failed;
  std::vector<fs::path> parts;
  constexpr auto options = fs::directory_options::skip_permission_denied;
  for (fs::recursive_directory_iterator entry(folder, options, failed), end;
       !failed && entry != end; entry.increment(failed)) {
    std::error_code ignored;
    if (entry.depth() == 0 && !spared.empty() && entry->path().filename() == spared)
      entry.disable_recursion_pending();
    if (entry->path().extension() == kPartSuffix && entry->is_regular_file(ignored) &&
        !entry->is_symlink(ignored))
      parts.push_back(entry->path());
  }
  for (const fs::path& part : parts) RemovePart(part);
}

void SettleStandardDescriptors() {
  // Opening takes the lowest number that is free.
  for (int number = 0; number <= 2; ++number)
    if (::fcntl(number, F_GETFD) < 0 && errno == EBADF)
      if (const int file = ::open("/dev/null", O_RDONLY); file > 2) ::close(file);
}

}  // namespace MELDO_GLOBAL::host
