#include "cache/particle_cacher.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "cache/particle_exchange.h"
#include "exchange/particle_files.h"
#include "framework/cache_setup_rows.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "host/atomic_file.h"
#include "host/console.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;
namespace fs = std::filesystem;

namespace {

PropertyType TypeOf(const iProperty& property) {
  if (dynamic_cast<const Property<Vec3d>*>(&property)) return PropertyType::Vector;
  const bool isSwitch = dynamic_cast<const Property<bool>*>(&property);
  return isSwitch ? PropertyType::Switch : PropertyType::Scalar;
}

/// Where a recording has both, the start of the frame is what its particles come from.
void TakeFrameStarts(ParticleStore& store) {
  const PropertyColumn<Vec3d>* starts = store.Find<Vec3d>(property_id::kFrameStart);
  if (!starts || !starts->IsAnywhere()) return;
  PropertyColumn<Vec3d>& old = store.Require<Vec3d>(property_id::kOldPosition);
  starts = store.Find<Vec3d>(property_id::kFrameStart);
  for (i32 row = 0; row < store.Count(); ++row)
    if (starts->Has(row)) old.Set(row, starts->Values()[row]);
}

}  // namespace

const NodeKind& ParticleCacher::Kind() {
  static const NodeKind kind = {
      .id = 1300099,
      .type = "cache_particle",
      .label = "POP::Cacher",
      .className = "ParticleCacher",
      .typeId = kTypeParticleCacher,
      .list = kListCaches,
      .categories = kCategoryParticle,
      .flags = "S",
      .stages = {kLoadCache, kEmitters, kSaveCache},
      .priority = 0,
      .menu = {"Particles/Operators"},
      .purpose = "records particles, a file a frame, and plays them back, at any speed",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "source": "ball mesh", "settings": "spark rate", "kind": "passive" } })",
            R"({ "type": "cache_particle", "name": "recording", "parameters": { "mode": "record", "compression": "fast", "objects": ["sparks"] } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleCacher>,
  };
  return kind;
}

const ParameterTable& ParticleCacher::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = WithRows(
        kNumbers,
        {RealRow(cache_row::kTimeScale, "time_scale", 1.0, "none",
                 "how fast it plays: 0.5 is slow motion, in which particles glide from frame to "
                 "frame at half their speed")
             .Range(0, 1e6)
             .OnlyWith(cache_row::kMode, {cache_row::kPlayBack, cache_row::kBoth})
             .To(&ParticleCacher::mTimeScale),
         LongRow(cache_row::kFormat, "format", cache_row::kParticles, "",
                 "which kind of file is written: plain ones are without the particles' numbers, so "
                 "that slow motion finds none of them again; those of other tools hold what these "
                 "know, and what plays from them goes on as if it had been born there")
             .Choices(cache_setup::ParticleFormatWords())
             .OrNumbers()
             .Range(0, cache_row::kParticles)
             .To(&ParticleCacher::mFormat),
         AbsentLinksRow(cache_row::kProperties, "properties",
                        "which properties are kept; without the list all that mean something "
                        "outside of the solvers")
             .AcceptsAny({kListParticles, kCategoryProperty})
             .OnlyWith(cache_row::kMode, {cache_row::kRecord, cache_row::kBoth})
             .AllWhenAbsent()
             .To(&ParticleCacher::mProperties)});
    ObjectsRow(rows).Accepts({ParticleGroup::kNodeType}).To(&ParticleCacher::mGroups);
    return rows;
  }();
  return table;
}

ParticleCacher::ParticleCacher(BaseNode* node, Scene* scene)
    : Cache_OperatorBase(node, scene, "sulva_particle_frame") {}

// ---- links --------------------------------------------------------------------------------------

bool ParticleCacher::ResolveLinks() {
  mTargets.clear();
  return Cache_OperatorBase::ResolveLinks();
}

