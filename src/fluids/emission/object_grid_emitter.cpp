#include "fluids/emission/object_grid_emitter.h"

#include <algorithm>

#include "fluids/flow/field_carrier.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

ObjectGridEmitter::ObjectGridEmitter() { mStageMask |= StageBit(kEmitters); }

ObjectGridEmitter::ObjectGridEmitter(BaseNode* node, Scene* scene) : ObjectVolume(node, scene) {}

const NodeKind& ObjectGridEmitter::Kind() {
  static const NodeKind kind = {
      .id = 1300005,
      .type = "gridemitter",
      .label = "Emitter::Grid",
      .className = "ObjectGridEmitter",
      .typeId = kTypeObjectGridEmitter,
      .list = kListEmitters,
      .categories = kCategoryGrid,
      .stages = {kEmitters},
      .priority = 10,
      .menu = {"Grids/Emitters"},
      .purpose = "fills a volume with smoke, heat or fuel in every step",
      .example = {{example::kBall},
                  {example::kSmoke, example::kBallMesh, example::kBallVolume, example::kRate,
                   example::kPair, example::kEmitter}},
      .rows = Parameters,
      .make = MakeNode<ObjectGridEmitter>,
  };
  return kind;
}

const ParameterTable& ObjectGridEmitter::Parameters() {
  static const ParameterTable table = {
      LinkRow(kVolumeRow, "volume", "where smoke comes from: every cell inside this shape")
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .To(&ObjectGridEmitter::mVolume)
          .Required(),
      LinksRow(1000, "channels", "what comes out there: pairs of field and settings",
               {ChannelPair::Kind().id})
          .To(&ObjectGridEmitter::mPairs)
          .Required(),
  };
  return table;
}

bool ObjectGridEmitter::ResolveLinks() {
  if (!ObjectVolume::ResolveLinks()) return false;
  return mVolume && !mPairs.empty();
}

void ObjectGridEmitter::CheckDirty() {
  ObjectVolume::CheckDirty();
  const auto markChannels = [&] {
    for (ChannelPair* pair : mPairs)
      for (iBase* field :
           {static_cast<iBase*>(pair->mScalar), static_cast<iBase*>(pair->mVectorChannel)})
        if (field) field->MarkDirty(false);
  };
  if (IsDirty()) return markChannels();
  if ((mVolume && mVolume->IsDirty()) || (mScene && mScene->mFlags & Scene::kTimeChanged)) {
    MarkDirty(false);
    return markChannels();
  }
  for (const ChannelPair* pair : mPairs)
    if (IsDirtyNow(pair->mSettings) ||
        (pair->mSettings && IsDirtyNow(pair->mSettings->mDuration)) || IsDirtyNow(pair->mScalar) ||
        IsDirtyNow(pair->mVectorChannel))
      return MarkDirty(false);
}

void ObjectGridEmitter::ExpandBounds(Vec3d& min, Vec3d& max) {
  std::vector<VolumeBase*> members;
  if (mVolume) mVolume->CollectMembers(members);
  const auto hasGrid = [](const VolumeBase* member) { return member->HasGridData(); };
  if (std::any_of(members.begin(), members.end(), hasGrid)) mVolume->ExpandBounds(min, max);
}

void ObjectGridEmitter::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min,
                                           Vec3d& max) {
  std::vector<VolumeBase*> members;
  if (mVolume) mVolume->CollectMembers(members);
  for (VolumeBase* member : members)
    if (member->HasGridData()) member->ExpandBoundsWithin(low, high, min, max);
}

bool ObjectGridEmitter::ComesBefore(const iBase& other) const {
  if (other.HasCategory(kBitParticle) || other.GetListIndex() == kListCaches) return false;
  return ObjectVolume::ComesBefore(other);
}

