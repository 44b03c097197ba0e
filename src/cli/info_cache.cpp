#include "cli/info_cache.h"

#include <fmt/format.h>

#include "cache/cache_contents.h"
#include "cache/cache_folder.h"
#include "cache/grid_cache_file.h"
#include "cache/mesh_cache_file.h"
#include "cache/particle_cache_file.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

using MELDO_SULVA::ParticleCacheHeader;

[[noreturn]] void RefuseCache(const std::string& text) { throw CommandError(kExitFile, text); }

/// A text from a file.
std::string CacheText(const std::string& text) { return host::Escaped(Shown(text, 80)); }

std::string DimsText(const VecInt3D& d) { return fmt::format("{} x {} x {}", d.x, d.y, d.z); }

/// The lines of the grids in a cache file, with the sizes of their blocks.
std::string GridLines(HyperFile& file, const GridCacheHeader& header) {
  std::string lines;
  for (std::size_t chunk = 0; chunk < header.chunks.size(); ++chunk) {
    i32 id, level;
    if (!file.ReadChunkStart(id, level)) RefuseCache(file.Error());
    std::size_t stored = 0, raw = 0;
    int blocks = 0;
    bool isPacked = false;
    for (; !file.AtEnd(); ++blocks) {
      PackedBlock block;
      if (!ReadBlock(file, block))
        RefuseCache(file.Error().empty() ? file.Name() + ": a block is damaged" : file.Error());
      stored += block.bytes.size();
      raw += block.size;
      isPacked = isPacked || block.isPacked;
    }
    if (!file.ReadChunkEnd()) RefuseCache(file.Error());
    lines += fmt::format("  {}  ", chunk + 1);
    if (header.chunks[chunk] < 0) {
      lines += "no grid\n";
      continue;
    }
    const StoredGrid& grid = header.grids[header.chunks[chunk]];
    const Vec3d& origin = grid.layout.simOrigin;
    lines += fmt::format("{} samples at ({:.6g}, {:.6g}, {:.6g}), cell size {:.6g}{}, {}",
                         DimsText(grid.dims), origin.x, origin.y, origin.z, grid.layout.cellSize,
                         blocks > 1 ? fmt::format(", {} components", blocks) : "",
                         FormatSize(static_cast<i64>(stored)));
    if (isPacked && stored > 0)
      lines += fmt::format(" packed {:.1f} times",
                           static_cast<double>(raw) / static_cast<double>(stored));
    lines += '\n';
  }
  return lines;
}

/// The lines of the particles in a cache file, with what stands of each.
std::string ParticleLines(HyperFile& file, const ParticleCacheHeader& header) {
  std::string lines;
  for (std::size_t chunk = 0; chunk < header.stores.size(); ++chunk) {
    i32 id, level;
    MELDO_SULVA::ParticleColumns particles;
    if (!file.ReadChunkStart(id, level) ||
        !ReadParticleChunk(file, header, chunk, {}, 1, particles) || !file.SkipToEndChunk() ||
        !file.ReadChunkEnd())
      RefuseCache(file.Error().empty() ? file.Name() + ": its particles are damaged"
                                       : file.Error());
    const MELDO_SULVA::StoredParticles& stored = header.stores[chunk];
    lines += fmt::format("  {}  {} particles", chunk + 1, stored.Count());
    std::string names;
    const auto add = [&](const auto& columns) {
      for (const auto& column : columns)
        names += fmt::format("{}{}", names.empty() ? "" : ", ", CacheText(column->Name()));
    };
    add(particles.List<double>());
    add(particles.List<Vec3d>());
    add(particles.List<bool>());
    const MELDO_SULVA::Bounds& box = stored.bounds.box;
    if (stored.Count() > 0)
      lines += fmt::format(" from ({:.6g}, {:.6g}, {:.6g}) to ({:.6g}, {:.6g}, {:.6g}){}{}",
                           box.min.x, box.min.y, box.min.z, box.max.x, box.max.y, box.max.z,
                           names.empty() ? "" : ", with ", names);
    lines += '\n';
  }
  return lines;
}

