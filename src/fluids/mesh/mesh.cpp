#include "fluids/mesh/mesh.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <utility>

#include "fluids/mesh/mesh_converter.h"
#include "fluids/mesh/obstacle_settings.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

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
/// A number for the bits of all coordinates: FNV-1a by words, with the high bits folded down.
u64 DigestOf(const std::vector<Vec3d>& vertices) {
  u64 digest = 14695981039346656037u;
  for (const Vec3d& v : vertices)
    for (const double c : {v.x, v.y, v.z}) {
      u64 bits;
      std::memcpy(&bits, &c, sizeof bits);
      digest = (digest ^ bits) * 1099511628211u;
      digest ^= digest >> 32;
    }
  return digest;
}
}  // namespace

const NodeKind& Mesh::Kind() {
  static const NodeKind kind = {
      .id = 1300143,
      .type = "mesh",
      .label = "Mesh",
      .className = "Mesh",
      .typeId = kTypeMesh,
      .list = kListGeometry,
      .categories = kCategoryMesh,
      .flags = "SV",
      .stages = {kVolumes},
      .priority = 0,
      .menu = {"Bodies"},
      .purpose = "reads the polygons of a host object, as they move and deform",
      .example =
          {{example::kBall},
           {example::kBallMesh,
            R"({ "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" }, "obstacle": {} })",
            example::kGas}},
      .rows = Parameters,
      .make = MakeNode<Mesh>,
  };
  return kind;
}

const ParameterTable& Mesh::Parameters() {
  static const ParameterTable table = {
      LinkRow(kObjectRow, "object",
              "the geometry that comes into the simulation; that of a mesher as of the step before",
              {kMeshObject, kMeshMakerNode, kGeometryNode})
          .To(&Mesh::mLinkedObject)
          .Required(),
      BoolRow(1004, "vertex_velocities", false,
              "keeps the speed of each vertex with the mesh; obstacles push with it either way")
          .To(&Mesh::mVertexVelocities),
      RealRow(1005, "body_linear_value", 10.0, "none", "of the rigid body; no effect without one")
          .Kept(),
      RealRow(1007, "body_angular_value", 10.0, "none",
              "of the rigid body's turning; no effect without one")
          .Kept(),
      LongRow(10002, "priority", -10, "",
              "added to the class's place in its stage: lower runs earlier")
          .Missing(0),
  };
  return table;
}

Mesh::Mesh(BaseNode* node, Scene* scene) : iObject(node, scene) {}

void Mesh::GetCategories(u32& mask) const {
  iObject::GetCategories(mask);
  if (mTagPresent) mask |= kCategoryActiveVolume;
}

bool Mesh::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  return true;
}

bool Mesh::ResolveLinks() {
  // The links of a member are its group's.
  if (mIsMember ? Node() == nullptr : !iObject::ResolveLinks()) return false;
  mTagOwner = nullptr;
  mObject = mIsMember ? dynamic_cast<PolygonObject*>(mSource.Resolve()) : mLinkedObject;
  const NodeId id = mObject ? mObject->Id() : 0;
  if (id != mObjectId) {
    mHasHistory = false;
    mMatrixCache.Clear();
  }
  mObjectId = id;
  return mObject != nullptr;
}

bool Mesh::AfterLinks() {
  mTagPresent = FindTag() != nullptr;
  ReadTag();
  return true;
}

BaseNode* Mesh::FindTag() const {
  for (const BaseNode* node :
       {static_cast<const BaseNode*>(mObject), static_cast<const BaseNode*>(mTagOwner),
        static_cast<const BaseNode*>(Node())})
    if (BaseNode* tag = node ? node->Tag(kObstacleTag) : nullptr) return tag;
  return nullptr;
}

void Mesh::ReadTag() {
  const BaseNode* tag = FindTag();
  mObstacle = {};
  if (tag && tag->Table()) {
    FillMembers(*tag->Table(), tag, mObstacle);
    ConnectLinks(*tag->Table(), *tag, mObstacle, *mScene);
  }
  mReplays = mObstacle.baked && mObstacle.followsBake;
}

Matrix Mesh::WantedMatrix() const {
  const Matrix now = mObject->GlobalMatrix();
  if (!mReplays) return now;
  const std::optional<LMatrix> stored =
      mMatrixCache.At(mScene->mClock.frame + mObstacle.bakeOffset);
  return stored ? stored->matrix : now;
}

void Mesh::SetTagOwner(BaseNode* owner) {
  if (owner) mTagOwner = owner;
  AfterLinks();
}

/// Of an object that a file moves all frames are known at once.
void Mesh::RecordPlacement() {
  const Placements& placements = mObject->GetPlacements();
  if (placements.IsEmpty())
    return mMatrixCache.Store(mScene->mClock.frame, {mObject->GlobalMatrix()});
  const BaseNode* parent = mObject->Parent();
  const Matrix home = parent ? parent->GlobalMatrix() : Matrix{};
  for (const auto& [frame, placed] : placements.Frames())
    if (frame == std::floor(frame) && !mMatrixCache.Find(static_cast<i32>(frame)))
      mMatrixCache.Store(static_cast<i32>(frame), {home * mObject->PlacedAt(frame)});
}

bool Mesh::HasObjectChanged() const {
  return WantedMatrix() != mMatrix || mObject->PointDirty() != mPointDirty ||
         mObject->PolygonDirty() != mPolygonDirty || GetDomain().worldToSim != mWorldToSim;
}

void Mesh::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!Has(FLAG_ENABLED)) return;
  if (mObject && mReplays) RecordPlacement();
  if (!mObject) {
    if (HasTriangles()) Reset();
    Deactivate("it has no object; name one under 'object'");
  } else if (IsFollowing() || mAwaitsBody || !mHasHistory || mSettling || mAltered ||
             HasObjectChanged()) {
    SetFlag(FLAG_DIRTY, true);
  }
}

bool Mesh::IsDirty() const {
  return Has(FLAG_DIRTY) && (!mTime || mTime->substep < 2 || Has(FLAG_MOVED) || IsGliding());
}

void Mesh::Reset() {
  LeaveBody();
  SetFlag(FLAG_ACTIVE, false);
  mMesh.Clear();
  mPreviousMesh.Clear();
  mLinearVelocity = mAngularVelocity = {};
  mHasHistory = mSettling = mAltered = mGlides = false;
  mVertexWay.clear();
  mRevision = NextRevision();
}

void Mesh::Release(bool full) {
  iObject::Release(full);
  if (full) Reset();
}

void Mesh::Persist(StateArchive& archive) {
  iObject::Persist(archive);
  mMesh.Persist(archive);
  archive(mObjectId, mPointDirty, mPolygonDirty, mMatrix, mMatrixBefore, mWorldToSim,
          mLinearVelocity, mAngularVelocity, mTagPresent, mHasHistory, mSettling, mAltered,
          mMatrixCache);
  bool follows = IsFollowing() || mAwaitsBody;
  archive(follows);
  if (archive.IsLoading()) mAwaitsBody = follows;
  archive(mRest, mRestCentre, mRestNormals, mFollowed.centre, mFollowed.turn, mIsWrittenBack,
          mRestMatrix, mStartMatrix);
  if (mAltered) mPreviousMesh.Persist(archive);
  if (!archive.IsLoading()) return;
  if (!mAltered) mPreviousMesh.Assign(mMesh);
  mRevision = NextRevision();
  mAlteredRevision = NextRevision();
  mAlteredShapes.clear();
}

// ---- conversion -------------------------------------------------------------------------------

i32 Mesh::ConvertHostObject() {
  if (!mObject) return 0;
  const Geometry& geometry = mObject->GetGeometry();
  if (geometry.points.empty() || geometry.polygons.empty()) return 0;
  const bool polygonsChanged = !mHasHistory || mPolygonDirty != mObject->PolygonDirty();
  mPointDirty = mObject->PointDirty();
  mPolygonDirty = mObject->PolygonDirty();
  MeshConverter_HostToSTL converter(*mObject, mMatrix, mWorldToSim, polygonsChanged, mMesh);
  // Waking a worker costs more than a few thousand points.
  constexpr std::size_t pointsPerWorker = 8192;
  converter.Convert(static_cast<i32>(
      std::min<std::size_t>(geometry.points.size() / pointsPerWorker + 1, mScene->mThreadCount)));
  if (converter.HasChanged()) NoteNewShape();
  return converter.HaveCountsChanged() ? 2 : 1;
}

void Mesh::NoteNewShape() {
  mRevision = NextRevision();
  mAlteredShapes.clear();
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

void Mesh::PrepareAhead() {
  mIsAhead = false;
  if (!IsDirty()) return;
  Prepare();
  mIsAhead = true;
}

void Mesh::Prepare() {
  if (!IsDirty() || std::exchange(mIsAhead, false)) return;
  if (!mObject) {
    Deactivate("it has no object; name one under 'object'");
    return;
  }
  if (IsFollowing()) return FollowBody();
  if (mGlides && mTime && mTime->substep > 1) return Glide();
  mGlides = false;
  mVertexWay.clear();
  const bool wasAltered = mAltered;
  UndoAlteration();
  const bool moved = !mHasHistory || HasObjectChanged();
  const bool pointsChanged = mPointDirty != mObject->PointDirty();
  const Vec3d centreBefore = mMesh.GetBoundsCentre();
  std::vector<Vec3d> start;
  bool deforms = pointsChanged;
  if (moved) {
    mMatrixBefore = mMatrix;
    mMatrix = WantedMatrix();
    deforms = deforms || !AreRigidlyRelated(mMatrixBefore, mMatrix);
    if (deforms || !mTime->isLastSubstep) start = mMesh.GetVertices();
    mWorldToSim = GetDomain().worldToSim;
    if (ConvertHostObject() == 0) {
      Reset();
      Deactivate("its object has no polygons");
      return;
    }
  }
  const bool isStep = moved && mHasHistory && mTime->IsUnderWay() && IsNextFrame();
  if (isStep) {
    UpdateMotion(centreBefore, pointsChanged);
  } else {
    mLinearVelocity = mAngularVelocity = {};
  }
  UpdateVertexVelocities(isStep);
  // Other triangles have no vertices in common with those before.
  const bool isFollowed = isStep && mMesh.GetTriangles() == mPreviousMesh.GetTriangles();
  if (moved) mPreviousMesh.Assign(mMesh);
  mSettling = moved && mHasHistory;
  mHasHistory = true;
  SetFlag(FLAG_ACTIVE, true);
  if (isFollowed && start.size() == mMesh.GetVertices().size())
    StartMotion(std::move(start), deforms, !wasAltered && !mTime->isLastSubstep);
}

void Mesh::MarkAltered() {
  mAltered = true;
  UpdateBounds();
  const u64 digest = DigestOf(mMesh.GetVertices());
  const auto known = std::find_if(mAlteredShapes.begin(), mAlteredShapes.end(),
                                  [&](const auto& shape) { return shape.first == digest; });
  if (known != mAlteredShapes.end()) {
    mAlteredRevision = known->second;
    return;
  }
  // Operators that change with time would fill the list.
  if (mAlteredShapes.size() == 16) mAlteredShapes.erase(mAlteredShapes.begin());
  mAlteredRevision = NextRevision();
  mAlteredShapes.emplace_back(digest, mAlteredRevision);
}

void Mesh::UndoAlteration() {
  if (!mAltered) return;
  mAltered = false;
  mMesh.GetVertices() = mPreviousMesh.GetVertices();
  mMesh.mColumns.normal = mPreviousMesh.mColumns.normal;
  UpdateBounds();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
