#include "fluids/surfaces/implicit_mesher.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/particles/particle_group.h"
#include "fluids/surfaces/mesh_reserve.h"
#include "fluids/surfaces/point_values.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// Points that tetrahedra make for one of a cube, at most.
constexpr double kPointsOfTetrahedra = 6;

/// Whether a surface ends at the outermost nodes that are looked at.
bool ReachesRim(const EGrid<double>& grid, double resolution, const SurfaceMesh& mesh) {
  constexpr double kNear = 1e-6;  // cells
  const VecInt3D dims = grid.Dims();
  Vec3d last;
  for (int a = 0; a < 3; ++a) last[a] = 1 + (NodesOn(dims[a], resolution) - 1) / resolution - kNear;
  return std::any_of(mesh.points.begin(), mesh.points.end(), [&](const Vec3d& p) {
    const Vec3d c = grid.ToSamples(p);
    return std::min({c.x, c.y, c.z}) < 1 + kNear || c.x > last.x || c.y > last.y || c.z > last.z;
  });
}

/// The polygons of a mesher, for the limit of memory.
class MeshMemory : public ScenePart {
 public:
  explicit MeshMemory(const ImplicitMesher& mesher) : mMesher(mesher) {}
  double Memory() const override { return mMesher.HeldBytes(); }

 private:
  const ImplicitMesher& mMesher;
};

std::string WordOf(i32 property) {
  const std::string_view name = NameOfProperty(property);
  return name.empty() ? std::to_string(property) : fmt::format("'{}'", name);
}

template <class T>
double BytesOf(const std::vector<T>& values) {
  return static_cast<double>(values.size() * sizeof(T));
}

}  // namespace

const NodeKind& ImplicitMesher::Kind() {
  static const NodeKind kind = {
      .id = kMeshMakerNode,
      .type = "mesher",
      .label = "Implicit Mesher",
      .className = "ImplicitMesher",
      .typeId = kTypeImplicitMesher,
      .list = kListGeometry,
      .categories = kCategoryMesh,
      .flags = "IV",
      .stages = {kMeshing},
      .priority = 10,
      .menu = {"Bodies"},
      .purpose = "turns a level set into polygons, for files and pictures",
      .example =
          {{example::kBall},
           {example::kBallMesh, example::kBallVolume,
            R"({ "type": "mesher", "name": "skin", "parameters": { "source": "ball volume", "level": 0 } })"}},
      .rows = Parameters,
      .make = MakeNode<ImplicitMesher>,
      .isPolygonObject = true,
  };
  return kind;
}

