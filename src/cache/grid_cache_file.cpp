#include "cache/grid_cache_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL {

namespace {

constexpr double kMostCells = 1e9;  ///< from the origin of the world, on an axis

void WriteReals(HyperFile& file, std::initializer_list<Vec3d> vectors) {
  for (const Vec3d& v : vectors)
    for (int a = 0; a < 3; ++a) file.WriteLReal(v[a]);
}
void WriteLongs(HyperFile& file, const VecInt3D& v) {
  for (int a = 0; a < 3; ++a) file.WriteLong(v[a]);
}
bool ReadReals(HyperFile& file, std::initializer_list<Vec3d*> vectors) {
  for (Vec3d* v : vectors)
    for (int a = 0; a < 3; ++a)
      if (!file.ReadLReal((*v)[a])) return false;
  return true;
}
bool ReadLongs(HyperFile& file, VecInt3D& v) {
  return file.ReadLong(v.x) && file.ReadLong(v.y) && file.ReadLong(v.z);
}

/// Sizes that a grid can have, and a place that can be counted in its cells.
bool IsSane(const GridLayout& layout) {
  double count = 1;
  for (int a = 0; a < 3; ++a) {
    const double size = layout.worldSize[a], origin = layout.worldOrigin[a];
    if (layout.dims[a] < 1 || !(size > 1e-30 && size < 1e30)) return false;
    if (!(std::abs(origin) * layout.dims[a] < kMostCells * size)) return false;
    count *= layout.dims[a] + 1.0;
  }
  return layout.cellSize > 1e-30f && layout.cellSize < 1e30f && count < 2e9;
}

}  // namespace

void WriteLayout(HyperFile& file, const GridLayout& l) {
  WriteReals(file, {l.worldHalfCell, l.worldSize, l.simSize});
  WriteLongs(file, l.dims);
  file.WriteLong(l.count);
  file.WriteLong(l.slice);
  WriteReals(file,
             {l.worldCell, l.simToWorld, l.worldToCell, l.simToCell, l.worldToSim, l.simCell});
  for (const f32 value : {l.cellSize, l.inverseCell, l.halfCell}) file.WriteSReal(value);
  WriteReals(file, {l.worldOrigin, l.simOrigin});
  WriteLongs(file, l.originCell);
  WriteReals(file, {l.worldMax, l.simMax});
  WriteLongs(file, l.maxCell);
}

bool ReadLayout(HyperFile& file, GridLayout& layout) {
  GridLayout l;
  if (!ReadReals(file, {&l.worldHalfCell, &l.worldSize, &l.simSize}) || !ReadLongs(file, l.dims) ||
      !file.ReadLong(l.count) || !file.ReadLong(l.slice) ||
      !ReadReals(file, {&l.worldCell, &l.simToWorld, &l.worldToCell, &l.simToCell, &l.worldToSim,
                        &l.simCell}) ||
      !file.ReadSReal(l.cellSize) || !file.ReadSReal(l.inverseCell) ||
      !file.ReadSReal(l.halfCell) || !ReadReals(file, {&l.worldOrigin, &l.simOrigin}) ||
      !ReadLongs(file, l.originCell) || !ReadReals(file, {&l.worldMax, &l.simMax}) ||
      !ReadLongs(file, l.maxCell) || !IsSane(l))
    return false;
  layout.Set(l.dims, l.worldSize, l.cellSize, l.worldOrigin);
  return true;
}

bool LiesOnLattice(const GridLayout& layout, double cell) {
  for (int a = 0; a < 3; ++a)
    if (!(std::abs(layout.simOrigin[a]) < kMostCells * cell &&
          std::abs(layout.simMax[a]) < kMostCells * cell))
      return false;
  return true;
}

void WriteStoredGrid(HyperFile& file, const EGrid<double>* grid) {
  file.WriteBool(grid && grid->mData);
  if (!grid || !grid->mData) return;
  file.WriteLong(grid->mKind);
  WriteLongs(file, grid->Dims());
  WriteLayout(file, grid->mLayout);
}

bool ReadStoredGrid(HyperFile& file, StoredGrid& stored) {
  stored = {};
  if (!file.ReadBool(stored.isPresent)) return false;
  if (!stored.isPresent) return true;
  return file.ReadLong(stored.kind) && ReadLongs(file, stored.dims) &&
         ReadLayout(file, stored.layout) &&
         stored.dims == stored.layout.dims + ExtraOf(stored.kind);
}

