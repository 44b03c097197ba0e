// Reading a whole file and looking at it on the way, and reading parts of one.
#pragma once
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "host/file_error.h"
#include "host/types.h"

namespace MELDO_GLOBAL::host {

/// All bytes of a plain file, as `ReadFile`. `look` is called again and again with what is there so
/// far, the last of it still in the processor's caches; the bytes stay where they are until the
/// end.
std::string ReadFileBy(const std::filesystem::path& path,
                       const std::function<void(std::string_view)>& look);

/// A plain file of which any part may be read. All of it throws FileError.
class FileParts {
 public:
  explicit FileParts(std::filesystem::path path);
  ~FileParts();
  FileParts(const FileParts&) = delete;
  FileParts& operator=(const FileParts&) = delete;

  /// Bytes that it had when it was opened.
  u64 Size() const { return mSize; }
  /// Exactly as many bytes, from byte `at` on.
  void Read(u64 at, std::span<char> bytes) const;

 private:
  std::filesystem::path mPath;
  int mFile = -1;
  u64 mSize = 0;
};

}  // namespace MELDO_GLOBAL::host
