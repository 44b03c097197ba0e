#include "io/recording_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <numeric>
#include <ranges>

#include "cache/mesh_cache_file.h"
#include "cache/particle_cache_file.h"
#include "fluids/particles/point_table.h"
#include "host/file_error.h"
#include "io/export_origin.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

using exchange::ParticleColumn;
using exchange::ParticleTable;
using exchange::ValueType;
using MELDO_SULVA::ParticleCacheHeader;

namespace {

/// A cache's file whose header was read.
template <class Header>
class Recording {
 public:
  using ReadHeader = bool (*)(HyperFile&, Header&, std::string&);

  Recording(const fs::path& path, HyperFile::Mode mode, ReadHeader readHeader) {
    std::string problem;
    if (!file.Open(kCacheIdent, path, mode)) throw host::FileError(file.Error());
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

/// The columns of a recording become those of a table, as they are read.
class RecordedTable : public MELDO_SULVA::ColumnTaker {
 public:
  RecordedTable(i64 count, bool hasGroups) : mHasGroups(hasGroups) {
    mTable.LimitMemory();
    mTable.SetCount(count);
    mTable.Add("position", ValueType::F64, 3);
    mTable.Add("velocity", ValueType::F64, 3);
    mTable.Add("id", ValueType::I32, 1);
    if (hasGroups) mTable.Add("group", ValueType::U8, 1);
  }

  /// What follows is of the next so many particles, which are of a group.
  void Begin(std::size_t group, i32 count) {
    mFirst += mCount;
    mCount = static_cast<std::size_t>(count);
    if (mHasGroups) std::ranges::fill(Part<u8>(mTable.Columns()[3]), static_cast<u8>(group));
  }

  std::span<i32> RoomForIds() override { return Part<i32>(mTable.Columns()[2]); }
  std::span<double> RoomForPositions() override { return Part<f64>(mTable.Columns()[0]); }
  std::span<double> RoomForVelocities() override { return Part<f64>(mTable.Columns()[1]); }
  std::span<double> RoomForScalars(i32 id, const std::string& name) override {
    return Part<f64>(Column(id, name, ValueType::F64, 1));
  }
  std::span<double> RoomForVectors(i32 id, const std::string& name) override {
    return Part<f64>(Column(id, name, ValueType::F64, 3));
  }
  std::span<u8> RoomForSwitches(i32 id, const std::string& name) override {
    return Part<u8>(Column(id, name, ValueType::U8, 1));
  }

  /// Properties stand by their ids.
  ParticleTable Take() {
    auto& columns = mTable.Columns();
    const std::size_t fields = columns.size() - mProperties.size();
    std::vector<std::size_t> order(mProperties.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::stable_sort(order, {}, [&](std::size_t i) { return mProperties[i].id; });
    std::vector<ParticleColumn> properties(std::make_move_iterator(columns.begin() + fields),
                                           std::make_move_iterator(columns.end()));
    columns.resize(fields);
    const i64 count = mTable.Count();
    mTable.TakeCount(0);
    for (const std::size_t i : order) {
      ParticleColumn& own = properties[i];
      mTable.Add(MELDO_SULVA::ColumnNameOf(mProperties[i].name), own.Type(), own.components)
          .values = std::move(own.values);
    }
    mTable.TakeCount(count);
    return std::move(mTable);
  }

 private:
  struct Property {
    i32 id;
    std::string name;
    ValueType type;
    int components;
    bool operator==(const Property&) const = default;
  };

  template <class T>
  std::span<T> Part(ParticleColumn& column) const {
    const std::size_t width = static_cast<std::size_t>(column.components);
    return std::span(std::get<std::vector<T>>(column.values))
        .subspan(mFirst * width, mCount * width);
  }
  ParticleColumn& Column(i32 id, const std::string& name, ValueType type, int components) {
    auto& columns = mTable.Columns();
    const Property wanted{id, name, type, components};
    const auto found = std::find(mProperties.begin(), mProperties.end(), wanted);
    if (found != mProperties.end())
      return columns[columns.size() - mProperties.size() +
                     static_cast<std::size_t>(found - mProperties.begin())];
    mProperties.push_back(wanted);
    return mTable.Add(name, type, components);
  }

  ParticleTable mTable;
  bool mHasGroups;
  std::vector<Property> mProperties;   ///< of the last columns
  std::size_t mFirst = 0, mCount = 0;  ///< the rows that are read
};

}  // namespace

ParticleTable ReadRecordedParticles(const fs::path& path) {
  Recording<ParticleCacheHeader> recording(path, HyperFile::Mode::kReadParts,
                                           MELDO_SULVA::ReadParticleCacheHeader);
  const ParticleCacheHeader& header = recording.header;
  const std::size_t groups = header.stores.size();
  if (groups > std::numeric_limits<u8>::max())
    throw host::FileError(path.string() + ": it holds more groups than any list has");
  i64 count = 0;
  for (const MELDO_SULVA::StoredParticles& stored : header.stores) count += stored.Count();
  ParticleTable table;
  try {
    RecordedTable recorded(count, groups > 1);
    recording.ForEachChunk(groups, "its particles are", [&](std::size_t chunk) {
      return StreamParticleChunk(
          recording.file, header, chunk, 1, [&](i32 next) { recorded.Begin(chunk, next); },
          recorded);
    });
    table = recorded.Take();
  } catch (const std::bad_alloc&) {
    throw host::FileError(path.string() + ": it doesn't fit into memory");
  } catch (const host::FileError& error) {
    const std::string why = error.what();
    if (why.find(path.string()) != std::string::npos) throw;
    throw host::FileError(fmt::format("{}: {}", path.string(), why));
  }
  if (groups > 1)
    for (std::size_t i = 0; i < groups; ++i)
      table.Find("group", 1)->words.push_back(recording.NameOf(i, "group"));
  table.spacing = header.domain.cellSize;
  const CacheOrigin& origin = header.origin;
  if (origin.isPresent)
    table.remarks = RemarksOf(
        {origin.version, origin.frame, origin.seconds, origin.fps, origin.simulation}, "m");
  return table;
}

std::vector<RecordedMesh> ReadRecordedMeshes(const fs::path& path) {
  Recording<MeshCacheHeader> recording(path, HyperFile::Mode::kRead, ReadMeshCacheHeader);
  std::vector<RecordedMesh> meshes(recording.header.meshes.size());
  recording.ForEachChunk(meshes.size(), "a mesh is", [&](std::size_t chunk) {
    meshes[chunk].name = recording.NameOf(chunk, "mesh");
    return ReadMeshChunk(recording.file, 1, meshes[chunk].geometry);
  });
  return meshes;
}

}  // namespace MELDO_GLOBAL::app
