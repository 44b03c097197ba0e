#include "fluids/emission/particle_to_grid_emitter.h"

#include <cmath>
#include <limits>

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

ParticleToGridEmitter::ParticleToGridEmitter() { mStageMask |= StageBit(kOperators); }

ParticleToGridEmitter::ParticleToGridEmitter(BaseNode* node, Scene* scene)
    : Operator_ToGrid(node, scene) {}

namespace {
ParameterRow FalloffRow() {
  ParameterRow row =
      GradientRow(ParticleToGridEmitter::kFalloffRow, "falloff",
                  "how a point fades outwards: red is its strength from the middle to the radius");
  row.creation = Gradient{{{0, {1, 1, 1}}, {1, {0, 0, 0}}}};
  return row.Missing(std::monostate{});
}
}  // namespace

const NodeKind& ParticleToGridEmitter::Kind() {
  static const NodeKind kind = {
      .id = 1300008,
      .type = "properties_particles",
      .label = "POP::PointData To Grid",
      .className = "ParticleToGridEmitter",
      .typeId = kTypeParticleToGridEmitter,
      .list = kListEmitters,
      .categories = kCategoryGrid | kCategoryParticle,
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "gives particles, or the vertices of a mesh, to a field: a soft blob round each",
      .example =
          {{example::kBall},
           {example::kSmoke, example::kBallMesh,
            R"({ "type": "channelvalue", "name": "dust", "parameters": { "channel": "smoke", "value": 0.5 } })",
            R"({ "type": "properties_particles", "name": "dusty", "parameters": { "source": "ball mesh", "values": ["dust"], "radius": 2 } })"}},
      .rows = Parameters,
      .make = MakeNode<ParticleToGridEmitter>,
  };
  return kind;
}

const ParameterTable& ParticleToGridEmitter::Parameters() {
  static const ParameterTable table = {
      LinkRow(kSourceRow, "source",
              "the particles, or the mesh or group of meshes, whose points become smoke",
              {Mesh::Kind().id, MultiMesh::Kind().id, ParticleGroup::Kind().id})
          .To(&ParticleToGridEmitter::mSource)
          .To(&ParticleToGridEmitter::mGroup)
          .Required(),
      LongRow(1001, "particle_type", 0, "", "which particles of a linked group count")
          .Choices(ParticleKindChoices())
          .To(&ParticleToGridEmitter::mParticleType),
      LinksRow(1002, "values", "what each point brings, into which field",
               {ChannelValue::Kind().id})
          .To(&ParticleToGridEmitter::mValues)
          .Required(),
      LongRow(kDistanceModeRow, "distance_mode", 0, "",
              "soft or even blobs: how points weigh by their distance")
          .Choices({{0, "none"}, {2, "falloff"}})
          .To(&ParticleToGridEmitter::mDistanceMode),
      FalloffRow().To(&ParticleToGridEmitter::mFalloffGradient),
      RealRow(kMassScaleRow, "mass_scale", 1.0, "none",
              "makes every point count for more or less; times the mass of a particle")
          .To(&ParticleToGridEmitter::mMassScale),
      RealRow(
          kRadiusScaleRow, "radius_scale", 1.0, "none",
          "makes every point count for more or less; times the part of 'radius' that the radius "
          "of a particle comes to")
          .To(&ParticleToGridEmitter::mRadiusScale),
      BoolRow(1007, "per_second", false, "brings its values over a second instead of all in a step")
          .To(&ParticleToGridEmitter::mPerSecond),
      BoolRow(1009, "show_options", false, "a dialog shows what is seldom needed too").Kept(),
      LongRow(1013, "constraint_mode", 0, "",
              "whether constraints thin out points or what they bring")
          .Choices({{0, "cells"}, {1, "points"}})
          .To(&ParticleToGridEmitter::mConstraintMode),
      RealRow(kRadiusRow, "radius", 1.4, "cells",
              "how far a point reaches: larger blobs join into a smooth skin")
          .AtLeast(0)
          .To(&ParticleToGridEmitter::mRadiusCells),
      LinkRow(1016, "duration", "points are gathered only inside this time window",
              {Duration::Kind().id})
          .To(&ParticleToGridEmitter::mDuration),
  };
  return table;
}

