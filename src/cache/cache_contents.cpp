#include "cache/cache_contents.h"

#include "cache/grid_cache_file.h"
#include "cache/mesh_cache_file.h"
#include "cache/particle_cache_file.h"

namespace MELDO_GLOBAL {

using MELDO_SULVA::ParticleCacheHeader;
using MELDO_SULVA::ReadParticleCacheHeader;

namespace {

constexpr std::string_view kGridSuffix = ".cache", kPlainSuffix = ".pcache",
                           kMeshSuffix = ".mcache";

template <class Header, class Read>
CacheOrigin OriginBy(HyperFile& file, Read&& read) {
  Header header;
  std::string problem;
  return read(file, header, problem) ? header.origin : CacheOrigin();
}

}  // namespace

bool HasCacheSuffix(const std::filesystem::path& path) {
  const std::filesystem::path suffix = path.extension();
  return suffix == kGridSuffix || suffix == kPlainSuffix || suffix == kMeshSuffix;
}

CacheKind KindOfCache(HyperFile& file) {
  const std::filesystem::path suffix = std::filesystem::path(file.Name()).extension();
  if (suffix == kMeshSuffix) return CacheKind::kMeshes;
  if (suffix == kPlainSuffix) return CacheKind::kParticles;
  file.Rewind();
  i32 first = 0;
  if (!file.IsAtLong() || !file.ReadLong(first)) return CacheKind::kGrids;
  file.Rewind();
  // A file of meshes starts with how many they are.
  return first >= ParticleCacheHeader::kFirstWithIds ? CacheKind::kParticles : CacheKind::kMeshes;
}

CacheOrigin OriginOf(HyperFile& file) {
  switch (KindOfCache(file)) {
    case CacheKind::kParticles: return OriginBy<ParticleCacheHeader>(file, ReadParticleCacheHeader);
    case CacheKind::kMeshes: return OriginBy<MeshCacheHeader>(file, ReadMeshCacheHeader);
    case CacheKind::kGrids: break;
  }
  return OriginBy<GridCacheHeader>(file, ReadGridCacheHeader);
}

CacheOrigin OriginOf(const std::filesystem::path& path) {
  HyperFile file;
  return file.Open(kCacheIdent, path, HyperFile::Mode::kRead) ? OriginOf(file) : CacheOrigin();
}

}  // namespace MELDO_GLOBAL