bool ReadGridCacheHeader(HyperFile& file, GridCacheHeader& header, std::string& problem) {
  header = {};
  file.Rewind();
  const auto fail = [&](const char* what) {
    problem = file.Error().empty() ? fmt::format("{}: {}", file.Name(), what) : file.Error();
    return false;
  };
  const auto readHeaders = [&] {
    i32 count = 0;
    // A header has an item of two bytes at the least.
    if (!ReadLayout(file, header.domain) || !file.ReadLong(count) || count < 0 ||
        static_cast<std::size_t>(count) > file.Size() / 2)
      return false;
    header.grids.resize(count);
    for (StoredGrid& grid : header.grids)
      if (!ReadStoredGrid(file, grid)) return false;
    return true;
  };
  if (!readHeaders()) return fail("its grid sizes are damaged");
  i32 next = 0;
  while (!file.AtEnd()) {
    i32 id, level;
    if (!file.ReadChunkStart(id, level)) return fail("its chunks are damaged");
    if (id == kOriginChunk) {
      if (!ReadOrigin(file, header.origin) || !file.ReadChunkEnd() || !file.AtEnd() ||
          header.origin.objects.size() != header.chunks.size())
        return fail("what it says of its origin is damaged");
      break;
    }
    const bool isEmpty = file.AtEnd();
    if (!file.SkipToEndChunk() || !file.ReadChunkEnd()) return fail("its chunks are damaged");
    header.chunks.push_back(isEmpty ? -1 : next++);
  }
  if (next != static_cast<i32>(header.grids.size()))
    return fail("it holds other grids than it says");
  file.Rewind();
  if (!readHeaders()) return fail("its grid sizes are damaged");
  return true;
}

void WriteGrids(HyperFile& file, const GridLayout& domain,
                std::span<const std::array<const EGrid<double>*, 3>> objects,
                const BlockPacking& packing) {
  WriteLayout(file, domain);
  file.WriteLong(static_cast<i32>(
      std::count_if(objects.begin(), objects.end(), [](const auto& grids) { return grids[0]; })));
  for (const auto& grids : objects)
    if (grids[0]) WriteStoredGrid(file, grids[0]);
  i32 id = 0;
  for (const auto& grids : objects) {
    file.WriteChunkStart(++id, 0);
    for (const EGrid<double>* grid : grids)
      if (grid) WriteBlock(file, std::span<const double>(grid->mData, grid->mCount), packing);
    file.WriteChunkEnd();
  }
}

bool ReadSamples(HyperFile& file, std::span<double> samples, i32 threads) {
  PackedBlock block;
  return ReadBlock(file, block) && Unpack(block, samples, threads);
}

// ---- texts --------------------------------------------------------------------------------------

const char* LabelOfKind(i32 kind) {
  constexpr const char* labels[] = {"Velocity U",  "Velocity V", "Velocity W",     "Smoke",
                                    "Temperature", "Fuel",       "Fire",           "Color R",
                                    "Color G",     "Color B",    "Texture X",      "Texture Y",
                                    "Texture Z",   "Levelset",   "Nodal Levelset", "Viscosity",
                                    "Density",     "Vorticity",  "Pressure"};
  if (kind == 50) return "Boundary";
  return kind >= 0 && kind < static_cast<i32>(std::size(labels)) ? labels[kind] : "Custom";
}

std::string DescribeGridCache(HyperFile& file) {
  GridCacheHeader header;
  std::string problem;
  if (!ReadGridCacheHeader(file, header, problem)) return problem + "\n";
  VecInt3D most{};
  std::string lines;
  for (std::size_t i = 0; i < header.grids.size(); ++i) {
    const StoredGrid& grid = header.grids[i];
    most = Max(most, grid.dims);
    lines += fmt::format("Grid Type ({}): {}\n", i + 1, LabelOfKind(grid.kind));
  }
  return fmt::format("Grids: {}\nMax. cell count: {}\n{}", header.grids.size(),
                     i64{most.x} * most.y * most.z, lines);
}

}  // namespace MELDO_GLOBAL
