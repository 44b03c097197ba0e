#include "cache/grid_cacher.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "cache/cache_rows.h"
#include "fluids/fields/channel_kinds.h"
#include "fluids/fields/field_unit.h"
#include "fluids/volume/volume_mesh.h"
#include "framework/cached_grids.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"
#include "grids/grid_resampler.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;
namespace fs = std::filesystem;

const NodeKind& GridCacher::Kind() {
  static const NodeKind kind = {
      .id = 1300098,
      .type = "cache",
      .label = "GOP::Cacher",
      .className = "GridCacher",
      .typeId = kTypeGridCacher,
      .list = kListCaches,
      .categories = kCategoryGrid,
      .flags = "S",
      .stages = {kLoadCache, kEmitters, kSaveCache},
      .priority = 0,
      .menu = {"Grids/Operators"},
      .purpose =
          "records fields, volumes, surfaces and the gas, a file a frame, and plays them back",
      .example =
          {{},
           {example::kSmoke, example::kGas,
            R"({ "type": "cache", "name": "recording", "parameters": { "mode": "record", "compression": "fast", "objects": ["smoke", "gas"] } })"}},
      .rows = Parameters,
      .make = MakeNode<GridCacher>,
  };
  return kind;
}

const ParameterTable& GridCacher::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = WithRows(
        kNumbers, {LongRow(cache_row::kFormat, "format", 0, "", "which kind of file is written")
                       .Choices({{0, "grid_cache"}})
                       .To(&GridCacher::mFormat),
                   LongRow(1020, "resampling", 0, "",
                           "how a recording is read into cells of another size: linear is smooth "
                           "and quick, cubic keeps more detail")
                       .Choices({{0, "linear"},
                                 {1, "cosine"},
                                 {2, "cubic"},
                                 {3, "monotonic_cubic"},
                                 {4, "bspline"}})
                       .To(&GridCacher::mResampleMode)});
    ObjectsRow(rows)
        .Accepts({VolumeMesh::Kind().id})
        .AcceptsAny({kListGeometry, kCategoryParticle})
        .AcceptsAny(kAllChannels)
        .AcceptsAny(kSolvers);
    return rows;
  }();
  return table;
}

GridCacher::GridCacher(BaseNode* node, Scene* scene)
    : Cache_OperatorBase(node, scene, "sulva_grid_frame") {}

// ---- objects ------------------------------------------------------------------------------------

CachedGrids* GridCacher::StateOf(iBase& object) { return dynamic_cast<CachedGrids*>(&object); }

GridCacher::Grids GridCacher::GridsOf(iBase& object) {
  CachedGrids* state = StateOf(object);
  if (!state) return {};
  Grids grids = state->GetCachedGrids();
  for (EGrid<double>*& grid : grids)
    if (grid && !grid->mData) grid = nullptr;
  if (!grids[0]) return {};
  return grids;
}

bool GridCacher::Place(iBase& object, const StoredGrid& stored) {
  CachedGrids* state = StateOf(object);
  if (!state || !state->TakeCachedPlace(stored.layout, stored.kind)) return false;
  object.SetFlag(FLAG_CACHED, true);
  return true;
}

std::vector<StoredObject> GridCacher::NamedObjects() const {
  std::vector<StoredObject> named;
  for (const iBase* object : mObjects)
    named.push_back({object->mName, UnitOfField(object->GetTypeId(), object->GetListIndex())});
  return named;
}

// ---- a frame ------------------------------------------------------------------------------------

void GridCacher::WriteBody(HyperFile& file) {
  std::vector<std::array<const EGrid<double>*, 3>> all;
  for (iBase* object : mObjects) {
    const Grids grids = GridsOf(*object);
    all.push_back({grids[0], grids[1], grids[2]});
  }
  WriteGrids(file, GetDomain(), all, {mCompression, mScene->mThreadCount});
}

bool GridCacher::LacksAny() const {
  for (std::size_t i = 0; i < mObjects.size(); ++i)
    if (GridsOf(*mObjects[i])[0] && (ChunkOf(i) < 0 || mHeader.chunks[ChunkOf(i)] < 0)) return true;
  return false;
}

