#include "fluids/volume/volume_mesh.h"

#include <cmath>

#include "fluids/mesh/multi_mesh.h"
#include "fluids/mesh/sheet.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& VolumeMesh::Kind() {
  static const NodeKind kind = {
      .id = 1028106,
      .type = "volume",
      .label = "Volume",
      .className = "VolumeMesh",
      .typeId = kTypeVolumeMesh,
      .list = kListGeometry,
      .categories = kCategoryMesh | kCategoryVolume,
      .flags = "SV",
      .stages = {kVolumes},
      .priority = 0,
      .menu = {"Bodies"},
      .purpose = "turns a mesh into inside and outside: a place to emit from, or an obstacle",
      .example =
          {{example::kBall},
           {example::kBallMesh,
            R"({ "type": "volume", "name": "shell", "parameters": { "mesh": "ball mesh", "shell_thickness": 0.3 } })",
            example::kSmoke, example::kRate, example::kPair,
            R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "shell", "channels": ["pair"] } })"}},
      .rows = Parameters,
      .make = MakeNode<VolumeMesh>,
  };
  return kind;
}

const ParameterTable& VolumeMesh::Parameters() {
  static const ParameterTable table = {
      BoolRow(kAffectsBoundsRow, "affects_bounds", false,
              "the simulation covers this shape even where nothing is in it yet")
          .To(&VolumeMesh::mWidensBounds),
      LongRow(1002, "mode", 1, "", "what a dialog shows of the node").Kept(),
      LinkRow(
          kMeshRow, "mesh",
          "the shape, as a mesh node; of a group of meshes the first alone. An obstacle may be a "
          "sheet without an inside, such as a plane: it lets nothing through",
          {Mesh::Kind().id, MultiMesh::Kind().id})
          .To(&VolumeMesh::mLinkedMesh)
          .Required(),
      RealRow(1004, "preview_radius", 50.0, "host", "of the ball that a viewport shows")
          .AtLeast(0)
          .Kept(),
      VectorRow(1005, "preview_size", {100, 100, 100}, "host", "of the box that a viewport shows")
          .Kept(),
      RealRow(kShellRow, "shell_thickness", 1.0, "none",
              "1 is solid; less makes a hollow skin of that part of the greatest depth")
          .AtLeast(0)
          .To(&VolumeMesh::mShellThickness),
      BoolRow(kInvertedRow, "inverted", false,
              "swaps inside and outside: a ball becomes a room with gas in it")
          .To(&VolumeMesh::mInverted),
      LongRow(1008, "padding_cells", 3, "cells",
              "how far round the shape distances are known; falloffs and soft walls need some")
          .Missing(0)
          .Range(0, 1000)
          .To(&VolumeMesh::mPaddingCells),
      LongRow(1009, "preview_mode", 1, "", "what a viewport draws for the node").Kept(),
      LongRow(1010, "thread_limit", 0, "",
              "most processor cores for this volume, 0 for the scene's limit")
          .Range(0, kMaxWorkers)
          .To(&VolumeMesh::mThreadLimit),
      RealRow(1011, "preview_scale", 1.0, "none", "how large a viewport draws the node").Kept(),
      RealRow(1012, "preview_opacity", 1.0, "none", "how solid a viewport draws the node").Kept(),
      ButtonRow(1013, "make_mesh", "makes the mesh node that belongs to an object"),
      ButtonRow(1014, "toggle_obstacle", "makes the volume solid for gas, or not any more"),
      ButtonRow(1015, "make_constraint",
                "makes a constraint that keeps other nodes inside this shape"),
      ButtonRow(1016, "make_force", "makes a force that acts in this shape"),
      ButtonRow(1017, "make_body_forces", "makes the node that lets forces move this body"),
      BoolRow(1018, "derive_mass", false,
              "a rigid body's space is that of the cells that it fills, not of its polygons: its "
              "weight follows with mass_mode from_density, else its density")
          .To(&VolumeMesh::mDerivesMass),
      LongRow(1019, "display_option", 0, "", "what a dialog shows").Kept(),
      BoolRow(8001, "show_field", false, "a viewport colours the distances to the surface").Kept(),
      LongRow(6601, "field_axis", 0, "", "which way a viewport's slice faces").Kept(),
      RealRow(6602, "field_slice", 0.5, "none",
              "how far through the box a viewport's slice lies, 0 to 1")
          .Kept(),
      RealRow(6603, "field_low", -0.05, "m", "distance that a viewport shows in the first colour")
          .Kept(),
      RealRow(6604, "field_high", 0.05, "m", "distance that a viewport shows in the last colour")
          .Kept(),
      VectorRow(6605, "field_colour", {1, 1, 0}, "none", "tint of the surface in a viewport")
          .Kept(),
      BoolRow(6606, "field_blend", true, "lets a viewport's colours run into each other").Kept(),
      LongRow(6607, "field_mode", 0, "", "whether a viewport shows distances or a surface").Kept(),
      RealRow(6608, "field_offset", 0.0, "m", "how far from the surface a viewport draws it")
          .Kept(),
  };
  return table;
}

