#include "cache/cache_folder.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <tuple>

#include "host/atomic_file.h"

namespace MELDO_GLOBAL {

namespace fs = std::filesystem;

namespace {

/// What digits say that stand for a frame below 100000; below 0 for any other text.
i32 NumberOf(std::string_view digits) {
  // Wider than five digits are padded ones alone, as `FileStem` writes them.
  const bool isPadded = digits.size() == 6 && digits.starts_with("00");
  if (digits.empty() || (digits.size() > 5 && !isPadded)) return -1;
  i32 number = 0;
  const char* end = digits.data() + digits.size();
  const auto [rest, error] = std::from_chars(digits.data(), end, number);
  return error == std::errc() && rest == end ? number : -1;
}

/// The files of a cache that are whole, or those that aren't.
std::vector<CacheFile> FilesOf(const CacheName& names, bool areParts) {
  std::vector<CacheFile> files;
  if (!names.MakeFolder(false)) return files;
  // A base name may lead into a folder below the cache's own.
  fs::path first;
  names.BuildPath(first, 0);
  std::string stem;
  names.FileStem(stem, 0, false);
  const std::string prefix = fs::path(stem).filename().string();
  const std::string suffix = fmt::format(".{}", names.GetSuffix());
  std::error_code failed;
  for (fs::directory_iterator entry(first.has_parent_path() ? first.parent_path() : ".", failed),
       end;
       !failed && entry != end; entry.increment(failed)) {
    const fs::path whole = areParts ? host::NameOfPart(entry->path()) : entry->path();
    const std::string name = whole.filename().string();
    if (name.size() <= prefix.size() + suffix.size() || !name.starts_with(prefix) ||
        !name.ends_with(suffix))
      continue;
    const std::string digits =
        name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (const i32 number = NumberOf(digits); number >= 0)
      files.push_back({NumberOf(digits.substr(0, 5)), number, entry->path()});
  }
  std::sort(files.begin(), files.end(), [](const CacheFile& a, const CacheFile& b) {
    return std::tie(a.number, a.path) < std::tie(b.number, b.path);
  });
  return files;
}

}  // namespace

std::string FormatSize(i64 bytes) {
  double size = static_cast<double>(bytes);
  for (const char* unit : {"bytes", "kB", "MB", "GB"}) {
    if (size < 1000)
      return fmt::format("{:.{}f} {}", size, size < 10 && bytes >= 1000 ? 1 : 0, unit);
    size /= 1000;
  }
  return fmt::format("{:.1f} TB", size);
}

std::vector<CacheFile> ListCache(const CacheName& names) { return FilesOf(names, false); }

void RemoveUnfinished(const CacheName& names) {
  for (const CacheFile& file : FilesOf(names, true)) host::RemovePart(file.path);
}

CacheFolderInfo ScanCache(const CacheName& names) {
  CacheFolderInfo info;
  i32 next = 0;  // the frame that is expected
  for (const CacheFile& entry : ListCache(names)) {
    for (; next < entry.frame; ++next) info.missingFrames.push_back(next);
    if (!info.found) info.firstFrame = entry.frame;
    info.found = true;
    info.lastFrame = entry.frame;
    next = entry.frame + 1;
    std::error_code failed;
    const auto size = fs::file_size(entry.path, failed);
    if (!failed) info.totalSize += static_cast<i64>(size);
    ++info.fileCount;
  }
  return info;
}

std::string StatisticsOf(const CacheFolderInfo& info) {
  return fmt::format("Length: {}({} - {})\nSize: {}\nMissing Frames: {}\n",
                     info.lastFrame - info.firstFrame + 1, info.firstFrame, info.lastFrame,
                     FormatSize(info.totalSize), info.missingFrames.size());
}

}  // namespace MELDO_GLOBAL
