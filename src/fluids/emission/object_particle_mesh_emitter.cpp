#include "fluids/emission/object_particle_mesh_emitter.h"

#include <algorithm>
#include <cmath>

#include "exchange/particles_object.h"
#include "fluids/emission/loose_points.h"
#include "fluids/particles/particle_import.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& ObjectParticleMeshEmitter::Kind() {
  static const NodeKind kind = {
      .id = 1300007,
      .type = "particlemeshemitter",
      .label = "Emitter::Particle On Mesh",
      .className = "ObjectParticleMeshEmitter",
      .typeId = 6,
      .list = kListEmitters,
      .categories = kCategoryParticle | kCategoryMesh,
      .flags = "I",
      .stages = {kEmitters},
      .priority = 5,
      .menu = {"Particles/Emitters"},
      .purpose = "lets particles leave a surface, such as sparks from embers",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "sparks" })",
            R"({ "type": "particlemesh_emission_setting", "name": "spark rate", "parameters": { "amount": 200 } })",
            R"({ "type": "property_scalar", "name": "life", "parameters": { "property": "age", "value": 50 } })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "sparks", "kind": "passive", "source": "ball mesh", "settings": "spark rate", "properties": ["life"] } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "sparks", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<ObjectParticleMeshEmitter>,
  };
  return kind;
}

const ParameterTable& ObjectParticleMeshEmitter::Parameters() {
  static const ParameterTable table = WithRows(
      {.settings = 1004, .properties = 1005},
      {LinkRow(kSourceRow, "source",
               "the mesh on which they appear, a volume whose mesh is meant, loose points, or a "
               "group at whose passive particles they appear",
               {Mesh::Kind().id, kPointsObject, ParticleGroup::kNodeType})
           .AcceptsAny({kListGeometry, kCategoryVolume})
           .To(&ObjectParticleMeshEmitter::mMesh)
           .To(&ObjectParticleMeshEmitter::mPointsObject)
           .To(&ObjectParticleMeshEmitter::mSourceGroup)
           .To(&ObjectParticleMeshEmitter::mVolume)
           .Required(),
       LongRow(kFromRow, "emit_from", kTriangles, "",
               "where on the source: spread over its triangles, at its vertices, or at the points "
               "of an object of points or the particles of a group")
           .Choices({{kTriangles, "triangles"}, {kVertices, "vertices"}, {kPoints, "points"}})
           .To(&ObjectParticleMeshEmitter::mFrom),
       BoolRow(kEveryPointRow, "every_point", false,
               "one particle at every vertex or point in each step, in place of the settings' "
               "amount")
           .Missing(i32{1})
           .OnlyWith(kFromRow, {kVertices, kPoints})
           .To(&ObjectParticleMeshEmitter::mEveryPoint),
       RealRow(1022, "spacing", 0.25, "cells", "leaves out places that are nearer to a particle")
           .Missing(0.5)
           .AtLeast(0)
           .To(&ObjectParticleMeshEmitter::mSpacingCells),
       BoolRow(kWriteNormalRow, "write_normal", false,
               "gives them the normal of the surface as a property")
           .To(&ObjectParticleMeshEmitter::mWritesNormal),
       BoolRow(kVertexNormalsRow, "vertex_normals", false,
               "normals at vertices are those of the triangles round them")
           .OnlyWith(kFromRow, {kVertices})
           .To(&ObjectParticleMeshEmitter::mSumsNormals),
       BoolRow(kWriteUvRow, "write_uv", false, "gives them their surface coordinates as a property")
           .To(&ObjectParticleMeshEmitter::mWritesUv),
       BoolRow(kWriteColourRow, "write_colour", false,
               "gives them the colour of colour_image as a property")
           .To(&ObjectParticleMeshEmitter::mWritesColour),
       LinkRow(kColourImageRow, "colour_image",
               "where write_colour looks: a picture, or one that is the same everywhere",
               {kImageObject})
           .OnlyWith(kWriteColourRow, {1})
           .To(&ObjectParticleMeshEmitter::mColourImage),
       LinkRow(kDensityImageRow, "density_image",
               "an image that says where particles appear: where its red is bright enough",
               {kImageObject})
           .To(&ObjectParticleMeshEmitter::mDensityImage),
       RealRow(kDensityThresholdRow, "density_threshold", 0.01, "none",
               "how bright the red of density_image has to be")
           .To(&ObjectParticleMeshEmitter::mDensityThreshold),
       LongRow(kLookupRow, "image_lookup", kByPlace, "",
               "how images lie on the source: by its surface coordinates, or as they hang in space")
           .Choices({{kByUv, "uv"}, {kByPlace, "place"}})
           .To(&ObjectParticleMeshEmitter::mLookup),
       LongRow(1011, "image_frame", 0, "", "the domain and the world have one frame here")
           .Choices({{0, "domain"}, {1, "world"}})
           .Missing(i32{1})
           .Kept(),
       LongRow(1012, "material_channel", 0, "", "of a material with channels; no material here has")
           .Kept(),
       RealRow(kCurvatureRow, "curvature_threshold", 0.0, "none",
               "leaves out what is less bent, a hundredth of the curvature that an operator found; "
               "0 leaves out nothing")
           .Missing(0.2)
           .AtLeast(0)
           .To(&ObjectParticleMeshEmitter::mCurvature),
       BoolRow(kInvertCurvatureRow, "invert_curvature", false, "leaves out what is more bent")
           .To(&ObjectParticleMeshEmitter::mInvertsCurvature),
       LinksRow(
           kPointPropertiesRow, "point_properties",
           "what the particles of a source hand on, as they have it; the node's value stands "
           "for those that lack it",
           {Property<double>::Kind().id, Property<Vec3d>::Kind().id, Property<bool>::Kind().id})
           .To(&ObjectParticleMeshEmitter::mHandedOn),
       LongRow(common_row::kClassOption, "repeat", 0, "",
               "further rounds in each step, each of which keeps clear of those before")
           .Range(0, 1000)
           .To(&ObjectParticleMeshEmitter::mRepeats)});
  return table;
}