void GridCacher::TakePlaces() {
  MoveStored();
  for (std::size_t i = 0; i < mObjects.size(); ++i) {
    StoredGrid* stored = ChunkOf(i) < 0 ? nullptr : GridOf(ChunkOf(i));
    if (!stored || !stored->isPresent) continue;
    if (Place(*mObjects[i], *stored)) {
      if (StateOf(*mObjects[i])->CachedKind() != stored->kind)
        Warn(
            fmt::format("\"{}\" plays what another kind of field was recorded from; 'objects' has "
                        "the order of the recording's own",
                        mObjects[i]->mName));
      continue;
    }
    Warn(fmt::format("{}: what stands at place {} doesn't fit \"{}\"", PlayedFile().Name(),
                     ChunkOf(i) + 1, mObjects[i]->mName));
    stored->isPresent = false;
  }
}

void GridCacher::MoveStored() {
  Matrix placement;
  mInterface.GetMatrix(placement);
  for (StoredGrid& stored : mHeader.grids) {
    if (!stored.isPresent) continue;
    const Vec3d cells = placement.offset / stored.layout.worldCell;
    const double far = std::max({std::abs(cells.x), std::abs(cells.y), std::abs(cells.z)});
    if (far > 0 && far < 1e9) stored.layout.SetOrigin(stored.layout.worldOrigin + placement.offset);
    if (far < 1e9 && LiesOnLattice(stored.layout, GetDomain().cellSize)) continue;
    Warn(PlayedFile().Name() + ": a grid lies too far away");
    stored.isPresent = false;
  }
}

bool GridCacher::Feeds(std::size_t, std::size_t chunk) const {
  const i32 header = mHeader.chunks[chunk];
  return header >= 0 && mHeader.grids[header].isPresent;
}

bool GridCacher::ReadChunk(std::size_t object, std::size_t chunk) {
  const StoredGrid& stored = *GridOf(chunk);
  const Grids grids = GridsOf(*mObjects[object]);
  if (!grids[0]) return true;
  const bool isStaggered = stored.kind == kFaceX;
  for (i32 c = 0; c < 3 && grids[c]; ++c)
    if (!ReadGrid(stored, isStaggered ? c : stored.kind, *grids[c])) return false;
  if (const double rate = PlayedRate(); isStaggered && rate != 1) Scale(grids, rate);
  return true;
}

void GridCacher::Scale(const Grids& velocity, double rate) const {
  constexpr i32 kBlock = 1 << 16;
  for (i32 c = 0; c < 3 && velocity[c]; ++c) {
    double* __restrict u = velocity[c]->mData;
    const i32 count = velocity[c]->mCount;
    ForEachBlock((count + kBlock - 1) / kBlock, mScene->mThreadCount, [&](i32 block) {
      const i32 last = static_cast<i32>(std::min(i64{count}, (i64{block} + 1) * kBlock));
      for (i32 i = block * kBlock; i < last; ++i) u[i] *= rate;
    });
  }
}

bool GridCacher::ReadGrid(const StoredGrid& stored, i32 kind, EGrid<double>& target) {
  const VecInt3D dims = stored.layout.dims + ExtraOf(kind);
  PackedBlock block;
  // Nothing is allocated for what isn't there.
  if (!ReadBlock(PlayedFile(), block) || !block.Holds<double>(CountOf(dims))) return false;
  const auto unpack = [&](EGrid<double>& grid) {
    return Unpack(block, std::span<double>(grid.mData, grid.mCount), mScene->mThreadCount);
  };
  if (stored.layout.Equals(target.mLayout) && dims == target.Dims()) {
    if (!unpack(target)) return false;
  } else {
    EGrid<double> source(stored.layout, kind);
    if (!source.mData || !unpack(source)) return false;
    Resample(source, target);
  }
  // The end of the step looks for the data.
  target.mActiveMin = {0, 0, 0};
  target.mActiveMax = target.Dims() - VecInt3D{1, 1, 1};
  return true;
}

void GridCacher::Resample(const EGrid<double>& source, EGrid<double>& target) {
  EGridResampler resampler;
  if (resampler.Init(&source, &target, false, mResampleMode, kWriteValue, {}, true))
    resampler.Run(ThreadCount(), mScene->mThread);
}

std::string GridCacher::DescribeFile(const fs::path& path) const {
  HyperFile file;
  if (mFormat != 0) return {};
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) return file.Error() + "\n";
  return DescribeGridCache(file);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
