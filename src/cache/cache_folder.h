// The files of a cache in its folder.
#pragma once
#include <string>
#include <vector>

#include "cache/cache_name.h"

namespace MELDO_GLOBAL {

/// A file of a cache.
struct CacheFile {
  i32 number;  ///< the frame that its name tells
  std::filesystem::path path;
};
/// The files with the stem and suffix of `names` in its folder, in the order of their numbers.
/// Between stem and suffix stands a number alone. "fire", "fire_hot" and "fire2" may share a
/// folder: where the number is below 0 or has six digits and more, the file itself has to say that
/// it is of this cache.
std::vector<CacheFile> ListCache(const CacheName& names);
/// Whether a file in the list of a cache says that it is of one of another name: where numbers
/// outgrow their width, "fire" with the frame 10 is named as "fire1" with the frame 0. Reads it.
bool IsOfAnother(const CacheFile& file, const CacheName& names);
/// Removes what a killed process left of this cache's files.
void RemoveUnfinished(const CacheName& names);

/// Frames from one to another, both among them.
struct FrameRun {
  i32 first = 0, last = 0;
  bool operator==(const FrameRun&) const = default;
};
/// What lies in a cache's folder.
struct CacheFolderInfo {
  bool found = false;  ///< at least one file is there
  i32 firstFrame = 0;
  i32 lastFrame = 0;
  std::vector<FrameRun> missingFrames;  ///< from frame 0 to the last one
  i64 missingCount = 0;                 ///< how many these are
  i64 totalSize = 0;                    ///< bytes
  i32 fileCount = 0;
};
CacheFolderInfo ScanCache(const CacheName& names);
/// The text about length, size and gaps of what a scan found.
std::string StatisticsOf(const CacheFolderInfo& info);

/// A size as a person reads it: "812 bytes", "3.4 MB".
std::string FormatSize(i64 bytes);

}  // namespace MELDO_GLOBAL