ObjectParticleMeshEmitter::ObjectParticleMeshEmitter(BaseNode* node, Scene* scene)
    : ParticleEmitter(node, scene) {}

bool ObjectParticleMeshEmitter::ReadParameters() {
  if (!ParticleEmitter::ReadParameters()) return false;
  mSpacing = mSpacingCells * GetDomain().cellSize;
  return true;
}

void ObjectParticleMeshEmitter::Reset() {
  ParticleEmitter::Reset();
  mOwed = 0;
}

void ObjectParticleMeshEmitter::Persist(StateArchive& archive) {
  ParticleEmitter::Persist(archive);
  archive(mOwed);
}

const Mesh* ObjectParticleMeshEmitter::SourceMesh() const {
  const auto* volume = dynamic_cast<const VolumeBase*>(mVolume);
  return mMesh ? mMesh : volume ? volume->GetMesh() : nullptr;
}

bool ObjectParticleMeshEmitter::TakesEach() const {
  return mEveryPoint && (mPointsObject || mFrom != kTriangles);
}

double ObjectParticleMeshEmitter::TimeGiven() const {
  return TakesEach() || mSettings->mPerStep ? 0 : mTime->stepDuration;
}

bool ObjectParticleMeshEmitter::IsDue() const {
  double weight = 1;
  return mGroup && mSettings && (TakesEach() || mSettings->GetAmount() > 0) &&
         mSettings->IsOpen(mTime->elapsed, TimeGiven(), weight);
}

template <class F>
void ObjectParticleMeshEmitter::ForEachSourceBox(F&& f) const {
  // A group tells of its box itself.
  if (!IsDue() || mSourceGroup) return;
  if (mPointsObject) {
    ForEachLoosePoint(*mPointsObject, GetDomain(), [&](const Vec3d& p) { f(p, p); });
  } else if (const Mesh* mesh = SourceMesh(); mesh && mesh->HasTriangles()) {
    f(mesh->mMesh.GetBoundsMin(), mesh->mMesh.GetBoundsMax());
  }
}

void ObjectParticleMeshEmitter::ExpandBounds(Vec3d& min, Vec3d& max) {
  ForEachSourceBox([&](const Vec3d& low, const Vec3d& high) {
    min = Min(min, low);
    max = Max(max, high);
  });
}

void ObjectParticleMeshEmitter::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min,
                                                   Vec3d& max) {
  ForEachSourceBox([&](const Vec3d& from, const Vec3d& to) {
    if (!BoxesMeet(from, to, low, high)) return;
    min = Min(min, from);
    max = Max(max, to);
  });
}