void ParticleCacher::CollectListed() {
  mListed.clear();
  for (const Linked<ParticleGroup>& entry : mGroups) {
    mListed.push_back(entry.object);
    for (const ParticleKindRow& row : kParticleKindRows)
      if (NamesKind(entry.flags, row.kind) &&
          std::none_of(mTargets.begin(), mTargets.end(), [&](const Target& target) {
            return target.group == entry.object && target.kind == row.kind;
          }))
        mTargets.push_back({entry.object, row.kind});
  }
  mFirst = FirstTarget();
}

std::size_t ParticleCacher::FirstTarget() const {
  if (mGroups.empty()) return 0;
  const Linked<ParticleGroup>& entry = mGroups.front();
  for (const ParticleKind kind : {kLiquid, kPassive, kVortex, kDiffuse})
    for (std::size_t i = 0; i < mTargets.size(); ++i)
      if (NamesKind(entry.flags, kind) && mTargets[i].group == entry.object &&
          mTargets[i].kind == kind)
        return i;
  return 0;
}

void ParticleCacher::ClearLinks() {
  mTargets.clear();
  Cache_OperatorBase::ClearLinks();
}

void ParticleCacher::ClearMarks() {
  Cache_OperatorBase::ClearMarks();
  for (const Target& target : mTargets) target.group->ClearCached(target.kind);
}

std::vector<StoredObject> ParticleCacher::NamedObjects() const {
  std::vector<StoredObject> named;
  for (std::string& name : NamesOfTargets()) named.push_back({std::move(name), "m"});
  return named;
}

std::vector<std::string> ParticleCacher::NamesOfTargets() const {
  std::vector<std::string> names;
  for (const Target& target : mTargets)
    names.push_back(
        fmt::format("{} ({})", target.group->mName, kParticleKindRows[target.kind].name));
  return names;
}

PropertySelection ParticleCacher::Selection() const {
  PropertySelection selection;
  if (!Node() || !Node()->Get(cache_row::kProperties)) return selection;
  selection.listed.emplace();
  for (const iProperty* property : mProperties)
    if (property->Has(FLAG_ENABLED)) selection.listed->push_back(property->Key());
  return selection;
}

NodeId ParticleCacher::OwnerOf(i32 id, std::string_view name) const {
  NodeId first = 0;
  for (const auto& [node, object] : mScene->List(kListParticles)) {
    const auto* property = dynamic_cast<const iProperty*>(object.get());
    if (!property || property->PropertyId() != id) continue;
    if (property->mName == name) return node;
    if (first == 0) first = node;
  }
  return first;
}

// ---- writing ------------------------------------------------------------------------------------

std::vector<ParticleSource> ParticleCacher::Sources(
    std::vector<std::unique_ptr<ParticleColumns>>& filtered) const {
  std::vector<ParticleSource> sources;
  for (const Target& target : mTargets) {
    const ParticleStore& store = target.Store();
    sources.push_back({&store, &store});
    if (mFilters.IsEmpty()) continue;
    filtered.push_back(std::make_unique<ParticleColumns>());
    filtered.back()->Append(store);
    Filter(*filtered.back());
    sources.back().rows = filtered.back().get();
  }
  return sources;
}

void ParticleCacher::WriteBody(HyperFile& file) {
  std::vector<std::unique_ptr<ParticleColumns>> filtered;
  const std::vector<ParticleSource> sources = Sources(filtered);
  WriteParticleCache(file, GetDomain(), sources, Selection(), mFormat == cache_row::kPlainParticles,
                     {mCompression, mScene->mThreadCount});
}

bool ParticleCacher::LacksAny() const {
  for (std::size_t i = 0; i < mTargets.size(); ++i)
    if (!mTargets[i].Store().IsEmpty() && ChunkOf(i) < 0) return true;
  return false;
}

