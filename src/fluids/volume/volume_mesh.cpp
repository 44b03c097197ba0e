#include "fluids/volume/volume_mesh.h"

#include "fluids/surfacetracker/mesh/multi_mesh.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const ParameterTable& VolumeMesh::Parameters() {
  static const ParameterTable table = {
      BoolRow(1001, "affects_bounds", false, "widens the simulated domain by the volume's box"),
      LongRow(1002, "mode", 1, "", "mode of the node's dialog"),
      LinkRow(1003, "mesh", "the mesh node to voxelise; of a group of meshes the first alone",
              {1300143, 1300144}),
      RealRow(1004, "preview_radius", 50.0, "host", "size shown in the viewport").AtLeast(0),
      VectorRow(1005, "preview_size", {100, 100, 100}, "host", "size shown in the viewport"),
      RealRow(1006, "shell_thickness", 1.0, "",
              "depth of a hollow shell, as a part of the greatest depth; 1 is solid")
          .AtLeast(0),
      BoolRow(1007, "inverted", false, "swaps inside and outside"),
      LongRow(1008, "padding_cells", 3, "cells", "cells round the mesh's box")
          .Missing(0)
          .Range(0, 1000),
      LongRow(1009, "preview_mode", 1, "", "mode of the viewport"),
      LongRow(1010, "thread_limit", 0, "", "most worker threads; 0 = the scene's limit")
          .Range(0, kMaxWorkers),
      RealRow(1011, "preview_scale", 1.0, "", "scale of the viewport"),
      RealRow(1012, "preview_opacity", 1.0, "", "opacity in the viewport"),
      ButtonRow(1013, "make_mesh", "makes a mesh node for the volume"),
      ButtonRow(1014, "toggle_obstacle", "adds or removes the obstacle tag"),
      ButtonRow(1015, "make_constraint", "makes a constraint for the volume"),
      ButtonRow(1016, "make_force", "makes a force for the volume"),
      ButtonRow(1017, "make_body_forces", "makes a node of rigid-body forces for the volume"),
      BoolRow(1018, "derive_mass", false, "takes the mass of the rigid body from the voxel volume"),
      LongRow(1019, "display_option", 0, "", "option of the node's dialog"),
      BoolRow(8001, "show_field", false, "shows the distances in the viewport"),
      LongRow(6601, "field_axis", 0, "", "axis across the slice shown"),
      RealRow(6602, "field_slice", 0.5, "", "place of the slice shown, 0 to 1"),
      RealRow(6603, "field_low", -0.05, "m", "distance of the first colour"),
      RealRow(6604, "field_high", 0.05, "m", "distance of the last colour"),
      VectorRow(6605, "field_colour", {1, 1, 0}, "", "colour of the surface shown"),
      BoolRow(6606, "field_blend", true, "blends the colours"),
      LongRow(6607, "field_mode", 0, "", "how the distances are shown"),
      RealRow(6608, "field_offset", 0.0, "m", "distance of the surface shown"),
  };
  return table;
}

VolumeMesh::VolumeMesh(BaseNode* node, Scene* scene) : VolumeBase(node, scene) {
  mStageMask |= StageBit(kVolumes);
}

void VolumeMesh::GetCategories(u32& mask) const {
  VolumeBase::GetCategories(mask);
  mask |= kCategoryMesh;
}

bool VolumeMesh::ReadParameters(void* context) {
  mPriority = 0;
  if (!VolumeBase::ReadParameters(context)) return false;
  mVoxeliser.mExactBand = 3;
  mShellThickness = mInterface.GetReal(1006);
  mThreadLimit = mInterface.GetLong(1010);
  return true;
}

bool VolumeMesh::ResolveLinks() {
  mMesh = nullptr;
  if (!VolumeBase::ResolveLinks()) return false;
  const BaseNode* link = mIsMember ? mSource.Resolve() : mInterface.GetObjectLink(1003);
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
  VolumeBase::Release(full);
}

VolumeMesh::State VolumeMesh::CurrentState() const {
  const GridLayout& domain = GetDomain();
  return {mMesh,      mMesh->Revision(), domain.cellSize, domain.worldCell,
          mPadding.x, mShellThickness,   mInverted};
}

void VolumeMesh::Prepare(void*) {
  if (!IsDirty()) return;
  if (Has(FLAG_CACHED) && mHasSecondBox) {
    // The distances follow from the cache in the stage of the emitters.
    mVoxelised = {};
    AllocateCachedGrid();
    return;
  }
  if (!mMesh || !mMesh->Has(FLAG_ENABLED) || !mMesh->HasTriangles()) {
    Release(false);
    Deactivate(mMesh ? "its mesh has no polygons" : "it links no mesh");
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
  AllocateGrid();
}

void VolumeMesh::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE) || Has(FLAG_CACHED) || !mMesh || !mGrid || mVoxelised.mesh) return;
  const i32 limit = mThreadLimit > 0 ? std::min(mThreadLimit, ThreadCount()) : mScene->mThreadCount;
  if (mVoxeliser.Voxelise(mMesh->mMesh, *mGrid, true, std::min(limit, 8), data.thread)) {
    mVoxelised = CurrentState();
  } else if (!data.TestBreak()) {
    Release(false);
    Deactivate("there is no memory for its work grids");
  }
  mMaximumDistance = mVoxeliser.mMaximumDistance;
  MarkGridChanged();
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