const ParameterTable& ImplicitMesher::Parameters() {
  static const ParameterTable table = {
      BoolRow(kRenderOnlyRow, "render_only", false, "it works for pictures alone, not for previews")
          .To(&ImplicitMesher::mRenderOnly),
      LinkRow(kSourceRow, "source",
              "whose surface is wanted: a volume, or what finds that of particles")
          .AcceptsAny({kListGeometry, kCategoryVolume})
          .Accepts({SurfaceReconstructor::Kind().id})
          .To(&ImplicitMesher::mVolume)
          .To(&ImplicitMesher::mReconstructor)
          .Required(),
      LongRow(
          kMethodRow, "method", Polygoniser::kCubes, "",
          "how cells are cut: cubes make the fewest triangles and hold the water that particles "
          "fill, tetrahedra see more of what is thin and swell drops of few cells, those of a "
          "lattice are nearly alike in all directions")
          .Choices({{Polygoniser::kCubes, "cubes"},
                    {Polygoniser::kCellTetrahedra, "tetrahedra"},
                    {Polygoniser::kLatticeTetrahedra, "lattice"}})
          .To(&ImplicitMesher::mMethod),
      RealRow(1003, "resolution", 1.0, "none", "cells of the mesh for a cell of the level set")
          .Range(0.05, 16)
          .To(&ImplicitMesher::mResolution),
      RealRow(1004, "viewport_resolution", 2.0, "none", "of a view on screen; there is none here")
          .Kept(),
      BoolRow(1005, "normals", true, "gives the polygons the directions of the level set")
          .To(&ImplicitMesher::mMakesNormals),
      BoolRow(1006, "viewport_setting", false, "of a view on screen; there is none here").Kept(),
      RealRow(kColourRadiusRow, "colour_radius", 0.033, "m",
              "how far particles colour the surface; 0 turns it off")
          .AtLeast(0)
          .To(&ImplicitMesher::mColourRadius),
      RealRow(kLevelRow, "level", 0.3, "m",
              "the distance at which the surface lies: 0 is that of the volume itself, more lies "
              "further out; that of particles lies where 'radius_shift' has it")
          .Missing(0.0)
          .To(&ImplicitMesher::mLevel),
      LinkRow(1009, "colour_group", "whose particles colour the surface",
              {ParticleGroup::kNodeType})
          .To(&ImplicitMesher::mColourGroup),
      LongRow(1012, "sampling", SAMPLE_LINEAR, "", "how the level set is read between its samples")
          .Choices({{SAMPLE_LINEAR, "linear"},
                    {SAMPLE_COSINE, "cosine"},
                    {SAMPLE_CUBIC, "cubic"},
                    {SAMPLE_MONOTONIC, "monotonic"},
                    {SAMPLE_BSPLINE, "bspline"}})
          .OnlyWith(kMethodRow, {Polygoniser::kLatticeTetrahedra})
          .To(&ImplicitMesher::mSampleMode),
      LinkRow(1013, "viewport_group", "whose particles a view on screen draws; there is none here",
              {ParticleGroup::kNodeType})
          .Kept(),
      BoolRow(kVelocitiesRow, "velocities", true,
              "gives the points the velocity of the particles whose surface it is, for motion blur")
          .Missing(false)
          .To(&ImplicitMesher::mHasVelocities),
      LinkRow(kVelocityFieldRow, "velocity_field",
              "a flow or a field of vectors whose velocity the points have instead")
          .AcceptsAny({kListSolvers, 0})
          .AcceptsAny({kListChannels, kCategoryVector})
          .OnlyWith(kVelocitiesRow, {1})
          .To(&ImplicitMesher::mVelocityField),
      LongRow(kColourPropertyRow, "colour_property", property_id::kColor, "",
              "what colours the surface: a property of the group's particles, a vector as it is, a "
              "scalar through 'colour_gradient'")
          .Choices(PropertyChoices(0, property_id::kFirstBool))
          .OrNumbers()
          .To(&ImplicitMesher::mColourProperty),
      LinkRow(kColourFieldRow, "colour_field",
              "a field that colours the surface instead of particles")
          .AcceptsAny({kListChannels, 0})
          .To(&ImplicitMesher::mColourField),
      GradientRow(1105, "colour_gradient",
                  "the colours of a scalar from 0 to 'colour_full'; without one, greys")
          .To(&ImplicitMesher::mColourGradient),
      RealRow(1106, "colour_full", 1.0, "none", "the scalar that has the gradient's last colour")
          .To(&ImplicitMesher::mColourFull),
  };
  return table;
}

ImplicitMesher::ImplicitMesher(BaseNode* node, Scene* scene) : iObject(node, scene) {
  mParts.Add(std::make_unique<MeshMemory>(*this));
}

void ImplicitMesher::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!Has(FLAG_ENABLED) || IsDirty()) return;
  iBase* source = mVolume ? static_cast<iBase*>(mVolume) : mReconstructor;
  if (source) source->CheckDirty();
  if ((mScene->mFlags & Scene::kTimeChanged) || (source && source->IsDirty())) MarkDirty(false);
}

void ImplicitMesher::Persist(StateArchive& archive) {
  iObject::Persist(archive);
  archive(mTold);
}

void ImplicitMesher::Reset() {
  iObject::Reset();
  mTold = 0;
  mWarnings.clear();
  Write({});
}

void ImplicitMesher::Release(bool full) {
  Write({});
  iObject::Release(full);
}

void ImplicitMesher::Prepare() {
  SetFlag(FLAG_ACTIVE, false);
  if (Has(FLAG_CACHED)) return void(Deactivate(kPlayedPolygonsReason));
  mGrid = FindGrid();
  SetFlag(FLAG_ACTIVE, mGrid != nullptr);
}