bool ObjectGridEmitter::Commutes() const {
  return std::all_of(mPairs.begin(), mPairs.end(), [](const ChannelPair* pair) {
    return !pair->mSettings || pair->mSettings->Write().mode == static_cast<i32>(EmissionMode::Add);
  });
}

void ObjectGridEmitter::Prepare() {
  if (!IsDirty()) return;
  mTargets.clear();
  if (!mVolume) return void(Deactivate("it has no volume; name one under 'volume'"));
  if (mPairs.empty()) return void(Deactivate("it has no channels; name some under 'channels'"));
  mMembers.clear();
  mVolume->CollectMembers(mMembers);
  std::erase_if(mMembers, [](const VolumeBase* member) { return !member->HasGridData(); });
  if (mMembers.empty()) return void(Deactivate("its volume has no grid"));

  mWeights.assign(mPairs.size(), 1.0);
  bool anyRuns = false;
  for (std::size_t i = 0; i < mPairs.size(); ++i) {
    const GridEmissionSettings* settings = mPairs[i]->mSettings;
    if (!settings) continue;
    const Duration* duration = settings->mDuration;
    // What is given whole, and not by the second, asks for the window at the start of the step.
    const auto isOpen = [&] {
      const bool isAtOnce =
          settings->mAbsolute || settings->Write().mode == static_cast<i32>(EmissionMode::Set);
      if (isAtOnce && duration->HasActed(*mTime)) return false;
      return settings->mAbsolute ? duration->Weight(mTime->elapsed, mWeights[i])
                                 : duration->MeanWeight(*mTime, mWeights[i]);
    };
    const bool runs = !duration || !duration->Has(FLAG_ENABLED) || isOpen();
    if (!runs) mWeights[i] = 0;
    anyRuns = anyRuns || runs;
    if (mWeights[i] != 0) AddTarget(*mPairs[i], mWeights[i]);
  }
  if (!anyRuns) return void(Deactivate(kNotDueReason));
  mConstraints.Prepare(this);
  CollectObstacles(*mScene, mObstacles);
  mSetsOutside = !mObstacles.empty() &&
                 std::any_of(mTargets.begin(), mTargets.end(),
                             [](const Target& target) {
                               return target.write.mode == static_cast<i32>(EmissionMode::Set);
                             }) &&
                 ReachesBeyondSolids();
  mReach.Begin();
  mHasOpened = false;
  mSolid = static_cast<i32>(mObstacles.size());
  SetFlag(FLAG_ACTIVE, true);
}

void ObjectGridEmitter::AddTarget(const ChannelPair& pair, double duration) {
  iObject* field = pair.mScalar ? static_cast<iObject*>(pair.mScalar) : pair.mVectorChannel;
  // What a cache feeds holds its emissions already.
  if (!field || field->Has(FLAG_CACHED)) return;
  bool handsOver = false;
  for (const auto& [id, object] : mScene->List(kListOperators)) {
    const auto* carrier = dynamic_cast<const FieldCarrier*>(object.get());
    handsOver = handsOver || (carrier && object->Has(FLAG_ENABLED) && carrier->HandsOver(*field));
  }
  mTargets.push_back({pair.mScalar, pair.mVectorChannel, pair.mSettings, pair.mSettings->Write(),
                      duration, handsOver});
}

void ObjectGridEmitter::Begin() {
  if (!Has(FLAG_ACTIVE)) return;
  i32 layers = 0;
  for (const VolumeBase* member : mMembers) layers = std::max(layers, member->GetGrid()->mNz - 3);
  if (layers <= 0) Deactivate("its volume is thinner than a cell");
}

void ObjectGridEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!IsDirty() || !Has(FLAG_ACTIVE) || mTargets.empty()) return;
  const LayerOwner owner{data.index, data.count};
  bool splats = false;
  for (const Target& target : mTargets) splats = splats || target.write.splat;
  for (const VolumeBase* volume : mMembers) {
    const EGrid<double>& grid = *volume->GetGrid();
    for (i32 z = 1; z < grid.mNz - 2; ++z) {
      if (data.TestBreak()) return;
      const i32 layer = grid.mLayout.originCell.z + z;
      const bool owned = owner.Owns(layer);
      // Only a splat reaches from a neighbour's layer into an own one.
      if (owned || (splats && owner.Reaches(layer))) EmitLayer(*volume, z, owned, data);
    }
  }
}

