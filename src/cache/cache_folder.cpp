#include "cache/cache_folder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace MELDO_GLOBAL {

namespace fs = std::filesystem;

std::string FormatSize(i64 bytes) {
  double size = static_cast<double>(bytes);
  for (const char* unit : {"bytes", "kB", "MB", "GB"}) {
    if (size < 1000)
      return fmt::format("{:.{}f} {}", size, size < 10 && bytes >= 1000 ? 1 : 0, unit);
    size /= 1000;
  }
  return fmt::format("{:.1f} TB", size);
}

std::vector<CacheFile> ListCache(const CacheName& names) {
  std::vector<CacheFile> files;
  if (!names.MakeFolder(false)) return files;
  std::string stem;
  names.FileStem(stem, 0, false);
  const fs::path& folder = names.GetFolder();
  const std::string suffix = "." + names.GetSuffix();
  std::error_code failed;
  for (fs::directory_iterator entry(folder, failed), end; !failed && entry != end;
       entry.increment(failed)) {
    if (entry->path().extension() != suffix) continue;
    const std::string name = entry->path().stem().string();
    if (!name.starts_with(stem)) continue;
    const std::string number = name.substr(stem.size());
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    if (number.empty() || number.size() > 10 || !std::all_of(number.begin(), number.end(), isDigit))
      continue;
    files.push_back({std::stoi(number.substr(0, 5)), entry->path()});
  }
  std::sort(files.begin(), files.end(),
            [](const CacheFile& a, const CacheFile& b) { return a.path < b.path; });
  return files;
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
