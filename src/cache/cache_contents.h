// What a file of any cache holds.
#pragma once
#include "cache/cache_origin.h"

namespace MELDO_GLOBAL {

enum class CacheKind { kGrids, kParticles, kMeshes };

/// Whether a path has the suffix of a cache's own files.
bool HasCacheSuffix(const std::filesystem::path& path);
/// By the first item of a file that was opened, and by its suffix where that leaves it open.
CacheKind KindOfCache(HyperFile& file);
/// What an opened file tells of its origin; nothing where it can't be read.
CacheOrigin OriginOf(HyperFile& file);
/// The same of the file at a path.
CacheOrigin OriginOf(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL
