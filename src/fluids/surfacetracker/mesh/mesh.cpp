#include "fluids/surfacetracker/mesh/mesh.h"

#include <atomic>

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
bool HasVolume(const Matrix& m) { return Dot(m.v1, Cross(m.v2, m.v3)) != 0; }
bool SameAxes(const Matrix& a, const Matrix& b) {
  return a.v1 == b.v1 && a.v2 == b.v2 && a.v3 == b.v3;
}
/// Numbers that no mesh had before, so that a new mesh in the memory of an old one isn't taken for
/// it. Called on pipeline threads only; only equality of the numbers is ever asked.
u32 NextRevision() {
  static std::atomic<u32> last{0};
  return ++last;
}
}  // namespace

const ParameterTable& Mesh::Parameters() {
  static const ParameterTable table = {
      LinkRow(1000, "object", "the object whose polygons are read", {kMeshObject}),
      BoolRow(1004, "vertex_velocities", false, "keep a velocity for every vertex"),
      RealRow(1005, "body_linear_value", 10.0, "",
              "value of the rigid body; no effect without one"),
      RealRow(1007, "body_angular_value", 10.0, "",
              "value of the rigid body; no effect without one"),
      LongRow(10002, "priority", -10, "", "added to the class's priority inside a stage")
          .Missing(0),
  };
  return table;
}

Mesh::Mesh(BaseNode* node, Scene* scene) : iObject(node, scene) {
  mStageMask |= StageBit(kVolumes);
  mPriority = -5;
}

void Mesh::GetCategories(u32& mask) const {
  mask |= kCategoryMesh;
  if (mTagPresent) mask |= kCategoryActiveVolume;
}

bool Mesh::ReadParameters(void* context) {
  mPriority = 0;
  if (!iObject::ReadParameters(context)) return false;
  mVertexVelocities = mInterface.GetBool(1004);
  return true;
}

bool Mesh::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  mTagOwner = nullptr;
  mObject =
      dynamic_cast<PolygonObject*>(mIsMember ? mSource.Resolve() : mInterface.GetObjectLink(1000));
  const NodeId id = mObject ? mObject->Id() : 0;
  if (id != mObjectId) mHasHistory = false;
  mObjectId = id;
  return mObject != nullptr;
}

bool Mesh::AfterLinks() {
  mTagPresent =
      (mObject && mObject->Tag(kObstacleTag)) || (mTagOwner && mTagOwner->Tag(kObstacleTag));
  return true;
}

void Mesh::SetTagOwner(BaseNode* owner) {
  if (owner) mTagOwner = owner;
  AfterLinks();
}

bool Mesh::HasObjectChanged() const {
  return mObject->GlobalMatrix() != mMatrix || mObject->PointDirty() != mPointDirty ||
         mObject->PolygonDirty() != mPolygonDirty || GetDomain().worldToSim != mWorldToSim;
}

void Mesh::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!Has(FLAG_ENABLED)) return;
  if (!mObject) {
    if (HasTriangles()) Reset();
    Deactivate("it links no polygon object");
  } else if (!mHasHistory || mSettling || mAltered || HasObjectChanged()) {
    SetFlag(FLAG_DIRTY, true);
  }
}

bool Mesh::IsDirty() const {
  return Has(FLAG_DIRTY) && (!mTime || mTime->substep < 2 || Has(FLAG_MOVED));
}

void Mesh::Reset() {
  SetFlag(FLAG_ACTIVE, false);
  mMesh.Clear();
  mPreviousMesh.Clear();
  mLinearVelocity = mAngularVelocity = {};
  mHasHistory = mSettling = mAltered = false;
  mRevision = NextRevision();
}

void Mesh::Release(bool full) {
  iObject::Release(full);
  if (full) Reset();
}

// ---- conversion -------------------------------------------------------------------------------

bool Mesh::CopyVertices() {
  const std::vector<Vec3d>& points = mObject->GetGeometry().points;
  std::vector<Vec3d>& vertices = mMesh.GetVertices();
  bool changed = false;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const Vec3d p = (mMatrix * points[i]) * mWorldToSim;
    changed = changed || p != vertices[i];
    vertices[i] = p;
  }
  return changed;
}

void Mesh::RebuildTriangles() {
  const Geometry& geometry = mObject->GetGeometry();
  const i32 points = static_cast<i32>(geometry.points.size());
  const bool hasUvs = geometry.uvs.size() == geometry.polygons.size();
  std::vector<VecInt3D>& triangles = mMesh.GetTriangles();
  triangles.clear();
  mMesh.mUvs.clear();
  mMesh.mQuadMap.clear();
  std::vector<i32> first(geometry.polygons.size());
  bool hasQuads = false;
  for (std::size_t i = 0; i < geometry.polygons.size(); ++i) {
    const Polygon& p = geometry.polygons[i];
    first[i] = mMesh.GetTriangleCount();
    const auto isPoint = [&](i32 index) { return index >= 0 && index < points; };
    if (!isPoint(p.a) || !isPoint(p.b) || !isPoint(p.c) || !isPoint(p.d)) continue;
    const auto add = [&](i32 b, i32 c, int cornerB, int cornerC) {
      triangles.push_back({p.a, b, c});
      if (!hasUvs) return;
      const auto& uv = geometry.uvs[i];
      mMesh.mUvs.insert(mMesh.mUvs.end(), {uv[0], uv[cornerB], uv[cornerC]});
    };
    add(p.b, p.c, 1, 2);
    if (p.IsQuad()) add(p.c, p.d, 2, 3);
    hasQuads = hasQuads || p.IsQuad();
  }
  if (!hasQuads) return;
  for (std::size_t i = 0; i < first.size(); ++i) {
    const i32 end = i + 1 < first.size() ? first[i + 1] : mMesh.GetTriangleCount();
    if (end > first[i])
      mMesh.mQuadMap[static_cast<i32>(i)] = {first[i], end - first[i] > 1 ? first[i] + 1 : -1};
  }
}

void Mesh::TakeNormals() {
  const Geometry& geometry = mObject->GetGeometry();
  std::vector<Vec3d>& normals = mMesh.mColumns.normal;
  normals.clear();
  if (geometry.normals.empty() || geometry.normals.size() != geometry.polygons.size()) return;
  // Normals go by the transposed inverse, so that they stay upright under uneven scales.
  const Matrix inverse = Inverse(mMatrix);
  normals.assign(geometry.points.size(), {});
  for (std::size_t i = 0; i < geometry.polygons.size(); ++i) {
    const Polygon& p = geometry.polygons[i];
    const i32 corners[4] = {p.a, p.b, p.c, p.d};
    for (int c = 0; c < (p.IsQuad() ? 4 : 3); ++c) {
      if (corners[c] < 0 || corners[c] >= static_cast<i32>(normals.size())) continue;
      const Vec3d& n = geometry.normals[i][c];
      normals[corners[c]] =
          Normalised(Vec3d{Dot(inverse.v1, n), Dot(inverse.v2, n), Dot(inverse.v3, n)});
    }
  }
}

i32 Mesh::ConvertHostObject() {
  if (!mObject) return 0;
  const Geometry& geometry = mObject->GetGeometry();
  if (geometry.points.empty() || geometry.polygons.empty()) return 0;
  const i32 vertices = mMesh.GetVertexCount(), triangles = mMesh.GetTriangleCount();
  const bool polygonsChanged = !mHasHistory || mPolygonDirty != mObject->PolygonDirty();
  mPointDirty = mObject->PointDirty();
  mPolygonDirty = mObject->PolygonDirty();
  mMesh.Resize(triangles, static_cast<i32>(geometry.points.size()));
  const bool moved = CopyVertices();
  if (polygonsChanged || vertices != mMesh.GetVertexCount()) RebuildTriangles();
  TakeNormals();
  const bool countsChanged =
      vertices != mMesh.GetVertexCount() || triangles != mMesh.GetTriangleCount();
  if (moved || polygonsChanged || countsChanged) mRevision = NextRevision();
  if (mMesh.GetTriangleCount() == 0) return 0;
  return countsChanged ? 2 : 1;
}

// ---- motion -----------------------------------------------------------------------------------

bool Mesh::IsNextFrame() const {
  const FrameClock& clock = mScene->mClock;
  return (mScene->mFlags & Scene::kTimeChanged) && clock.frame == clock.lastFrame + 1;
}

void Mesh::UpdateMotion(const Vec3d& centreBefore, bool pointsChanged) {
  const Vec3d centre = mMesh.GetBoundsCentre();
  mLinearVelocity = centre - centreBefore;
  mAngularVelocity = {};
  if (SameAxes(mMatrix, mMatrixBefore) || !HasVolume(mMatrix) || !HasVolume(mMatrixBefore)) return;
  mAngularVelocity = RotationVector(mMatrixBefore, mMatrix);
  if (pointsChanged) return;
  // The box of a turning shape changes, so its centre isn't a point of the shape: what moves is the
  // material that is at the centre now.
  const Vec3d material = Inverse(mMatrix) * (centre / mWorldToSim);
  mLinearVelocity = centre - (mMatrixBefore * material) * mWorldToSim;
}

void Mesh::UpdateVertexVelocities(bool isStep) {
  std::vector<Vec3d>& velocity = mMesh.mColumns.velocity;
  velocity.clear();
  if (!mVertexVelocities) return;
  velocity.assign(mMesh.GetVertexCount(), {});
  if (!isStep || mPreviousMesh.GetVertexCount() != mMesh.GetVertexCount() ||
      mPreviousMesh.GetTriangleCount() != mMesh.GetTriangleCount() || !(mTime->stepDuration > 0))
    return;
  const double rate = StepShare() / mTime->stepDuration;
  const std::vector<Vec3d>&now = mMesh.GetVertices(), &before = mPreviousMesh.GetVertices();
  for (std::size_t i = 0; i < now.size(); ++i) velocity[i] = (now[i] - before[i]) * rate;
}

void Mesh::Prepare(void*) {
  if (!IsDirty()) return;
  if (!mObject) {
    Deactivate("it links no polygon object");
    return;
  }
  UndoAlteration();
  const bool moved = !mHasHistory || HasObjectChanged();
  const bool pointsChanged = mPointDirty != mObject->PointDirty();
  const Vec3d centreBefore = mMesh.GetBoundsCentre();
  if (moved) {
    mMatrixBefore = mMatrix;
    mMatrix = mObject->GlobalMatrix();
    mWorldToSim = GetDomain().worldToSim;
    if (ConvertHostObject() == 0) {
      Reset();
      Deactivate("its object has no polygons");
      return;
    }
    UpdateBounds();
  }
  const bool isStep = moved && mHasHistory && mTime->elapsed > 0 && IsNextFrame();
  if (isStep) {
    UpdateMotion(centreBefore, pointsChanged);
  } else {
    mLinearVelocity = mAngularVelocity = {};
  }
  UpdateVertexVelocities(isStep);
  if (moved) mPreviousMesh.Assign(mMesh);
  mSettling = moved && mHasHistory;
  mHasHistory = true;
  SetFlag(FLAG_ACTIVE, true);
}

void Mesh::MarkAltered() {
  mAltered = true;
  UpdateBounds();
}

void Mesh::UndoAlteration() {
  if (!mAltered) return;
  mAltered = false;
  mMesh.GetVertices() = mPreviousMesh.GetVertices();
  mMesh.mColumns.normal = mPreviousMesh.mColumns.normal;
  UpdateBounds();
}

void Mesh::GetVelocities(Vec3d& linear, Vec3d& angular) const {
  const double share = StepShare();
  linear = mLinearVelocity * share;
  angular = mAngularVelocity * share;
}

void Mesh::GetVelocityParts(const Vec3d& point, Vec3d& linear, Vec3d& angular, Vec3d& cross) const {
  GetVelocities(linear, angular);
  cross = Cross(angular, point - mMesh.GetBoundsCentre());
}

void Mesh::GetVelocityAt(Vec3d& out, const Vec3d& point) const {
  out = (mLinearVelocity + Cross(mAngularVelocity, point - mMesh.GetBoundsCentre())) * StepShare();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