void ParticleCacher::Filter(ParticleColumns& particles) const {
  if (mFilters.IsEmpty()) return;
  std::vector<u8> isKept(static_cast<std::size_t>(particles.Count()));
  const std::span<const Vec3d> positions = particles.Positions();
  ForEachBlock(kShares, mScene->mThreadCount, [&](i32 share) {
    const IndexRange rows = particles.PartOf(share, kShares);
    mFilters.ForEachWeighed(
        {rows.first, rows.last, this, static_cast<u32>(share), &particles},
        [&](i32 row) { return positions[row]; }, [](i32) { return 1.0; },
        [&](i32 row, double) { isKept[row] = true; });
  });
  std::vector<RowMove> moves;
  i32 count = 0;
  for (i32 row = 0; row < particles.Count(); ++row) {
    if (!isKept[row]) continue;
    if (row != count) moves.push_back({row, count});
    ++count;
  }
  particles.MoveRows(moves);
  particles.SetCount(count);
}

// ---- playing ------------------------------------------------------------------------------------

ParticleCacher::Placing ParticleCacher::PlacingOf(const GridLayout& stored) const {
  // Scales that follow from cells of other sizes differ in their last digits.
  constexpr double kNear = 1e-6;
  Placing placing;
  Matrix node;
  mInterface.GetMatrix(node);
  placing.scale = stored.simToWorld * GetDomain().worldToSim;
  for (int a = 0; a < 3; ++a)
    placing.scales = placing.scales || std::abs(placing.scale[a] - 1) > kNear;
  placing.offset = (node.offset + stored.worldOrigin) * GetDomain().worldToSim;
  return placing;
}

double ParticleCacher::PartOfFrame() const {
  const double t = TimeToRead();
  // Before the recording begins nothing lies between two of its frames.
  return t < 0 ? 0 : t - std::floor(t);
}

void ParticleCacher::TakePlaces() {
  mPart = PartOfFrame();
  for (std::size_t i = 0; i < mTargets.size(); ++i) {
    if (ChunkOf(i) < 0) continue;
    const StoredParticles& stored = mHeader.stores[ChunkOf(i)];
    const Placing placing = PlacingOf(stored.layout);
    mTargets[i].group->SetFlag(FLAG_CACHED, true);
    const double cell = stored.layout.cellSize * (placing.scales ? placing.scale.x : 1.0);
    mTargets[i].group->SetCached(mTargets[i].kind, stored.Count() > 0 ? cell : 0.0);
    ParticleBounds bounds;
    if (stored.Count() > 0) {
      for (const Vec3d& corner : {stored.bounds.box.min, stored.bounds.box.max})
        bounds.Add(placing.Of(corner), 0, 0, mTargets[i].Store().Layout());
    }
    mTargets[i].Store().SetBounds(bounds);
  }
  ReadPlacesBefore();
}

void ParticleCacher::ReadPlacesBefore() {
  mBefore.clear();
  if (mPart == 0) return;
  fs::path path;
  mFileName.BuildPath(path, FrameToRead() - 1);
  std::error_code failed;
  HyperFile file;
  ParticleCacheHeader header;
  std::string problem;
  if (!fs::exists(path, failed)) return;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) return Fail(file.Error());
  if (!ReadParticleCacheHeader(file, header, problem)) return Fail(problem);
  if (!header.HasIds() || header.stores.size() != mHeader.stores.size() ||
      header.origin.simulation != mHeader.origin.simulation)
    return;
  mBefore = ReadParticlePlaces(file, header, mScene->mThreadCount);
}

bool ParticleCacher::ReadChunk(std::size_t object, std::size_t chunk) {
  const Target& target = mTargets[object];
  ParticleStore& store = target.Store();
  const bool isRead = ReadParticleChunk(
      PlayedFile(), mHeader, chunk,
      [&](i32 id, std::string_view name) { return OwnerOf(id, name); }, mScene->mThreadCount,
      store);
  if (isRead && !store.IsEmpty()) {
    TakeFrameStarts(store);
    PutIntoTime(store, mBefore.empty() ? ParticlePlaces() : mBefore[chunk]);
    PutIntoScene(store, mHeader.stores[chunk].layout);
    Filter(store);
  }
  if (!isRead) store.SetCount(0);
  NoteReplaced(target);
  return isRead;
}