bool ParticleToGridEmitter::ReadParameters() {
  if (!Operator_ToGrid::ReadParameters()) return false;
  mRadius = mRadiusCells * GetDomain().cellSize;
  return true;
}

bool ParticleToGridEmitter::ResolveLinks() {
  if (!Operator_ToGrid::ResolveLinks()) return false;
  return (Source() || mGroup) && !mValues.empty();
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
}

bool ParticleToGridEmitter::TestDuration() {
  mWeight = 1;
  if (!mDuration || !mDuration->Has(FLAG_ENABLED) || mDuration->Weight(mTime->elapsed, mWeight))
    return true;
  mWeight = 0;
  return false;
}

void ParticleToGridEmitter::Prepare() {
  if (!IsDirty()) return;
  if (!TestDuration()) return void(Deactivate(kClosedReason));
  if (mValues.empty()) return void(Deactivate("it has no values"));
  if (!Source() && !mGroup) return void(Deactivate("it has no mesh and no particles"));
  if (mDistanceMode == kByGradient && !mFalloffGradient)
    return void(Deactivate("it has no falloff"));
  constexpr double huge = std::numeric_limits<double>::max();
  mPointsMin = {huge, huge, huge};
  mPointsMax = {-huge, -huge, -huge};
  if (!(mGroup ? PrepareParticles() : PrepareMesh())) return;
  mConstraints.Prepare(this);
  mReach.Begin();
  SetFlag(FLAG_ACTIVE, true);
}

