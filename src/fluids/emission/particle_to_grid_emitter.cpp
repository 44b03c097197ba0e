#include "fluids/emission/particle_to_grid_emitter.h"

#include <cmath>
#include <limits>

#include "fluids/emission/loose_points.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

ParticleToGridEmitter::ParticleToGridEmitter() { mStageMask |= StageBit(kOperators); }

ParticleToGridEmitter::ParticleToGridEmitter(BaseNode* node, Scene* scene)
    : Operator_ToGrid(node, scene) {}

bool ParticleToGridEmitter::ReadParameters() {
  if (!Operator_ToGrid::ReadParameters()) return false;
  mRadius = mRadiusCells * GetDomain().cellSize;
  return true;
}

bool ParticleToGridEmitter::ResolveLinks() {
  if (!Operator_ToGrid::ResolveLinks()) return false;
  return (Source() || mGroup || mPointsObject) && !mValues.empty();
}

void ParticleToGridEmitter::CheckDirty() {
  Operator_ToGrid::CheckDirty();
  bool changed = IsDirty() || mScene->mFlags & Scene::kTimeChanged;
  for (ChannelValue* value : mValues)
    changed = changed || IsDirtyNow(value) || IsDirtyNow(value->mScalar);
  if (!changed) return;
  if (!IsDirty()) MarkDirty(false);
  if (!(mScene->mFlags & Scene::kTimeChanged)) return;
  // A channel that nothing else feeds is trimmed and reset all the same.
  for (ChannelValue* value : mValues) {
    if (value->mScalar) value->mScalar->MarkDirty(false);
    if (value->mVectorChannel) value->mVectorChannel->MarkDirty(false);
  }
}

std::vector<Mesh*> ParticleToGridEmitter::SourceMeshes() const {
  std::vector<Mesh*> meshes;
  CollectMeshes(Source(), meshes);
  std::erase_if(meshes, [](const Mesh* mesh) { return mesh->mMesh.GetVertexCount() == 0; });
  return meshes;
}

void ParticleToGridEmitter::ExpandBounds(Vec3d& min, Vec3d& max) {
  if (mGroup) mGroup->ExpandBounds(min, max);
  for (const Mesh* mesh : SourceMeshes()) mesh->mMesh.ExpandBounds(min, max);
  if (!mPointsObject) return;
  ForEachLoosePoint(*mPointsObject, GetDomain(), [&](const Vec3d& p) {
    min = Min(min, p);
    max = Max(max, p);
  });
}

void ParticleToGridEmitter::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min,
                                               Vec3d& max) {
  if (mGroup) mGroup->ExpandBoundsWithin(low, high, min, max);
  for (const Mesh* mesh : SourceMeshes()) {
    const Vec3d &from = mesh->mMesh.GetBoundsMin(), &to = mesh->mMesh.GetBoundsMax();
    if (!BoxesMeet(from, to, low, high)) continue;
    min = Min(min, from);
    max = Max(max, to);
  }
  if (!mPointsObject) return;
  ForEachLoosePoint(*mPointsObject, GetDomain(), [&](const Vec3d& p) {
    if (!BoxesMeet(p, p, low, high)) return;
    min = Min(min, p);
    max = Max(max, p);
  });
}

bool ParticleToGridEmitter::TestDuration() {
  mWeight = 1;
  if (!mDuration || !mDuration->Has(FLAG_ENABLED) ||
      (mPerSecond ? mDuration->MeanWeight(*mTime, mWeight)
                  : mDuration->Weight(mTime->elapsed, mWeight)))
    return true;
  mWeight = 0;
  return false;
}

void ParticleToGridEmitter::Prepare() {
  if (!IsDirty()) return;
  if (!TestDuration()) return void(Deactivate(kClosedReason));
  if (mValues.empty()) return void(Deactivate("it has no values; name some under 'values'"));
  if (!Source() && !mGroup && !mPointsObject)
    return void(Deactivate("it has no source; name one under 'source'"));
  if (mDistanceMode == kByGradient && !mFalloffGradient)
    return void(Deactivate("it has no falloff"));
  constexpr double huge = std::numeric_limits<double>::max();
  mPointsMin = {huge, huge, huge};
  mPointsMax = {-huge, -huge, -huge};
  if (!(mGroup ? PrepareParticles() : PreparePoints())) return;
  mConstraints.Prepare(this);
  mReach.Begin();
  SetFlag(FLAG_ACTIVE, true);
}

bool ParticleToGridEmitter::PreparePoints() {
  mPoints.clear();
  if (mPointsObject)
    ForEachLoosePoint(*mPointsObject, GetDomain(), [&](const Vec3d& p) {
      mPoints.push_back(p);
      mPointsMin = Min(mPointsMin, p);
      mPointsMax = Max(mPointsMax, p);
    });
  for (const Mesh* mesh : SourceMeshes()) {
    const std::vector<Vec3d>& vertices = mesh->mMesh.GetVertices();
    mPoints.insert(mPoints.end(), vertices.begin(), vertices.end());
    mesh->mMesh.ExpandBounds(mPointsMin, mPointsMax);
  }
  mLookup.Build(mPoints.data(), static_cast<i32>(mPoints.size()), mRadius);
  return !mLookup.IsEmpty() || Deactivate("its source has no points, or its radius is 0");
}

