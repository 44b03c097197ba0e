#include "io/volume_files.h"

#include <fmt/format.h>

#include "cache/grid_cache_file.h"
#include "exchange/byte_source.h"
#include "host/atomic_file.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

/// What grids of these kinds hold is a distance.
bool IsDistance(i32 kind) {
  constexpr i32 kLevelSetAtCentres = 13;
  return kind == kNode || kind == kLevelSetAtCentres;
}

/// The grids of a chunk, which the file stands in.
Field ReadChunkField(HyperFile& file, const StoredGrid& stored, LoadedVolumes& volumes) {
  Field field;
  const bool isStaggered = stored.kind == kFaceX;
  for (i32 c = 0; c < 3 && !file.AtEnd(); ++c) {
    PackedBlock block;
    const i32 kind = isStaggered ? kFaceX + c : stored.kind;
    const i32 count = CountOf(stored.layout.dims + ExtraOf(kind));
    if (!ReadBlock(file, block) || !block.Holds<double>(static_cast<std::size_t>(count)))
      exchange::Damaged("a block is damaged");
    auto grid = std::make_unique<EGrid<double>>(stored.layout, kind);
    if (!grid->mData) throw std::bad_alloc();
    if (!Unpack(block, std::span<double>(grid->mData, grid->mCount), 1))
      exchange::Damaged("a block is damaged");
    field.grids[c] = grid.get();
    volumes.grids.push_back(std::move(grid));
  }
  if (!field.HasGrid() || (isStaggered && !field.grids[2])) exchange::Damaged("a block is missing");
  field.kind = isStaggered               ? Field::Kind::Velocity
               : field.grids[2]          ? Field::Kind::Vector
               : IsDistance(stored.kind) ? Field::Kind::LevelSet
                                         : Field::Kind::Scalar;
  return field;
}

}  // namespace

LoadedVolumes ReadCacheVolumes(const fs::path& path) {
  HyperFile file;
  GridCacheHeader header;
  std::string problem;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) throw host::FileError(file.Error());
  if (!ReadGridCacheHeader(file, header, problem)) throw host::FileError(problem);
  LoadedVolumes volumes;
  const CacheOrigin& origin = header.origin;
  volumes.origin = {origin.version, origin.frame, origin.seconds, origin.fps, origin.simulation};
  try {
    for (std::size_t chunk = 0; chunk < header.chunks.size(); ++chunk) {
      i32 id, level;
      if (!file.ReadChunkStart(id, level)) exchange::Damaged("its chunks are damaged");
      if (header.chunks[chunk] >= 0) {
        const StoredGrid& stored = header.grids[header.chunks[chunk]];
        Field field = ReadChunkField(file, stored, volumes);
        std::string name = fmt::format("grid_{}", chunk + 1);
        if (origin.isPresent) {
          name = origin.objects[chunk].name;
          field.unit = volumes.units.emplace_back(origin.objects[chunk].unit).c_str();
        }
        volumes.fields.push_back({std::move(name), field, stored.kind});
      }
      if (!file.SkipToEndChunk() || !file.ReadChunkEnd())
        exchange::Damaged("its chunks are damaged");
    }
  } catch (const host::FileError& error) {
    throw host::FileError(fmt::format("cannot read {}: {}", path.string(), error.what()));
  }
  return volumes;
}

void WriteCacheVolumes(const fs::path& path, const LoadedVolumes& volumes) {
  if (volumes.fields.empty())
    throw host::FileError("cannot write " + path.string() + ": there is no field to write");
  HyperFile file;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kWrite)) throw host::FileError(file.Error());
  std::vector<std::array<const EGrid<double>*, 3>> all;
  CacheOrigin origin;
  origin.version = SULVA_VERSION;
  origin.stem = path.stem().string();
  origin.frame = origin.number = volumes.origin.frame;
  origin.seconds = volumes.origin.seconds.value_or(0);
  origin.fps = volumes.origin.fps;
  origin.simulation = volumes.origin.simulation;
  for (const NamedField& named : volumes.fields) {
    all.push_back(named.field.grids);
    origin.objects.push_back({named.name, named.field.unit});
  }
  constexpr i32 kFastPacking = 1;
  WriteGrids(file, all.front()[0]->mLayout, all, {kFastPacking, 1});
  WriteOrigin(file, origin);
  if (!file.Close()) throw host::FileError(file.Error());
}

std::string ConvertVolumes(const fs::path& from, const fs::path& to) {
  const bool isVdb = exchange::ByteSource(from).Peek(4) == " BDV";
  const LoadedVolumes volumes = isVdb ? ReadVdbVolumes(from) : ReadCacheVolumes(from);
  if (to.extension() == ".cache")
    WriteCacheVolumes(to, volumes);
  else
    host::WriteFileAtomically(to, EncodeVdb(volumes.fields, volumes.origin));
  std::string names;
  for (const NamedField& named : volumes.fields) names += (names.empty() ? "" : ", ") + named.name;
  return fmt::format("{} volumes: {}", volumes.fields.size(), names);
}

}  // namespace MELDO_GLOBAL::app
