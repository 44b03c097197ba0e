// The files of a cache in its folder.
#pragma once
#include <string>
#include <vector>

#include "cache/cache_name.h"

namespace MELDO_GLOBAL {

/// A file of a cache.
struct CacheFile {
  i32 frame;   ///< what the first five digits behind the stem say
  i32 number;  ///< what all of them say
  std::filesystem::path path;
};
/// The files with the stem and suffix of `names` in its folder, in the order of their numbers.
/// Between stem and suffix stand digits alone, and no more than a frame below 100000 has, so that
/// "fire", "fire_hot" and "fire2" may share a folder.
std::vector<CacheFile> ListCache(const CacheName& names);
/// Removes what a killed process left of this cache's files.
void RemoveUnfinished(const CacheName& names);

/// What lies in a cache's folder.
struct CacheFolderInfo {
  bool found = false;  ///< at least one file is there
  i32 firstFrame = 0;
  i32 lastFrame = 0;
  std::vector<i32> missingFrames;  ///< from frame 0 to the last one
  i64 totalSize = 0;               ///< bytes
  i32 fileCount = 0;
};
CacheFolderInfo ScanCache(const CacheName& names);
/// The text about length, size and gaps of what a scan found.
std::string StatisticsOf(const CacheFolderInfo& info);

/// A size as a person reads it: "812 bytes", "3.4 MB".
std::string FormatSize(i64 bytes);

}  // namespace MELDO_GLOBAL