/// The lines of the meshes in a cache file.
std::string MeshLines(HyperFile& file, const MeshCacheHeader& header) {
  std::string lines;
  for (std::size_t chunk = 0; chunk < header.meshes.size(); ++chunk) {
    i32 id, level;
    host::Geometry mesh;
    if (!file.ReadChunkStart(id, level) || !ReadMeshChunk(file, 1, mesh) ||
        !file.SkipToEndChunk() || !file.ReadChunkEnd())
      RefuseCache(file.Error().empty() ? file.Name() + ": a mesh is damaged" : file.Error());
    lines += fmt::format("  {}  {} points, {} polygons{}{}{}{}\n", chunk + 1, mesh.points.size(),
                         mesh.polygons.size(), mesh.normals.empty() ? "" : ", normals",
                         mesh.uvs.empty() ? "" : ", texture coordinates",
                         mesh.velocities.empty() ? "" : ", velocities",
                         mesh.colours.empty() ? "" : ", colours");
  }
  return lines;
}

/// Length, size and gaps of the cache that a file belongs to.
std::string SeriesOf(const fs::path& path, const CacheOrigin& origin) {
  std::string stem = path.stem().string();
  if (origin.isPresent && stem.starts_with(origin.stem)) stem = origin.stem;
  // A base name may end in digits of its own.
  for (int i = 0;
       i < 5 && !origin.isPresent && !stem.empty() && stem.back() >= '0' && stem.back() <= '9'; ++i)
    stem.pop_back();
  CacheName names(stem);
  names.SetFolder(path.has_parent_path() ? path.parent_path() : fs::path("."));
  if (path.extension() == ".pcache") names.SetFormat(0);
  if (path.extension() == ".mcache") names.SetFormat(24);
  if (stem.empty() || path.extension() != "." + names.GetSuffix()) return {};
  const CacheFolderInfo info = ScanCache(names);
  return info.found ? StatisticsOf(info) : std::string();
}

/// Whose recording a cache file is, with the names and units of what it holds.
std::string OriginLines(const CacheOrigin& origin) {
  if (!origin.isPresent) return {};
  std::string objects;
  for (const StoredObject& object : origin.objects)
    objects += fmt::format("{}{} [{}]", objects.empty() ? "" : ", ", CacheText(object.name),
                           CacheText(object.unit));
  return fmt::format(
      "Objects: {}\nOf frame {}, {:.6g} s, {:.6g} frames a second; sulva {}, "
      "simulation {:016x}\n",
      objects, origin.frame, origin.seconds, origin.fps, CacheText(origin.version),
      origin.simulation);
}

/// The text about a cache file: what stands in it, chunk by chunk.
template <class Header, class Read, class Lines, class Describe>
void PrintContents(HyperFile& file, const char* what, Read&& read, Lines&& linesOf,
                   Describe&& describe) {
  Header header;
  std::string problem;
  if (!read(file, header, problem)) RefuseCache(problem);
  const fs::path path = file.Name();
  std::string text = fmt::format("{}: a frame of a {} cache, {}\n", host::Escaped(path.string()),
                                 what, FormatSize(static_cast<i64>(file.Size())));
  text += linesOf(file, header);
  text += describe(file);
  text += OriginLines(header.origin);
  fmt::print("{}{}", text, SeriesOf(path, header.origin));
}

}  // namespace

void PrintCacheInfo(const fs::path& path) {
  HyperFile file;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) RefuseCache(file.Error());
  switch (KindOfCache(file)) {
    case CacheKind::kGrids:
      return PrintContents<GridCacheHeader>(file, "grid", ReadGridCacheHeader, GridLines,
                                            DescribeGridCache);
    case CacheKind::kParticles:
      return PrintContents<ParticleCacheHeader>(file, "particle",
                                                MELDO_SULVA::ReadParticleCacheHeader, ParticleLines,
                                                MELDO_SULVA::DescribeParticleCache);
    case CacheKind::kMeshes:
      return PrintContents<MeshCacheHeader>(file, "mesh", ReadMeshCacheHeader, MeshLines,
                                            DescribeMeshCache);
  }
}

}  // namespace MELDO_GLOBAL::app