bool ObjectParticleMeshEmitter::FindLoosePoints() {
  mUsed = kPoints;
  if (mSourceGroup) {
    mSourceParticles.Begin(mSourceGroup->Store(kPassive), mHandedOn);
    for (i32 i = 0; i < mSourceParticles.Count(); ++i)
      mLoose.push_back(mSourceParticles.PositionOf(i));
    return !mLoose.empty() || Deactivate(kNoParticlesReason);
  }
  ForEachLoosePoint(*mPointsObject, GetDomain(), [&](const Vec3d& p) { mLoose.push_back(p); });
  if (dynamic_cast<const exchange::ParticlesObject*>(mPointsObject)) {
    mFileParticles = std::make_unique<ParticleStore>();
    AppendPoints(*mPointsObject, GetDomain(), mHandedOn, *mFileParticles);
    mSourceParticles.Begin(*mFileParticles, mHandedOn);
  }
  return !mLoose.empty() || Deactivate("its source has no points");
}

bool ObjectParticleMeshEmitter::FindPoints() {
  mLoose.clear();
  mSourceParticles.Clear();
  mRecord = nullptr;
  if (mPointsObject || mSourceGroup) return FindLoosePoints();
  if (mFrom == kPoints) return Deactivate(kNoPointsReason);
  const Mesh* mesh = SourceMesh();
  if (!mesh)
    return Deactivate(!mVolume ? "it has no source; name one under 'source'"
                      : dynamic_cast<const VolumeBase*>(mVolume) ? kBareVolumeReason
                                                                 : kOfVolumesReason);
  if (!mesh->HasTriangles()) return Deactivate("the mesh of its source has no triangles");
  mRecord = &mesh->mMesh;
  mUsed = mFrom == kVertices ? kVertices : kTriangles;
  return mPoints.Begin(*mRecord, mUsed == kVertices, mSumsNormals) ||
         Deactivate("the triangles of its mesh have no area");
}

i32 ObjectParticleMeshEmitter::CountDue() {
  constexpr double kMost = 2147483647, kNoise = 1e-9;
  const i32 points = mUsed == kPoints ? static_cast<i32>(mLoose.size()) : mRecord->GetVertexCount();
  if (mUsed != kTriangles && mEveryPoint) return points;
  const double time = mSettings->mPerStep ? 1.0 : mTime->stepDuration;
  mOwed += mSettings->GetAmount() * time * mWeight;
  // Steps whose lengths were rounded sum up to whole particles all the same.
  const double due = std::min(std::floor(mOwed + kNoise), kMost);
  mOwed = std::max(0.0, mOwed - due);
  return static_cast<i32>(due);
}

void ObjectParticleMeshEmitter::Prepare() {
  if (!PrepareEmission() || !FindPoints()) return;
  SetFlag(FLAG_ACTIVE, false);
  // What the first step makes stands in frame 1: no time has passed before.
  if (!mTime->IsUnderWay()) return void(Deactivate(kNotDueReason));
  if (mSettings->GetAmount() <= 0 && (mUsed == kTriangles || !mEveryPoint))
    return void(Deactivate(kNoRateReason));
  mCount = CountDue();
  if (mCount == 0) return void(Deactivate(kNotDueReason));
  mSourceParticles.AddTo(mTemplate);
  if (mWritesNormal) mTemplate.Set(property_id::kNormal, Vec3d{});
  if (mWritesUv) mTemplate.Set(property_id::kUv, Vec3d{});
  if (mWritesColour && mColourImage) mTemplate.Set(property_id::kColor, Vec3d{});
  if (!HasRoom(double(mCount) * (1.0 + mRepeats))) return;
  mTestsCurvature = mCurvature > 0 && (mRecord ? !mRecord->mColumns.curvature.empty()
                                               : mSourceParticles.Knows(property_id::kCurvature));
  mConstraints.Prepare(this);
  if (mSettings->mAlignment) mSettings->mAlignment->Follow(mVolume, SourceMesh());
  mColour = SamplerOf(mWritesColour ? mColourImage : nullptr);
  mDensity = SamplerOf(mDensityImage);
  if (mSpacing > 0) mGroup->BuildTree(mKind, mScene->mThreadCount);
  SetFlag(FLAG_ACTIVE, true);
}

void ObjectParticleMeshEmitter::Finish() {
  ParticleEmitter::Finish();
  mPoints.Clear();
  mLoose.clear();
  mSourceParticles.Clear();
  mFileParticles.reset();
  mRecord = nullptr;
  mColour.reset();
  mDensity.reset();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
