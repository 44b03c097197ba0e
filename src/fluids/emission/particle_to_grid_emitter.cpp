#include "fluids/emission/particle_to_grid_emitter.h"

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
      .purpose = "gives the vertices of a mesh to a field, each with a soft blob round it",
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
      LinkRow(kSourceRow, "source", "the mesh, or group of meshes, whose vertices become smoke",
              {Mesh::Kind().id, MultiMesh::Kind().id})
          .To(&ParticleToGridEmitter::mSource)
          .Required(),
      LongRow(1001, "particle_type", 0, "", "which particles of a linked group count")
          .Choices({{0, "passive"}, {1, "vorticity"}, {2, "liquid"}, {3, "diffuse"}})
          .Kept(),
      LinksRow(1002, "values", "what each point brings, into which field",
               {ChannelValue::Kind().id})
          .To(&ParticleToGridEmitter::mValues)
          .Required(),
      LongRow(kDistanceModeRow, "distance_mode", 0, "",
              "soft or even blobs: how points weigh by their distance")
          .Choices({{0, "none"}, {2, "falloff"}})
          .To(&ParticleToGridEmitter::mDistanceMode),
      FalloffRow().To(&ParticleToGridEmitter::mFalloffGradient),
      RealRow(kMassScaleRow, "mass_scale", 1.0, "none", "makes every point count for more or less")
          .To(&ParticleToGridEmitter::mMassScale),
      RealRow(kRadiusScaleRow, "radius_scale", 1.0, "none",
              "makes every point's blob larger or smaller")
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
  return Source() && !mValues.empty();
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
  for (const Mesh* mesh : SourceMeshes()) mesh->mMesh.ExpandBounds(min, max);
}

void ParticleToGridEmitter::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min,
                                               Vec3d& max) {
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
  if (!Source()) return void(Deactivate("it has no mesh"));
  if (mDistanceMode == kByGradient && !mFalloffGradient)
    return void(Deactivate("it has no falloff"));
  constexpr double huge = std::numeric_limits<double>::max();
  mPointsMin = {huge, huge, huge};
  mPointsMax = {-huge, -huge, -huge};
  mPoints.clear();
  for (const Mesh* mesh : SourceMeshes()) {
    const std::vector<Vec3d>& vertices = mesh->mMesh.GetVertices();
    mPoints.insert(mPoints.end(), vertices.begin(), vertices.end());
    mesh->mMesh.ExpandBounds(mPointsMin, mPointsMax);
  }
  mLookup.Build(mPoints.data(), static_cast<i32>(mPoints.size()), mRadius);
  if (mLookup.IsEmpty()) return void(Deactivate("its mesh has no vertices, or its radius is 0"));
  mConstraints.Prepare(this);
  mReach.Begin();
  SetFlag(FLAG_ACTIVE, true);
}

void ParticleToGridEmitter::Begin() {
  if (!Has(FLAG_ACTIVE)) return;
  constexpr i32 margin = 1;
  const double h = GetDomain().cellSize;
  for (int a = 0; a < 3; ++a) {
    const double lo = std::floor(mPointsMin[a] / h);
    const double hi = std::floor(mPointsMax[a] / h);
    if (!(lo > -1e9 && hi < 1e9 && lo <= hi)) return void(Deactivate("its mesh has no box"));
    mRegion.min[a] = static_cast<i32>(lo) - margin;
    mRegion.max[a] = static_cast<i32>(hi) + 1 + margin;
  }
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
  const GridLayout& domain = GetDomain();
  const double h = domain.cellSize;
  for (i32 x = mRegion.min.x; x < mRegion.max.x; ++x) {
    const Vec3d p = domain.simOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * h;
    double weight;
    if (!GatherCell(p, weight, row, worker)) continue;
    row.positions.push_back(p);
    row.weights.push_back(weight);
  }
}

bool ParticleToGridEmitter::GatherCell(const Vec3d& p, double& weight, Row& row, u32 worker) const {
  mLookup.Find(p, kMostNeighbours, row.neighbours);
  if (row.neighbours.empty()) return false;
  double cellWeight = mPerSecond && mWeight != 0 ? mTime->stepDuration : 1.0;
  const bool constrained = !mConstraints.IsEmpty();
  if (constrained && mConstraintMode == 0) {
    mConstraints.Test(p, cellWeight, this, worker);
    if (cellWeight == 0) return false;
  }
  double sum = 0;
  i32 count = 0;
  for (const PointNeighbour& neighbour : row.neighbours) {
    double w = cellWeight;
    if (constrained && mConstraintMode != 0 &&
        !mConstraints.Test(mPoints[neighbour.index], w, this, worker))
      continue;
    // A vertex has a density of 1 and a radius of that of the search.
    w *= mMassScale;
    w *= mRadiusScale;
    if (mDistanceMode == kByGradient)
      w *= mFalloffGradient->Evaluate(std::sqrt(neighbour.distanceSquared) / mRadius).x;
    sum += w;
    ++count;
  }
  weight = count > 0 ? sum / count : 0;
  return count > 0;
}

void ParticleToGridEmitter::EmitRow(Row& row, bool owned, const LayerOwner& owner) const {
  const EmissionWrite write = mSettings.Write();
  const auto collect = [&](const EGrid<double>* grid, const auto& value, auto& values) {
    values.clear();
    row.places.clear();
    if (!grid || !grid->mData) return;
    for (std::size_t i = 0; i < row.positions.size(); ++i) {
      if (!grid->mLayout.Contains(row.positions[i], true)) continue;
      mReach.NoteFilled(row.weights[i] != 0);
      values.push_back(row.weights[i] * value);
      row.places.push_back(row.positions[i]);
    }
    mReach.NoteReached(!values.empty());
  };
  for (const ChannelValue* target : mValues) {
    const auto emit = [&](auto* channel, const auto& value, auto& values) {
      // What a cache feeds holds its emissions already.
      if (!channel || channel->Has(FLAG_CACHED) || !channel->mEmissionHandler) return;
      collect(channel->GetGrid(0), value, values);
      channel->mEmissionHandler->EmitRow(values.data(), row.places.data(),
                                         static_cast<i32>(values.size()), write, owner);
    };
    if (target->mScalar) {
      if (owned) emit(target->mScalar, target->mValue, row.scalars);
    } else if (owned || dynamic_cast<VelocityField*>(target->mVectorChannel)) {
      emit(target->mVectorChannel, target->mVector, row.vectors);
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