void ParticleCacher::NoteReplaced(const Target& target) const {
  target.Store().NoteReplaced();
  target.group->MarkTreeStale(target.kind);
  target.Store().UpdateBounds(mScene->mThreadCount);
}

void ParticleCacher::PutIntoTime(ParticleStore& store, const ParticlePlaces& before) const {
  const double rate = PlayedRate();
  const std::span<Vec3d> positions = store.Positions(), velocities = store.Velocities();
  const auto forEachStart = [&](auto&& f) {
    for (const i32 id : {property_id::kFrameStart, property_id::kOldPosition})
      if (PropertyColumn<Vec3d>* starts = store.Find<Vec3d>(id))
        for (i32 row = 0; row < store.Count(); ++row)
          if (starts->Has(row)) f(starts->Values()[row], row);
  };
  std::vector<Vec3d> now;
  if (rate != 1) now.assign(positions.begin(), positions.end());
  if (mPart > 0) MoveBetween(store, before);
  if (rate == 1) return;
  // Where each comes from, too, lies as far behind as it moves here.
  forEachStart([&](Vec3d& start, i32 row) {
    start = positions[row] - (now[static_cast<std::size_t>(row)] - start) * rate;
  });
  for (Vec3d& velocity : velocities) velocity *= rate;
}

void ParticleCacher::MoveBetween(ParticleStore& store, const ParticlePlaces& before) const {
  std::vector<std::pair<i32, i32>> rowOfId;
  rowOfId.reserve(before.ids.size());
  for (std::size_t row = 0; row < before.ids.size(); ++row)
    rowOfId.emplace_back(before.ids[row], static_cast<i32>(row));
  std::sort(rowOfId.begin(), rowOfId.end());
  const PropertyColumn<Vec3d>* starts[] = {store.Find<Vec3d>(property_id::kFrameStart),
                                           store.Find<Vec3d>(property_id::kOldPosition)};
  // Who wasn't there before comes from where it says to have been.
  const auto placeBefore = [&](i32 row) {
    const i32 id = store.Ids()[row];
    const auto found = std::lower_bound(rowOfId.begin(), rowOfId.end(), std::pair(id, 0));
    if (found != rowOfId.end() && found->first == id) return before.positions[found->second];
    for (const PropertyColumn<Vec3d>* start : starts)
      if (start && start->Has(row)) return Vec3d(start->Values()[row]);
    return store.Positions()[row];
  };
  ForEachBlock(kShares, mScene->mThreadCount, [&](i32 share) {
    const IndexRange rows = store.PartOf(share, kShares);
    for (i32 row = rows.first; row < rows.last; ++row) {
      const Vec3d old = placeBefore(row);
      Vec3d& p = store.Positions()[row];
      p = old + (p - old) * mPart;
    }
  });
}

void ParticleCacher::PutIntoScene(ParticleStore& store, const GridLayout& stored) const {
  const Placing placing = PlacingOf(stored);
  const bool hasMoved = placing.scales || placing.offset != Vec3d{};
  const i32 threads = mScene->mThreadCount;
  const auto forEachRow = [&](auto&& f) {
    ForEachBlock(kShares, threads, [&](i32 share) {
      const IndexRange rows = store.PartOf(share, kShares);
      for (i32 row = rows.first; row < rows.last; ++row) f(row);
    });
  };
  if (hasMoved) {
    const std::span<Vec3d> positions = store.Positions(), velocities = store.Velocities();
    forEachRow([&](i32 row) {
      positions[row] = placing.Of(positions[row]);
      if (placing.scales) velocities[row] = velocities[row] * placing.scale;
    });
    for (const i32 id : {property_id::kFrameStart, property_id::kOldPosition})
      if (PropertyColumn<Vec3d>* places = store.Find<Vec3d>(id))
        forEachRow([&](i32 row) {
          if (places->Has(row)) places->Values()[row] = placing.Of(places->Values()[row]);
        });
  }
  // A radius that wasn't told is half a cell: of the scene in which they lived.
  if (stored.cellSize != GetDomain().cellSize || placing.scales) {
    PropertyColumn<double>& radii = store.Require<double>(property_id::kRadius);
    const double scale = placing.scales ? placing.scale.x : 1;
    forEachRow([&](i32 row) { radii.Set(row, radii.Get(row, stored.halfCell) * scale); });
  }
}

