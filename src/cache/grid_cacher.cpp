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
    ParameterTable rows = CommonRows();
    std::find_if(rows.begin(), rows.end(),
                 [](const ParameterRow& row) { return row.id == cache_row::kObjects; })
        ->Accepts({VolumeMesh::Kind().id})
        .AcceptsAny({kListGeometry, kCategoryParticle})
        .AcceptsAny(kAllChannels)
        .AcceptsAny(kSolvers);
    const ParameterTable own = {
        StringRow(1008, "file_statistics", "",
                  "filled in by the program: what the file of this frame holds")
            .Kept(),
        LongRow(cache_row::kFormat, "format", 0, "", "which kind of file is written")
            .Choices({{0, "grid_cache"}})
            .To(&GridCacher::mFormat),
        StringRow(1015, "statistics", "",
                  "filled in by the program: first and last file, size and gaps")
            .Kept(),
        ButtonRow(1016, "delete_files", "what `sulva cache delete` does"),
        ButtonRow(1017, "choose_objects", "picks or makes what is to be recorded"),
        LinkRow(1018, "duration", "records and plays only inside this time window",
                {Duration::Kind().id})
            .To(&GridCacher::mDuration),
        ButtonRow(1019, "choose_duration", "picks or makes a time window"),
        LongRow(1020, "resampling", 0, "",
                "how a recording is read into cells of another size: linear is smooth and quick, "
                "cubic keeps more detail")
            .Choices({{0, "linear"},
                      {1, "cosine"},
                      {2, "cubic"},
                      {3, "monotonic_cubic"},
                      {4, "bspline"}})
            .To(&GridCacher::mResampleMode),
        LongRow(1021, "digits", 5, "",
                "width of the frame number in the names of files: 5 gives 00012")
            .Range(1, 6)
            .To(&GridCacher::mDigits),
    };
    rows.insert(rows.end(), own.begin(), own.end());
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

// ---- stages -------------------------------------------------------------------------------------

void GridCacher::Prepare() {
  // What stage 0 settled holds in the stage of the emitters too.
  if (mScene->mStage != kEmitters) PrepareShared();
}

void GridCacher::Evaluate(const EvaluationThreadData&) {
  if (!Has(FLAG_ACTIVE) || !IsDirty()) return;
  if (mScene->mStage == kSaveCache) {
    WriteFrame();
    mPlayed = {};
  }
  if (mScene->mStage == kEmitters) ReadFrame();
}

void GridCacher::Finish() {
  mFile.reset();
  Cache_OperatorBase::Finish();
}

void GridCacher::WriteFrame() {
  HyperFile file;
  fs::path path;
  std::vector<Grids> all;
  for (iBase* object : mObjects) all.push_back(GridsOf(*object));
  mFileName.BuildPath(path, FrameToWrite());
  if (path == mPlayed.path && HoldsAll(all)) return mWritten.push_back(mPlayed);
  if (IsSpared(path)) return;
  if (!mFileName.OpenForWrite(file, FrameToWrite(), path)) return Fail(file.Error());
  std::vector<std::array<const EGrid<double>*, 3>> written;
  for (const Grids& grids : all) written.push_back({grids[0], grids[1], grids[2]});
  WriteGrids(file, GetDomain(), written, mCompression, mScene->mThreadCount);
  CacheOrigin origin = OriginOfFrame();
  for (const iBase* object : mObjects)
    origin.objects.push_back(
        {object->mName, UnitOfField(object->GetTypeId(), object->GetListIndex())});
  WriteOrigin(file, origin);
  if (!file.Close()) return Fail(file.Error());
  mWritten.push_back({path, file.Size(), file.Sum()});
  ++mRuns;
}

bool GridCacher::HoldsAll(const std::vector<Grids>& all) const {
  for (std::size_t i = 0; i < all.size(); ++i)
    if (all[i][0] && (mChunks[i] < 0 || mHeader.chunks[mChunks[i]] < 0)) return false;
  return true;
}

void GridCacher::MatchObjects() {
  const std::size_t count = mHeader.chunks.size();
  const std::vector<StoredObject>& stored = mHeader.origin.objects;
  mChunks.assign(mObjects.size(), -1);
  std::vector<bool> isTaken(count);
  const auto take = [&](std::size_t object, std::size_t chunk) {
    mChunks[object] = static_cast<i32>(chunk);
    isTaken[chunk] = true;
  };
  for (std::size_t i = 0; i < mObjects.size(); ++i)
    for (std::size_t chunk = 0; chunk < stored.size() && mChunks[i] < 0; ++chunk)
      if (!isTaken[chunk] && stored[chunk].name == mObjects[i]->mName) take(i, chunk);
  for (std::size_t i = 0; i < mObjects.size(); ++i) {
    if (mChunks[i] >= 0) continue;
    const bool hasPlace = i < count && !isTaken[i];
    if (hasPlace) take(i, i);
    if (stored.empty()) continue;
    Warn(hasPlace ? fmt::format("the recording has no \"{}\"; it plays \"{}\", which stands at its "
                                "place in 'objects'",
                                mObjects[i]->mName, stored[i].name)
                  : fmt::format("the recording has no \"{}\"", mObjects[i]->mName));
  }
  if (stored.empty() && count != mObjects.size())
    Warn(fmt::format("{}: it holds {} objects, 'objects' names {}", mFile->Name(), count,
                     mObjects.size()));
}