VolumeMesh::VolumeMesh(BaseNode* node, Scene* scene) : VolumeBase(node, scene) {}

bool VolumeMesh::ReadParameters() {
  if (!VolumeBase::ReadParameters()) return false;
  mVoxeliser.mExactBand = 3;
  return true;
}

bool VolumeMesh::ResolveLinks() {
  mMesh = nullptr;
  if (!VolumeBase::ResolveLinks()) return false;
  const BaseNode* link = mIsMember ? mSource.Resolve() : mLinkedMesh;
  if (!link) return false;
  const auto find = [&](i32 type) {
    return mScene->FindObject(link, kListGeometry, kBitMesh, kBitAny, type);
  };
  mMesh = static_cast<Mesh*>(find(kTypeMesh));
  if (auto* group = mMesh ? nullptr : static_cast<MultiMesh*>(find(kTypeMultiMesh))) {
    // The group may stand later in the list: its meshes are brought up to date first. For a member
    // of a group of volumes that has done it.
    if (!mIsMember) group->ResolveLinks();
    mMesh = group->GetSubMesh(mSubIndex);
  }
  return true;
}

void VolumeMesh::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  VolumeBase::CheckDirty();
  if (!Has(FLAG_ENABLED)) return;
  if (mMesh) mMesh->CheckDirty();
  const FrameClock& clock = mScene->mClock;
  const bool inRange = clock.frame >= clock.startFrame && clock.frame < clock.endFrame;
  if ((mScene->mFlags & Scene::kDomainChanged) || inRange || (mMesh && mMesh->IsDirty()) ||
      mVoxelised.mesh != mMesh)
    MarkDirty(false);
}

void VolumeMesh::Release(bool full) {
  mVoxeliser.Release();
  mVoxelised = {};
  mThinWalls.Clear();
  VolumeBase::Release(full);
}

VolumeMesh::State VolumeMesh::CurrentState() const {
  const GridLayout& domain = GetDomain();
  Vec3d linear, angular;
  mMesh->GetVelocities(linear, angular);
  const bool moves =
      mMesh->IsDeforming() || mMesh->IsDynamic() || linear != Vec3d{} || angular != Vec3d{};
  return {mMesh,      mMesh->Revision(), domain.cellSize, domain.worldCell,
          mPadding.x, mShellThickness,   mInverted,       IsSolid() && moves};
}

void VolumeMesh::Prepare() {
  if (!IsDirty()) return;
  if (Has(FLAG_CACHED) && mHasSecondBox) {
    // The distances follow from the cache in the stage of the emitters.
    mVoxelised = {};
    mThinWalls.Clear();
    AllocateCachedGrid();
    return;
  }
  if (!mMesh || !mMesh->Has(FLAG_ENABLED) || !mMesh->HasTriangles()) {
    Release(false);
    Deactivate(mMesh ? "its mesh has no polygons" : "it has no mesh; name one under 'mesh'");
    return;
  }
  SetFlag(FLAG_ACTIVE, true);
  if (HasGridData() && mVoxelised == CurrentState()) return;
  mVoxelised = {};
  mCellSize = GetDomain().cellSize;
  mBoxMin = mMesh->mMesh.GetBoundsMin();
  mBoxMax = mMesh->mMesh.GetBoundsMax();
  mCentre = mMesh->mMesh.GetBoundsCentre();
  UpdateBounds();
  mVoxeliser.mShellThickness = mShellThickness;
  mVoxeliser.mInverted = mInverted;
  FindSheet();
  mVoxeliser.mIsSheet = mIsSheet;
  AllocateGrid();
}

void VolumeMesh::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE) || Has(FLAG_CACHED) || !mMesh || !mGrid || mVoxelised.mesh) return;
  const i32 limit = mThreadLimit > 0 ? std::min(mThreadLimit, ThreadCount()) : mScene->mThreadCount;
  if (mVoxeliser.Voxelise(mMesh->mMesh, *mGrid, true, std::min(limit, 8), data.thread)) {
    mVoxelised = CurrentState();
    FindThinWalls(limit);
  } else if (!data.TestBreak()) {
    Release(false);
    Deactivate("there is no memory for its work grids");
  }
  mMaximumDistance = mVoxeliser.mMaximumDistance;
  MarkGridChanged();
}