const EGrid<double>* ImplicitMesher::FindGrid() {
  const auto fail = [&](const char* reason) {
    Deactivate(reason);
    return nullptr;
  };
  if (mRenderOnly && !mScene->IsForPictures()) return fail("it works for pictures alone");
  if (mReconstructor) {
    if (!mReconstructor->Has(FLAG_ENABLED)) return fail("its source is switched off");
    if (const EGrid<double>* grid = mReconstructor->GetResult()) return grid;
    const bool isEmpty = mReconstructor->mInactiveReason &&
                         std::string_view(mReconstructor->mInactiveReason) == kNoParticlesReason;
    return fail(isEmpty ? kNoParticlesReason : "its source has no grid");
  }
  if (!mVolume) return fail("it has no source; name a volume or a reconstruction under 'source'");
  if (!mVolume->Has(FLAG_ENABLED)) return fail("its source is switched off");
  const auto* volume = dynamic_cast<const VolumeBase*>(mVolume);
  if (!volume) return fail("its source is a group of volumes; name one of its members");
  return volume->HasGridData() ? volume->GetGrid() : fail("its source has no grid");
}

void ImplicitMesher::Evaluate(const EvaluationThreadData&) {
  if (Has(FLAG_CACHED)) return;
  if (!Has(FLAG_ACTIVE)) return Write({});
  const MeshReserve reserve(*mGrid, mReconstructor ? 0 : mLevel, mResolution,
                            mMethod == Polygoniser::kCubes ? 1 : kPointsOfTetrahedra,
                            mScene->mThreadCount);
  if (!reserve.IsGranted()) return Write({});
  SurfaceMesh mesh = PolygoniseGrid(*mGrid,
                                    {.method = mMethod,
                                     .sampleMode = mSampleMode,
                                     .level = mReconstructor ? 0 : mLevel,
                                     .resolution = mResolution,
                                     .isWhole = mReconstructor != nullptr},
                                    mScene->mThreadCount, mMakesNormals);
  if (mesh.IsEmpty()) TakeBackRun(ReasonOfNone());
  if (!(mTold & kToldRim) && ReachesRim(*mGrid, mResolution, mesh))
    Tell(
        kToldRim,
        mReconstructor
            ? std::string("its surface reaches the rim of the level set, where it is open; a "
                          "smaller 'radius' or 'search' of its source closes it")
            : fmt::format("its surface at {} m reaches the rim of the level set, where it is open; "
                          "a lower 'level', or more 'padding_cells' of the volume, closes it",
                          mLevel));
  AddVelocities(mesh);
  AddColours(mesh);
  Write(mesh);
}

const char* ImplicitMesher::ReasonOfNone() const {
  const auto [low, high] = std::minmax_element(mGrid->mData, mGrid->mData + mGrid->mCount);
  const double level = mReconstructor ? 0 : mLevel;
  if (*low >= level)
    return mReconstructor
               ? "no place in its source lies inside; a larger 'radius' or "
                 "'radius_shift' of that makes a surface"
               : "nothing of its volume lies below 'level', as of a plane, which encloses "
                 "nothing; a higher one makes a surface";
  if (*high < level) return "all of its level set lies below 'level'; a lower one makes a surface";
  return "what it has to show is smaller than its steps; a higher 'resolution' finds it";
}

void ImplicitMesher::Tell(u32 what, std::string_view text) {
  if (mTold & what) return;
  mTold |= what;
  mWarnings.emplace_back(text);
}

void ImplicitMesher::AddVelocities(SurfaceMesh& mesh) {
  if (!mHasVelocities || mesh.points.empty()) return;
  if (mVelocityField) {
    mesh.velocities = FieldAt(mesh.points, *mVelocityField, mScene->mThreadCount);
  } else if (mReconstructor && mReconstructor->Store() &&
             (!mReconstructor->Has(FLAG_CACHED) ||
              AreNear(mesh.points, mReconstructor->Points(), mReconstructor->Reach()))) {
    mesh.velocities = VelocitiesAt(mesh.points, mReconstructor->Points(), *mReconstructor->Store(),
                                   mReconstructor->Reach(), mScene->mThreadCount);
  } else if (mReconstructor && mReconstructor->Has(FLAG_CACHED)) {
    Tell(kToldVelocities,
         "its source plays from a recording, which has no velocities, and neither have its points: "
         "play the particles too, or a flow under 'velocity_field'");
  }
}