// ---- files of other tools -----------------------------------------------------------------------

void ParticleCacher::Evaluate(const EvaluationThreadData& data) {
  if (!IsForeign()) return Cache_OperatorBase::Evaluate(data);
  if (!Has(FLAG_ACTIVE) || !IsDirty()) return;
  try {
    if (mScene->mStage == kSaveCache) WriteForeign();
    if (mScene->mStage == kEmitters) ReadForeign();
  } catch (const FileError& error) {
    Fail(error.what());
  }
}

bool ParticleCacher::PrepareLoad() {
  if (!IsForeign()) return Cache_OperatorBase::PrepareLoad();
  mForeign = {};
  Spare({});
  fs::path path;
  mFileName.BuildPath(path, FrameToRead());
  std::error_code failed;
  if (fs::exists(path, failed)) return true;
  Print("Cache File " + path.string() + " could not be found!");
  TellMissing(path);
  return Deactivate("it has no file for the frame");
}

void ParticleCacher::WriteForeign() {
  fs::path path;
  mFileName.BuildPath(path, FrameToWrite());
  // What was played has moved on since, and isn't what the recording has of its own frames.
  if (const WrittenFile played = std::exchange(mForeign, {}); !played.path.empty()) {
    if (path == played.path) NoteWritten(played);
    if (path == played.path || PlaysOtherFrames()) return;
  }
  if (IsSpared(path)) return;
  const exchange::NamedFormat named = exchange::FormatOfName(path);
  if (!named.format) return Fail(path.string() + ": there is no writer for its format");
  std::vector<std::unique_ptr<ParticleColumns>> filtered;
  const exchange::WriteReport report = exchange::WriteParticles(
      path, TableOf(Sources(filtered), NamesOfTargets(), Selection()), *named.format,
      mCompression >= 1 && named.format->gzip != exchange::GzipUse::Never);
  for (const std::string& clause : mReported.News(report)) Warn(path.string() + ": " + clause);
  const std::string bytes = ReadFile(path);
  NoteWritten({path, bytes.size(), ChecksumOf(bytes)});
  ++mRuns;
}

std::optional<exchange::ParticleTable> ParticleCacher::ReadForeignBefore() {
  if (mPart == 0) return {};
  fs::path path;
  mFileName.BuildPath(path, FrameToRead() - 1);
  std::error_code failed;
  if (!fs::exists(path, failed)) return {};
  try {
    return exchange::ReadParticles(path);
  } catch (const FileError& error) {
    Fail(error.what());
  }
  return {};
}

ParticlePlaces ParticleCacher::PlacesIn(const exchange::ParticleTable& before,
                                        const exchange::ParticleTable& table,
                                        std::span<const i32> ids) {
  ParticlePlaces places;
  const exchange::ParticleColumn* positions = before.Find("position", 3);
  const std::vector<i64> rows = RowsOfSame(table, before);
  if (rows.empty() && table.Count() > 0 && before.Count() > 0)
    Warn(
        fmt::format("no column 'id' tells the particles of '{}' files apart: between two frames "
                    "they come from where they say to have been, or jump",
                    mFileName.GetSuffix()));
  for (std::size_t row = 0; positions && row < rows.size(); ++row) {
    if (rows[row] < 0) continue;
    const Vec3d p{positions->At(rows[row], 0), positions->At(rows[row], 1),
                  positions->At(rows[row], 2)};
    if (!std::isfinite(p.x + p.y + p.z)) continue;
    places.ids.push_back(ids[row]);
    places.positions.push_back(p);
  }
  return places;
}

