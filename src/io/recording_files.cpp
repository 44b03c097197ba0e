#include "io/recording_files.h"

#include <fmt/format.h>

#include <limits>

#include "cache/mesh_cache_file.h"
#include "cache/particle_cache_file.h"
#include "host/file_error.h"
#include "io/export_origin.h"
#include "io/point_table.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

using exchange::ParticleTable;
using MELDO_SULVA::ParticleCacheHeader;
using MELDO_SULVA::ParticleColumns;

namespace {

/// A cache's file whose header was read.
template <class Header>
class Recording {
 public:
  using ReadHeader = bool (*)(HyperFile&, Header&, std::string&);

  Recording(const fs::path& path, ReadHeader readHeader) {
    std::string problem;
    if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) throw host::FileError(file.Error());
    if (!readHeader(file, header, problem)) throw host::FileError(problem);
  }

  /// Calls read(chunk) in each of the chunks, which answers whether it could be read.
  template <class Read>
  void ForEachChunk(std::size_t count, const char* what, Read&& read) {
    for (std::size_t chunk = 0; chunk < count; ++chunk) {
      i32 id, level;
      if (file.ReadChunkStart(id, level) && read(chunk) && file.SkipToEndChunk() &&
          file.ReadChunkEnd())
        continue;
      throw host::FileError(file.Error().empty() ? fmt::format("{}: {} damaged", file.Name(), what)
                                                 : file.Error());
    }
  }

  std::string NameOf(std::size_t chunk, const char* kind) const {
    return header.origin.isPresent ? header.origin.objects[chunk].name
                                   : fmt::format("{}_{}", kind, chunk + 1);
  }

  HyperFile file;
  Header header;
};

}  // namespace

ParticleTable ReadRecordedParticles(const fs::path& path) {
  Recording<ParticleCacheHeader> recording(path, MELDO_SULVA::ReadParticleCacheHeader);
  const ParticleCacheHeader& header = recording.header;
  if (header.stores.size() > std::numeric_limits<u8>::max())
    throw host::FileError(path.string() + ": it holds more groups than any list has");
  std::vector<ParticleColumns> stores(header.stores.size());
  recording.ForEachChunk(stores.size(), "its particles are", [&](std::size_t chunk) {
    return ReadParticleChunk(recording.file, header, chunk, {}, 1, stores[chunk]);
  });
  recording.file = {};
  std::vector<ParticlePart> parts;
  for (std::size_t i = 0; i < stores.size(); ++i) parts.push_back({&stores[i], static_cast<u8>(i)});
  ParticleTable table = TableOf(std::move(parts), stores.size() > 1 ? "group" : "");
  if (exchange::ParticleColumn* groups = table.Find("group"); groups && stores.size() > 1)
    for (std::size_t i = 0; i < stores.size(); ++i)
      groups->words.push_back(recording.NameOf(i, "group"));
  table.spacing = header.domain.cellSize;
  const CacheOrigin& origin = header.origin;
  if (origin.isPresent)
    table.remarks = RemarksOf(
        {origin.version, origin.frame, origin.seconds, origin.fps, origin.simulation}, "m");
  return table;
}

std::vector<RecordedMesh> ReadRecordedMeshes(const fs::path& path) {
  Recording<MeshCacheHeader> recording(path, ReadMeshCacheHeader);
  std::vector<RecordedMesh> meshes(recording.header.meshes.size());
  recording.ForEachChunk(meshes.size(), "a mesh is", [&](std::size_t chunk) {
    meshes[chunk].name = recording.NameOf(chunk, "mesh");
    return ReadMeshChunk(recording.file, 1, meshes[chunk].geometry);
  });
  return meshes;
}

}  // namespace MELDO_GLOBAL::app