void ObjectGridEmitter::EmitLayer(const VolumeBase& volume, i32 z, bool owned,
                                  const EvaluationThreadData& data) const {
  const EGrid<double>& grid = *volume.GetGrid();
  const GridLayout& layout = grid.mLayout;
  const auto place = [](double origin, i32 cell, double size) {
    return origin + (cell + 0.5) * size;
  };
  CellRun run;
  for (i32 y = 1; y < grid.mNy - 2; ++y) {
    const double* a = grid.mData + grid.Index(0, y, z);
    const double* b = a + grid.mNx;
    const double* c = a + grid.mSlice;
    const double* d = b + grid.mSlice;
    const double py = place(layout.simOrigin.y, y, layout.simCell.y);
    const double pz = place(layout.simOrigin.z, z, layout.simCell.z);
    for (i32 x = 1; x < grid.mNx - 2; ++x) {
      const double sum = a[x] + a[x + 1] + b[x] + b[x + 1] + c[x] + c[x + 1] + d[x] + d[x + 1];
      if (sum * 0.125 > 0) continue;
      run.positions[run.count++] = {place(layout.simOrigin.x, x, layout.simCell.x), py, pz};
      if (run.count == kRun) {
        EmitRun(volume, run, owned, data);
        run.count = 0;
      }
    }
  }
  EmitRun(volume, run, owned, data);
}

void ObjectGridEmitter::EmitRun(const VolumeBase& volume, const CellRun& run, bool owned,
                                const EvaluationThreadData& data) const {
  for (const Target& target : mTargets) {
    if (!owned && !target.write.splat) continue;
    if (target.scalar)
      EmitInto(*target.scalar, target.settings->GetAmount(), target, volume, run, data);
    else
      EmitInto(*target.vector, target.settings->GetVectorAmount(), target, volume, run, data);
  }
}

template <class Field, class Amount>
void ObjectGridEmitter::EmitInto(Field& field, const Amount& amount, const Target& target,
                                 const VolumeBase& volume, const CellRun& run,
                                 const EvaluationThreadData& data) const {
  Amount values[kRun];
  Vec3d positions[kRun];
  const auto* grid = field.GetGrid(0);
  if (!grid || !field.mEmissionHandler) return;
  const bool isSet = mSetsOutside && target.write.mode == static_cast<i32>(EmissionMode::Set);
  bool isReached = false, isFilled = false;
  i32 count = 0;
  const auto place = [&](i32 i) { return run.positions[i]; };
  const auto start = [&](i32 i) {
    const Vec3d& p = run.positions[i];
    if (!grid->mLayout.Contains(p, false)) return 0.0;
    isReached = isReached || grid->mLayout.Contains(p, true);
    return target.settings->mAbsolute ? 1.0 : mTime->stepDuration;
  };
  const auto take = [&](i32 i, double left) {
    const Vec3d& p = run.positions[i];
    const double weight = WithFalloff(left, target, volume, p);
    if (weight == 0) return;
    isFilled = isFilled || grid->mLayout.Contains(p, true);
    if (target.handsOver)
      SetOnce(mHasOpened, true);
    else
      NoteSolid(p);
    if (isSet && IsInSolid(p)) return;
    values[count] = amount * weight;
    positions[count++] = p;
  };
  mConstraints.ForEachWeighed({0, run.count, this, static_cast<u32>(data.index)}, place, start,
                              take);
  mReach.NoteReached(isReached);
  mReach.NoteFilled(isFilled);
  field.mEmissionHandler->EmitRow(values, positions, count, target.write, {data.index, data.count});
}