std::vector<ParticleCacher::TargetRows> ParticleCacher::RowsOfTargets(
    const exchange::ParticleTable& table) const {
  const std::vector<std::string> names = NamesOfTargets();
  const exchange::ParticleColumn* groups = table.Find("group", 1);
  std::vector<std::size_t> targetOfWord;
  std::vector<TargetRows> all = {{mFirst, {}}};
  std::vector<std::size_t> placeOf(mTargets.size());
  for (const std::string& word : groups ? groups->words : std::vector<std::string>()) {
    const auto found = std::find(names.begin(), names.end(), word);
    targetOfWord.push_back(found != names.end() ? static_cast<std::size_t>(found - names.begin())
                                                : mFirst);
    const std::size_t target = targetOfWord.back();
    if (target == mFirst || placeOf[target] != 0) continue;
    placeOf[target] = all.size();
    all.push_back({target, {}});
  }
  if (all.size() == 1) return all;
  for (i64 row = 0; row < table.Count(); ++row) {
    const double word = groups->At(row);
    const bool isNamed = word >= 0 && word < static_cast<double>(targetOfWord.size());
    const std::size_t target = isNamed ? targetOfWord[static_cast<std::size_t>(word)] : mFirst;
    all[placeOf[target]].rows.push_back(row);
  }
  return all;
}

void ParticleCacher::ReadForeign() {
  if (mTargets.empty()) return;
  fs::path path;
  mFileName.BuildPath(path, FrameToRead());
  Spare(path);
  const exchange::ParticleTable table = exchange::ReadParticles(path);
  for (const std::string& warning : table.warnings) Warn(path.string() + ": " + warning);
  mPart = PartOfFrame();
  const std::optional<exchange::ParticleTable> before = ReadForeignBefore();
  const std::vector<TargetRows> all = RowsOfTargets(table);
  try {
    for (const TargetRows& part : all)
      TakeForeign(mTargets[part.target], all.size() == 1 ? table : table.Picked(part.rows),
                  before ? &*before : nullptr);
  } catch (const FileError& error) {
    for (const TargetRows& part : all) {
      mTargets[part.target].Store().SetCount(0);
      NoteReplaced(mTargets[part.target]);
    }
    throw FileError(path.string() + ": " + error.what());
  }
  Spare({});
  if (!Records()) return;
  const std::string bytes = ReadFile(path);
  mForeign = {path, bytes.size(), ChecksumOf(bytes)};
}

void ParticleCacher::TakeForeign(const Target& target, const exchange::ParticleTable& table,
                                 const exchange::ParticleTable* before) {
  ParticleStore& store = target.Store();
  const auto find = [&](std::string_view name, PropertyType type) -> std::optional<PropertyKey> {
    for (const auto& [node, object] : mScene->List(kListParticles))
      if (const auto* property = dynamic_cast<const iProperty*>(object.get());
          property && property->mName == name && TypeOf(*property) == type)
        return property->Key();
    return {};
  };
  for (const std::string& name :
       TakeTable(table, kBornFlags | kParticleKindRows[target.kind].flag, find, store))
    Warn(fmt::format("the recording's column '{}' is left out: no property has its name", name));
  PutIntoTime(store, before ? PlacesIn(*before, table, store.Ids()) : ParticlePlaces());
  PutIntoScene(store, GetDomain());
  Filter(store);
  NoteReplaced(target);
}

std::string ParticleCacher::DescribeFile(const fs::path& path) const {
  if (IsForeign()) {
    try {
      return fmt::format("Particles: {}\n", exchange::ReadParticles(path).Count());
    } catch (const FileError& error) {
      return fmt::format("{}\n", error.what());
    }
  }
  HyperFile file;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) return file.Error() + "\n";
  return DescribeParticleCache(file);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