bool ParticleToGridEmitter::PrepareMesh() {
  mPoints.clear();
  for (const Mesh* mesh : SourceMeshes()) {
    const std::vector<Vec3d>& vertices = mesh->mMesh.GetVertices();
    mPoints.insert(mPoints.end(), vertices.begin(), vertices.end());
    mesh->mMesh.ExpandBounds(mPointsMin, mPointsMax);
  }
  mLookup.Build(mPoints.data(), static_cast<i32>(mPoints.size()), mRadius);
  return !mLookup.IsEmpty() || Deactivate("its mesh has no vertices, or its radius is 0");
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
  const i32 margin = mGroup ? static_cast<i32>(mRadius / h) + 1 : 1;
  const CellBox targets = CellsOfTargets();
  for (int a = 0; a < 3; ++a) {
    const double lo = std::floor(mPointsMin[a] / h);
    const double hi = std::floor(mPointsMax[a] / h);
    // Few particles far off are no reason to give up those that are near.
    if (mGroup) {
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

void ParticleToGridEmitter::GatherRow(i32 y, i32 z, Row& row, u32 worker) const {
  row.positions.clear();
  row.weights.clear();
  row.carried.resize(mCarried.size());
  for (auto& values : row.carried) values.clear();
  const GridLayout& domain = GetDomain();
  const double h = domain.cellSize;
  for (i32 x = mRegion.min.x; x < mRegion.max.x; ++x) {
    const Vec3d p = domain.simOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * h;
    double weight;
    if (!(mGroup ? GatherParticles(p, weight, row, worker) : GatherCell(p, weight, row, worker)))
      continue;
    row.positions.push_back(p);
    row.weights.push_back(weight);
  }
}

bool ParticleToGridEmitter::WeighCell(const Vec3d& p, double& weight, u32 worker) const {
  weight = mPerSecond && mWeight != 0 ? mTime->stepDuration : 1.0;
  if (!mConstraints.IsEmpty() && mConstraintMode == 0) mConstraints.Test(p, weight, this, worker);
  return weight != 0;
}

bool ParticleToGridEmitter::WeighPoint(const Vec3d& point, double distanceSquared, double& weight,
                                       u32 worker) const {
  if (!mConstraints.IsEmpty() && mConstraintMode != 0 &&
      !mConstraints.Test(point, weight, this, worker))
    return false;
  // A vertex has a density of 1 and a radius of that of the search.
  weight *= mMassScale;
  weight *= mRadiusScale;
  if (mDistanceMode == kByGradient)
    weight *= mFalloffGradient->Evaluate(std::sqrt(distanceSquared) / mRadius).x;
  return true;
}

bool ParticleToGridEmitter::GatherCell(const Vec3d& p, double& weight, Row& row, u32 worker) const {
  mLookup.Find(p, kMostNeighbours, row.neighbours);
  double cellWeight;
  if (row.neighbours.empty() || !WeighCell(p, cellWeight, worker)) return false;
  double sum = 0;
  i32 count = 0;
  for (const PointNeighbour& neighbour : row.neighbours) {
    double w = cellWeight;
    if (!WeighPoint(mPoints[neighbour.index], neighbour.distanceSquared, w, worker)) continue;
    sum += w;
    ++count;
  }
  weight = count > 0 ? sum / count : 0;
  return count > 0;
}

bool ParticleToGridEmitter::GatherParticles(const Vec3d& p, double& weight, Row& row,
                                            u32 worker) const {
  mGroup->Tree(mParticleType)->FindNearest(p, mRadius, row.particles);
  double cellWeight;
  if (row.particles.Hits().empty() || !WeighCell(p, cellWeight, worker)) return false;
  const ParticleStore& store = mGroup->Store(mParticleType);
  for (auto& values : row.carried) values.push_back({});
  double sum = 0;
  i32 count = 0;
  for (const TreeHit& hit : row.particles.Hits()) {
    double w = cellWeight;
    if (!WeighPoint(store.Positions()[hit.index], hit.distanceSquared, w, worker)) continue;
    if (mMass) w *= mMass->Get(hit.index, 1);
    if (mRadii) w *= mRadii->Get(hit.index, mRadius) / mRadius;
    for (std::size_t i = 0; i < mCarried.size(); ++i)
      if (mCarried[i].IsOfEach()) row.carried[i].back() += mCarried[i].At(hit.index) * w;
    sum += w;
    ++count;
  }
  if (count == 0) {
    for (auto& values : row.carried) values.pop_back();
    return false;
  }
  for (auto& values : row.carried) values.back() *= 1.0 / count;
  weight = sum / count;
  return true;
}

void ParticleToGridEmitter::EmitRow(Row& row, bool owned, const LayerOwner& owner) const {
  const EmissionWrite write = mSettings.Write();
  const auto collect = [&](const EGrid<double>* grid, auto&& valueAt, auto& values) {
    values.clear();
    row.places.clear();
    if (!grid || !grid->mData) return;
    for (std::size_t i = 0; i < row.positions.size(); ++i) {
      if (!grid->mLayout.Contains(row.positions[i], true)) continue;
      mReach.NoteFilled(row.weights[i] != 0);
      values.push_back(valueAt(i));
      row.places.push_back(row.positions[i]);
    }
    mReach.NoteReached(!values.empty());
  };
  for (std::size_t index = 0; index < mValues.size(); ++index) {
    const ChannelValue* target = mValues[index];
    const bool isOfEach = mGroup && mCarried[index].IsOfEach();
    const auto emit = [&](auto* channel, auto&& valueAt, auto& values) {
      // What a cache feeds holds its emissions already.
      if (!channel || channel->Has(FLAG_CACHED) || !channel->mEmissionHandler) return;
      collect(channel->GetGrid(0), valueAt, values);
      channel->mEmissionHandler->EmitRow(values.data(), row.places.data(),
                                         static_cast<i32>(values.size()), write, owner);
    };
    if (target->mScalar) {
      const auto scalar = [&](std::size_t i) {
        return isOfEach ? row.carried[index][i].x : row.weights[i] * target->mValue;
      };
      if (owned) emit(target->mScalar, scalar, row.scalars);
    } else if (owned || dynamic_cast<VelocityField*>(target->mVectorChannel)) {
      const auto vector = [&](std::size_t i) {
        return isOfEach ? row.carried[index][i] : row.weights[i] * target->mVector;
      };
      emit(target->mVectorChannel, vector, row.vectors);
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