bool ObjectGridEmitter::IsInSolid(const Vec3d& p) const {
  const double least = -1e-6 * GetDomain().cellSize;
  return std::any_of(mObstacles.begin(), mObstacles.end(), [&](const VolumeBase* obstacle) {
    return obstacle->HasGridData() && obstacle->IsInBounds(p) &&
           obstacle->DistanceAtWorld(p) < least;
  });
}

/// What is set in a solid goes to the cells beside it, on top of what they hold. Where an emitter
/// reaches beyond solids it sets those itself, and in solids there is nothing to set.
bool ObjectGridEmitter::ReachesBeyondSolids() const {
  bool isOpen = false;
  for (const VolumeBase* volume : mMembers) {
    const EGrid<double>& grid = *volume->GetGrid();
    const Vec3d half{0.5, 0.5, 0.5};
    for (i32 z = 1; z < grid.mNz - 2 && !isOpen; ++z)
      ForEachCell({{1, 1, z}, {grid.mNx - 2, grid.mNy - 2, z + 1}}, [&](i32 x, i32 y, i32) {
        if (isOpen) return;
        const Vec3d c = ToReal({x, y, z}) + half;
        const Vec3d p = grid.mLayout.simOrigin + c * grid.mLayout.simCell;
        isOpen = volume->DistanceAtWorld(p) <= 0 && !IsInSolid(p);
      });
  }
  return isOpen;
}

void ObjectGridEmitter::NoteSolid(const Vec3d& p) const {
  if (mHasOpened.load(std::memory_order_relaxed)) return;
  const auto solid = std::find_if(mObstacles.begin(), mObstacles.end(), [&](VolumeBase* obstacle) {
    return obstacle->HasGridData() && obstacle->IsInBounds(p) && obstacle->DistanceAtWorld(p) <= 0;
  });
  if (solid == mObstacles.end()) return SetOnce(mHasOpened, true);
  const i32 index = static_cast<i32>(solid - mObstacles.begin());
  i32 first = mSolid.load(std::memory_order_relaxed);
  while (index < first && !mSolid.compare_exchange_weak(first, index, std::memory_order_relaxed)) {
  }
}

double ObjectGridEmitter::WithFalloff(double weight, const Target& target, const VolumeBase& volume,
                                      const Vec3d& p) const {
  const GridEmissionSettings& settings = *target.settings;
  switch (settings.mFalloff) {
    case GridEmissionSettings::kNoFalloff: return weight * target.duration;
    case GridEmissionSettings::kDepth: return weight * (volume.DepthWorld(p) * target.duration);
    case GridEmissionSettings::kDepthCurve:
      if (!settings.mFalloffCurve) return weight;
      return weight * (settings.mFalloffCurve->Evaluate(volume.DepthWorld(p)) * target.duration);
    default: return weight;
  }
}

const char* ObjectGridEmitter::WhyUnseen() {
  if (const char* why = mReach.WhyNothing()) return why;
  const auto solid = static_cast<std::size_t>(mSolid.load());
  if (mHasOpened || solid >= mObstacles.size()) return nullptr;
  return mReasons
      .insert("all cells that it fills are solid: they lie in the obstacle '" +
              mObstacles[solid]->mName + "', where no gas is")
      .first->c_str();
}

void ObjectGridEmitter::Finish() {
  if (Has(FLAG_ACTIVE) && !mTargets.empty() && !IsCancelled()) {
    if (const char* why = WhyUnseen()) TakeBackRun(why);
  }
  for (const Target& target : mTargets) {
    if (target.scalar) target.scalar->NoteEmission();
  }
  SetFlag(FLAG_ACTIVE, false);
  mWeights.clear();
  mTargets.clear();
  mMembers.clear();
  mObstacles.clear();
  mConstraints.Finish(this);
  ObjectVolume::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