std::vector<const ParticleStore*> ImplicitMesher::ColourStores() const {
  // A surface of some of the group's particles has the colours of those.
  const ParticleStore* own = mReconstructor ? mReconstructor->Store() : nullptr;
  std::vector<const ParticleStore*> stores;
  for (i32 kind = 0; kind < kParticleKinds; ++kind) {
    const ParticleStore& store = mColourGroup->Store(kind);
    if (&store == own) return {own};
    if (!store.IsEmpty()) stores.push_back(&store);
  }
  return stores;
}

void ImplicitMesher::AddColours(SurfaceMesh& mesh) {
  if (mesh.points.empty()) return;
  const ScalarColours scalars{mColourGradient, mColourFull};
  if (mColourField) {
    mesh.colours = FieldAt(mesh.points, *mColourField, mScene->mThreadCount);
    if (!mColourField->GetCachedGrids()[1])
      for (Vec3d& colour : mesh.colours) colour = scalars.Of(colour.x);
  } else if (mColourGroup && mColourRadius > 0) {
    const std::vector<const ParticleStore*> stores = ColourStores();
    const bool hasSome = std::any_of(stores.begin(), stores.end(),
                                     [](const ParticleStore* store) { return !store->IsEmpty(); });
    if (!hasSome) return;
    const auto colours = ColoursAt(mesh.points, stores, mColourProperty, mColourRadius, scalars,
                                   mScene->mThreadCount);
    if (colours) mesh.colours = *colours;
    if (!colours)
      Tell(kToldColours,
           fmt::format(
               "no particle of '{}' has the property {} of its 'colour_property': its points "
               "have no colours until some have",
               mColourGroup->mName, WordOf(mColourProperty)));
  }
}

void ImplicitMesher::Write(const SurfaceMesh& mesh) {
  PolygonObject* output = Output();
  mBytes = 0;
  mHeld.Set(0);
  if (!output || (mesh.IsEmpty() && output->GetGeometry().polygons.empty())) return;
  const Matrix place = output->GlobalMatrix(), toObject = Inverse(place);
  const Vec3d scale = GetDomain().simToWorld;
  Geometry geometry;
  geometry.points.reserve(mesh.points.size());
  for (const Vec3d& p : mesh.points) geometry.points.push_back(toObject * (p * scale));
  geometry.polygons.reserve(mesh.triangles.size());
  for (const VecInt3D& t : mesh.triangles) geometry.polygons.push_back({t.x, t.y, t.z, t.z});
  if (!mesh.normals.empty()) {
    geometry.normals.reserve(mesh.triangles.size());
    // Normals go with the inverse transpose of what points go with.
    const auto normal = [&](i32 point) {
      const Vec3d n = mesh.normals[point] / scale;
      return Normalised(Vec3d{Dot(place.v1, n), Dot(place.v2, n), Dot(place.v3, n)});
    };
    for (const VecInt3D& t : mesh.triangles)
      geometry.normals.push_back({normal(t.x), normal(t.y), normal(t.z), normal(t.z)});
  }
  for (const Vec3d& v : mesh.velocities) geometry.velocities.push_back(toObject.Rotate(v * scale));
  geometry.colours = mesh.colours;
  HandOver(std::move(geometry), BytesOf(mesh.points) + BytesOf(mesh.triangles) +
                                    BytesOf(mesh.normals) + BytesOf(mesh.velocities) +
                                    BytesOf(mesh.colours));
}

void ImplicitMesher::TakePlayed(Geometry geometry) { HandOver(std::move(geometry), 0); }

void ImplicitMesher::HandOver(Geometry geometry, double workBytes) {
  PolygonObject* output = Output();
  if (!output) return;
  const double held = BytesOf(geometry.points) + BytesOf(geometry.polygons) +
                      BytesOf(geometry.normals) + BytesOf(geometry.uvs) +
                      BytesOf(geometry.velocities) + BytesOf(geometry.colours);
  mHeld.Set(static_cast<u64>(held));
  mBytes = held + workBytes;
  output->WriteOutput(std::move(geometry));
}

void ImplicitMesher::Finish() {
  mGrid = nullptr;
  SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