void VolumeMesh::Persist(StateArchive& archive) {
  VolumeBase::Persist(archive);
  archive(mIsSheet, mSheetTriangles);
}

/// As long as the triangles stay a shape that moves stays what it is.
void VolumeMesh::FindSheet() {
  if (!IsSolid()) {
    mSheetTriangles.clear();
    mIsSheet = false;
  } else if (mSheetTriangles != mMesh->mMesh.GetTriangles()) {
    mSheetTriangles = mMesh->mMesh.GetTriangles();
    mIsSheet = MELDO_SULVA::IsSheet(mMesh->mMesh);
  }
}

std::optional<SharpSurface> VolumeMesh::GetSurface() const {
  const Grid<i32>* closest = mVoxeliser.ClosestTriangles();
  if (!mMesh || !HasGridData() || !closest || closest->Dims() != mGrid->Dims()) return {};
  if (mVoxelised != CurrentState()) return {};
  return SharpSurface(mMesh->mMesh, *mGrid, *closest, mInwards);
}

Vec3d VolumeMesh::SurfaceVelocityAt(const Vec3d& p) const {
  if (mMesh && mMesh->IsDeforming())
    if (const auto surface = GetSurface())
      if (const i32 triangle = surface->Find(p).triangle; triangle >= 0)
        return mMesh->GetSurfaceVelocity(triangle, p);
  return VolumeBase::SurfaceVelocityAt(p);
}

bool VolumeMesh::HasPassed(const Vec3d& p, const Vec3d& motion) const {
  const double way = Length(motion);
  if (!(std::abs(DistanceAtWorld(p)) < way + mCellSize)) return false;
  const auto surface = GetSurface();
  if (!surface) return false;
  // The side of the surface that a place sees, nothing inside; what is at p + motion was at p.
  const auto seen = [&](const Vec3d& from) {
    const SharpSurface::Nearest nearest = surface->Find(from);
    if (nearest.triangle < 0 || std::abs(nearest.distance) > way) return Vec3d{};
    if (nearest.distance < 0 && !mIsSheet) return Vec3d{};
    const Vec3d normal = surface->NormalOf(nearest.triangle);
    return Dot(from - nearest.at, normal) < 0 ? normal * -1.0 : normal;
  };
  // A centre on the surface belongs to the lower side, as where faces are closed.
  const Vec3d low = p - Vec3d{1, 1, 1} * (1e-6 * mCellSize);
  return Dot(seen(low), seen(low + motion)) < -0.5;
}

const ThinWalls* VolumeMesh::GetThinWalls() const { return HasGridData() ? &mThinWalls : nullptr; }

/// Of a hollow shell the inner side has no triangles.
std::optional<SharpSurface> VolumeMesh::GetSharpSurface() const {
  return IsSolid() && !mIsSheet ? GetSurface() : std::nullopt;
}

std::optional<SharpSurface> VolumeMesh::GetOutline() const {
  return mShellThickness >= 1 && !mIsSheet ? GetSurface() : std::nullopt;
}

std::optional<SharpSurface> VolumeMesh::GetWallSurface() const {
  return IsSolid() ? GetSurface() : std::nullopt;
}

void VolumeMesh::FindThinWalls(i32 threads) {
  mThinWalls.Clear();
  mInwards = SharpSurface::TurnsInwards(mMesh->mMesh) != mInverted;
  if (!IsSolid()) return;
  const auto surface = GetSurface();
  if (!surface) return;
  mThinWalls.Find(*surface, mIsSheet ? ThinWalls::kSheet : ThinWalls::kSolid, mVoxelised.moves,
                  threads);
}

Vec3d VolumeMesh::TriangleNormalAt(i32 index) const {
  const Grid<i32>* closest = mVoxeliser.ClosestTriangles();
  if (!mMesh || !closest || index < 0 || index >= closest->mCount) return {0, 1, 0};
  const i32 triangle = (*closest)[index];
  if (triangle < 0 || triangle >= mMesh->mMesh.GetTriangleCount()) return {0, 1, 0};
  const VecInt3D& corner = mMesh->mMesh.GetTriangles()[triangle];
  const std::vector<Vec3d>& v = mMesh->mMesh.GetVertices();
  return Normalised(Cross(v[corner.y] - v[corner.x], v[corner.z] - v[corner.x]));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
