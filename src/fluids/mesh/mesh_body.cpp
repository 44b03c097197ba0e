// A mesh and the rigid body that moves it.
#include <algorithm>

#include "fluids/mesh/mesh.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Right-handed axes on three points, without offset; the identity where they stand in a line.
Matrix AxesOn(const Vec3d& a, const Vec3d& b, const Vec3d& c) {
  const Vec3d x = Normalised(b - a), z = Cross(x, c - a);
  if (!(Length(z) > 0)) return {};
  const Vec3d up = Normalised(z);
  return {{}, x, Cross(up, x), up};
}

/// Three vertices that tell how a shape has turned: far from each other and from a line.
VecInt3D Landmarks(const std::vector<Vec3d>& vertices) {
  const auto farthest = [&](auto&& distance) {
    i32 best = 0;
    double most = -1;
    for (i32 i = 0; i < static_cast<i32>(vertices.size()); ++i)
      if (distance(vertices[i]) > most) most = distance(vertices[i]), best = i;
    return best;
  };
  const Vec3d first = vertices.front();
  const i32 b = farthest([&](const Vec3d& v) { return Length(v - first); });
  const Vec3d way = vertices[b] - first;
  const i32 c = farthest([&](const Vec3d& v) { return Length(Cross(way, v - first)); });
  return {0, b, c};
}

}  // namespace

void Mesh::SetBody(BodyState* body, bool goesOn) {
  mBody = body;
  mAwaitsBody = false;
  if (!body) return;
  if (goesOn && mRest.size() == mMesh.GetVertices().size()) {
    mPivot = mFollowed.centre;
    return;
  }
  mRest = mMesh.GetVertices();
  mRestNormals = mMesh.mColumns.normal;
  mFollowed = body->Pose();
  mRestCentre = mPivot = mFollowed.centre;
  mRestMatrix = mObject->GlobalMatrix();
  if (!mIsWrittenBack) mStartMatrix = mRestMatrix;
}

void Mesh::LeaveBody() {
  if (mIsWrittenBack && mObject) {
    const host::BaseNode* parent = mObject->Parent();
    mObject->WriteBack(parent ? Inverse(parent->GlobalMatrix()) * mStartMatrix : mStartMatrix);
  }
  mIsWrittenBack = false;
  mBody = nullptr;
  mAwaitsBody = false;
  mRest.clear();
  mRestNormals.clear();
}

bool Mesh::GetBodyPose(BodyPose& pose) const {
  const std::vector<Vec3d>& now = mMesh.GetVertices();
  if (!mBody || mRest.empty() || mRest.size() != now.size()) return false;
  const VecInt3D mark = Landmarks(mRest);
  const Matrix before = AxesOn(mRest[mark.x], mRest[mark.y], mRest[mark.z]);
  const Matrix after = AxesOn(now[mark.x], now[mark.y], now[mark.z]);
  pose.turn = after * Inverse(before);
  pose.centre = now[mark.x] + pose.turn.Rotate(mRestCentre - mRest[mark.x]);
  const double slack = 1e-6 * Length(mRest[mark.y] - mRest[mark.x]);
  for (std::size_t i = 0; i < now.size(); ++i)
    if (Length(pose.centre + pose.turn.Rotate(mRest[i] - mRestCentre) - now[i]) > slack)
      return false;
  return true;
}

Matrix Mesh::BodyRotation() const {
  const Matrix rest = RotationOf(mRestMatrix);
  if (!mBody) return rest;
  const Matrix turned = mBody->Pose().turn * rest;
  return {{}, turned.v1, turned.v2, turned.v3};
}

void Mesh::FollowBody() {
  const BodyPose pose = mBody->Pose();
  const bool wasAltered = mAltered;
  mAltered = false;
  mGlides = false;
  mVertexWay.clear();
  // Over the whole frame, of which the substep has its share.
  const double share = std::max(StepShare(), 1e-12);
  mLinearVelocity = (pose.centre - mFollowed.centre) / share;
  mAngularVelocity = RotationVector(mFollowed.turn, pose.turn) / share;
  mPivot = pose.centre;
  mHasHistory = true;
  mSettling = false;
  SetFlag(FLAG_ACTIVE, true);
  const bool stays = pose == mFollowed && !wasAltered;
  if (stays) {
    if (mIsWrittenBack) mObject->WriteBack(mObject->LocalMatrix());
    return SetVelocitiesOfBody();
  }
  mFollowed = pose;
  std::vector<Vec3d>& now = mMesh.GetVertices();
  constexpr i32 block = 8192;
  const i32 count = static_cast<i32>(mRest.size());
  ForEachBlock((count + block - 1) / block, mScene->mThreadCount, [&](i32 k) {
    for (i32 i = k * block; i < std::min((k + 1) * block, count); ++i)
      now[i] = pose.centre + pose.turn.Rotate(mRest[i] - mRestCentre);
  });
  mMesh.mColumns.normal = mRestNormals;
  for (Vec3d& normal : mMesh.mColumns.normal) normal = pose.turn.Rotate(normal);
  mMesh.UpdateBounds();
  NoteNewShape();
  SetVelocitiesOfBody();
  mPreviousMesh.Assign(mMesh);
  if (mObstacle.writesBack) WriteBack(pose);
}

void Mesh::SetVelocitiesOfBody() {
  std::vector<Vec3d>& velocity = mMesh.mColumns.velocity;
  velocity.clear();
  if (!mVertexVelocities) return;
  const Vec3d linear = mBody->LinearVelocity(), angular = mBody->AngularVelocity();
  for (const Vec3d& v : mMesh.GetVertices())
    velocity.push_back(linear + Cross(angular, v - mPivot));
}

/// The object goes where its vertices went.
void Mesh::WriteBack(const BodyPose& pose) {
  mIsWrittenBack = true;
  Matrix placed;
  placed.offset = (pose.centre + pose.turn.Rotate(mRestMatrix.offset * mWorldToSim - mRestCentre)) /
                  mWorldToSim;
  placed.v1 = pose.turn.Rotate(mRestMatrix.v1);
  placed.v2 = pose.turn.Rotate(mRestMatrix.v2);
  placed.v3 = pose.turn.Rotate(mRestMatrix.v3);
  const host::BaseNode* parent = mObject->Parent();
  const Matrix home = parent ? Inverse(parent->GlobalMatrix()) : Matrix{};
  const double frame = mTime ? mTime->stepDuration / std::max(StepShare(), 1e-12) : 0;
  mObject->WriteBack(home * placed,
                     {.point = home * (pose.centre / mWorldToSim),
                      .way = home.Rotate(mBody->LinearVelocity() * frame / mWorldToSim),
                      .turn = RotationOf(home).Rotate(mBody->AngularVelocity() * frame)});
  mMatrixBefore = mMatrix;
  mMatrix = mObject->GlobalMatrix();
  mPointDirty = mObject->PointDirty();
  mPolygonDirty = mObject->PolygonDirty();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