bool GridCacher::PrepareLoad() {
  mPlayed = {};
  mFile = std::make_unique<HyperFile>();
  std::string problem;
  const auto fail = [&](const char* reason) {
    mFile.reset();
    return Deactivate(reason);
  };
  if (!OpenFrame(*mFile)) return fail("it has no file for the frame");
  if (!ReadGridCacheHeader(*mFile, mHeader, problem)) {
    Spare(mFile->Name());
    Fail(problem);
    return fail("its file can't be read");
  }
  if (!CheckOrigin(*mFile, mHeader.origin)) return fail("its file is of another simulation");
  MatchObjects();
  MoveStored();
  for (std::size_t i = 0; i < mObjects.size(); ++i) {
    if (mChunks[i] < 0 || mHeader.chunks[mChunks[i]] < 0) continue;
    StoredGrid& stored = mHeader.grids[mHeader.chunks[mChunks[i]]];
    if (!stored.isPresent) continue;
    if (Place(*mObjects[i], stored)) {
      if (StateOf(*mObjects[i])->CachedKind() != stored.kind)
        Warn(
            fmt::format("\"{}\" plays what another kind of field was recorded from; 'objects' has "
                        "the order of the recording's own",
                        mObjects[i]->mName));
      continue;
    }
    Warn(fmt::format("{}: what stands at place {} doesn't fit \"{}\"", mFile->Name(),
                     mChunks[i] + 1, mObjects[i]->mName));
    stored.isPresent = false;
  }
  return true;
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
    Warn(mFile->Name() + ": a grid lies too far away");
    stored.isPresent = false;
  }
}

void GridCacher::ReadFrame() {
  if (!mFile) return;
  std::vector<iBase*> fed(mHeader.chunks.size(), nullptr);
  bool feedsAll = mHeader.chunks.size() == mObjects.size();
  for (std::size_t i = 0; i < mObjects.size(); ++i) {
    if (mChunks[i] >= 0) {
      fed[mChunks[i]] = mObjects[i];
    } else {
      feedsAll = false;
    }
  }
  for (std::size_t chunk = 0; chunk < fed.size(); ++chunk) {
    i32 id, level;
    if (!mFile->ReadChunkStart(id, level)) break;
    const i32 header = mHeader.chunks[chunk];
    if (header >= 0 && fed[chunk]) {
      const StoredGrid& stored = mHeader.grids[header];
      const bool isRead = stored.isPresent && ReadObject(*fed[chunk], stored);
      if (stored.isPresent && !isRead)
        Fail(fmt::format("{}: the samples of \"{}\" can't be read", mFile->Name(),
                         fed[chunk]->mName));
      feedsAll = feedsAll && isRead;
    }
    if (!mFile->SkipToEndChunk() || !mFile->ReadChunkEnd()) break;
  }
  if (!mFile->Error().empty()) Fail(mFile->Error());
  if (feedsAll && mFile->Error().empty()) mPlayed = {mFile->Name(), mFile->Size(), mFile->Sum()};
  mFile.reset();
}

bool GridCacher::ReadObject(iBase& object, const StoredGrid& stored) {
  const Grids grids = GridsOf(object);
  if (!grids[0]) return true;
  const bool isStaggered = stored.kind == kFaceX;
  for (i32 c = 0; c < 3 && grids[c]; ++c)
    if (!ReadGrid(stored, isStaggered ? c : stored.kind, *grids[c])) return false;
  return true;
}

bool GridCacher::ReadGrid(const StoredGrid& stored, i32 kind, EGrid<double>& target) {
  const VecInt3D dims = stored.layout.dims + ExtraOf(kind);
  SampleBlock block;
  // Nothing is allocated for what isn't there.
  if (!ReadBlock(*mFile, block) || block.samples != static_cast<std::size_t>(CountOf(dims)))
    return false;
  const auto unpack = [&](EGrid<double>& grid) {
    return Unpack(block, {grid.mData, static_cast<std::size_t>(grid.mCount)}, mScene->mThreadCount);
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
