#include "cache/cache_folder.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <tuple>

#include "cache/cache_contents.h"
#include "host/atomic_file.h"

namespace MELDO_GLOBAL {

namespace fs = std::filesystem;

namespace {

/// The frame that stands behind a cache's name in the name of a file.
struct Numeral {
  i32 number = 0;
  /// Another cache, whose name goes on with the first of these characters, may have written it.
  bool isAmbiguous = false;
};

std::optional<Numeral> ReadNumeral(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  const std::string_view digits = text.substr(isNegative ? 1 : 0);
  if (digits.empty() || digits.front() < '0' || digits.front() > '9') return {};
  // Wider than five digits are large numbers and padded small ones, as `FileStem` writes them.
  const bool isLarge = digits.size() > 5 && digits.front() != '0';
  const bool isPadded = digits.size() == 6 && digits.starts_with("00");
  if (digits.size() > 5 && !isLarge && !isPadded) return {};
  Numeral numeral{0, isNegative || isLarge};
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, numeral.number);
  if (error != std::errc() || rest != end) return {};
  return numeral;
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
    const std::optional<Numeral> numeral = ReadNumeral(digits);
    if (!numeral) continue;
    if (numeral->isAmbiguous && !areParts && OriginOf(whole).stem != stem) continue;
    files.push_back({numeral->number, entry->path()});
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

bool IsOfAnother(const CacheFile& file, const CacheName& names) {
  std::string stem;
  names.FileStem(stem, 0, false);
  const CacheOrigin origin = HasCacheSuffix(file.path) ? OriginOf(file.path) : CacheOrigin();
  return origin.isPresent && origin.stem != stem;
}

void RemoveUnfinished(const CacheName& names) {
  for (const CacheFile& file : FilesOf(names, true)) host::RemovePart(file.path);
}

CacheFolderInfo ScanCache(const CacheName& names) {
  CacheFolderInfo info;
  i64 next = 0;  // the frame that is expected
  for (const CacheFile& entry : ListCache(names)) {
    if (next < entry.number) {
      info.missingFrames.push_back({static_cast<i32>(next), entry.number - 1});
      info.missingCount += entry.number - next;
    }
    if (!info.found) info.firstFrame = entry.number;
    info.found = true;
    info.lastFrame = entry.number;
    next = std::max(next, i64{entry.number} + 1);
    std::error_code failed;
    const auto size = fs::file_size(entry.path, failed);
    if (!failed) info.totalSize += static_cast<i64>(size);
    ++info.fileCount;
  }
  return info;
}

std::string StatisticsOf(const CacheFolderInfo& info) {
  return fmt::format("Length: {}({} - {})\nSize: {}\nMissing Frames: {}\n",
                     i64{info.lastFrame} - info.firstFrame + 1, info.firstFrame, info.lastFrame,
                     FormatSize(info.totalSize), info.missingCount);
}

}  // namespace MELDO_GLOBAL