bool ParticleToGridEmitter::PrepareParticles() {
  if (!(mRadius > 0)) return Deactivate("its radius is 0");
  mGroup->BuildTree(mParticleType, mScene->mThreadCount);
  if (!mGroup->Tree(mParticleType)) return Deactivate(kNoParticlesReason);
  const ParticleStore& store = mGroup->Store(mParticleType);
  for (const Vec3d& p : store.Positions()) {
    // Those at infinity aren't in the tree.
    if (!(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z))) continue;
    mPointsMin = Min(mPointsMin, p);
    mPointsMax = Max(mPointsMax, p);
  }
  mMass = store.Find<double>(property_id::kMass);
  mRadii = store.Find<double>(property_id::kRadius);
  mCarried.clear();
  for (const ChannelValue* value : mValues) mCarried.emplace_back(*value, store);
  return true;
}

CellBox ParticleToGridEmitter::CellsOfTargets() const {
  constexpr i32 kMost = std::numeric_limits<i32>::max() / 2;
  CellBox box{{kMost, kMost, kMost}, {-kMost, -kMost, -kMost}};
  for (const ChannelValue* value : mValues) {
    const EGrid<double>* grid = value->mScalar          ? value->mScalar->GetGrid(0)
                                : value->mVectorChannel ? value->mVectorChannel->GetGrid(0)
                                                        : nullptr;
    if (!grid || !grid->mData) continue;
    for (int a = 0; a < 3; ++a) {
      const double h = GetDomain().cellSize;
      box.min[a] = std::min(box.min[a], static_cast<i32>(grid->mLayout.simOrigin[a] / h) - 2);
      box.max[a] = std::max(box.max[a], static_cast<i32>(grid->mLayout.simMax[a] / h) + 3);
    }
  }
  return box;
}

void ParticleToGridEmitter::Begin() {
  if (!Has(FLAG_ACTIVE)) return;
  const double h = GetDomain().cellSize;
  const i32 margin = Source() ? 1 : static_cast<i32>(mRadius / h) + 1;
  const CellBox targets = CellsOfTargets();
  for (int a = 0; a < 3; ++a) {
    const double lo = std::floor(mPointsMin[a] / h);
    const double hi = std::floor(mPointsMax[a] / h);
    // Few particles far off are no reason to give up those that are near.
    if (!Source()) {
      mRegion.min[a] = static_cast<i32>(std::clamp(lo - margin, -1e9, 1e9));
      mRegion.max[a] = static_cast<i32>(std::clamp(hi + 1 + margin, -1e9, 1e9));
    } else {
      if (!(lo > -1e9 && hi < 1e9 && lo <= hi)) return void(Deactivate("its mesh has no box"));
      mRegion.min[a] = static_cast<i32>(lo) - margin;
      mRegion.max[a] = static_cast<i32>(hi) + 1 + margin;
    }
  }
  mRegion = Clip(mRegion, targets.min, targets.max);
}

void ParticleToGridEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const LayerOwner owner{data.index, data.count};
  // Centres of cells are samples of centred grids: only faces lie between the layers of two owners.
  bool faces = false;
  for (const ChannelValue* value : mValues)
    faces = faces || (!value->mScalar && dynamic_cast<VelocityField*>(value->mVectorChannel));
  Row row;
  for (i32 z = mRegion.min.z; z < mRegion.max.z; ++z) {
    if (data.TestBreak()) return;
    const bool owned = owner.Owns(z);
    if (!owned && !(faces && owner.Reaches(z))) continue;
    for (i32 y = mRegion.min.y; y < mRegion.max.y; ++y) {
      GatherRow(y, z, row, data.index);
      if (!row.positions.empty()) EmitRow(row, owned, owner);
    }
  }
}

const char* ParticleToGridEmitter::WhyUnseen() const {
  const bool isPlayed = std::all_of(mValues.begin(), mValues.end(), [](const ChannelValue* value) {
    const iBase* field = value->mScalar ? static_cast<const iBase*>(value->mScalar)
                                        : static_cast<const iBase*>(value->mVectorChannel);
    return field && field->Has(FLAG_CACHED);
  });
  return isPlayed ? nullptr : mReach.WhyNothing();
}

void ParticleToGridEmitter::Finish() {
  mLookup.Clear();
  mPoints.clear();
  mCarried.clear();
  if (Has(FLAG_ACTIVE)) {
    for (const ChannelValue* value : mValues)
      if (value->mScalar) value->mScalar->NoteEmission();
    if (const char* why = IsCancelled() ? nullptr : WhyUnseen()) TakeBackRun(why);
  }
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
  Operator_ToGrid::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
