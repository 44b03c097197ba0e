// Where a mesh stands within a frame, and how fast its points move.
#include <algorithm>
#include <cmath>
#include <utility>

#include "fluids/mesh/mesh.h"
#include "fluids/mesh/nearest_point.h"
#include "framework/scene.h"
#include "grids/fixed_blocks.h"
#include "host/turn_by.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kVerticesInBlock = 8192;

}  // namespace

bool AreRigidlyRelated(const Matrix& a, const Matrix& b) {
  const auto same = [&](double x, double y) {
    return std::abs(x - y) <= 1e-9 * std::abs(Dot(a.v1, a.v1));
  };
  return same(Dot(a.v1, a.v1), Dot(b.v1, b.v1)) && same(Dot(a.v2, a.v2), Dot(b.v2, b.v2)) &&
         same(Dot(a.v3, a.v3), Dot(b.v3, b.v3)) && same(Dot(a.v1, a.v2), Dot(b.v1, b.v2)) &&
         same(Dot(a.v2, a.v3), Dot(b.v2, b.v3)) && same(Dot(a.v3, a.v1), Dot(b.v3, b.v1));
}

void Mesh::StartMotion(std::vector<Vec3d> start, bool deforms, bool glides) {
  mEndCentre = mMesh.GetBoundsCentre();
  if (deforms) {
    const std::vector<Vec3d>& end = mMesh.GetVertices();
    for (std::size_t i = 0; i < end.size(); ++i) start[i] = end[i] - start[i];
    mVertexWay = std::move(start);
  }
  mGlides = glides;
  if (mGlides) Glide();
}

void Mesh::Glide() {
  // What is left of the way; the last place is that of the document to the last bit.
  const double rest = mTime->isLastSubstep ? 0 : mTime->remainingFraction;
  const std::vector<Vec3d>& end = mPreviousMesh.GetVertices();
  std::vector<Vec3d>& now = mMesh.GetVertices();
  mPivot = mEndCentre - mLinearVelocity * rest;
  const TurnBy turn(mAngularVelocity * -rest);
  const i32 count = static_cast<i32>(end.size());
  ForEachBlock((count + kVerticesInBlock - 1) / kVerticesInBlock, mScene->mThreadCount,
               [&](i32 block) {
                 for (i32 i = block * kVerticesInBlock;
                      i < std::min((block + 1) * kVerticesInBlock, count); ++i) {
                   if (rest == 0)
                     now[i] = end[i];
                   else if (IsDeforming())
                     now[i] = end[i] - mVertexWay[i] * rest;
                   else
                     now[i] = mPivot + turn(end[i] - mEndCentre);
                 }
               });
  mMesh.mColumns.normal = mPreviousMesh.mColumns.normal;
  if (!IsDeforming() && rest != 0)
    for (Vec3d& normal : mMesh.mColumns.normal) normal = turn(normal);
  mMesh.UpdateBounds();
  NoteNewShape();
}

void Mesh::GetVelocities(Vec3d& linear, Vec3d& angular) const {
  if (IsFollowing()) {
    mBody->GetFlowVelocities(linear, angular);
    linear = linear * mTime->stepDuration;
    angular = angular * mTime->stepDuration;
    return;
  }
  const double share = StepShare();
  linear = mLinearVelocity * (share * mObstacle.linearTransfer);
  angular = mAngularVelocity * (share * mObstacle.angularTransfer);
}

void Mesh::GetVelocityParts(const Vec3d& point, Vec3d& linear, Vec3d& angular, Vec3d& cross) const {
  GetVelocities(linear, angular);
  cross = Cross(angular, point - Pivot());
}

Vec3d Mesh::GetSurfaceVelocity(i32 triangle, const Vec3d& point) const {
  Vec3d way;
  if (!IsDeforming()) {
    GetVelocityAt(way, point);
    return way;
  }
  const VecInt3D& corner = mMesh.GetTriangles()[triangle];
  const std::vector<Vec3d>& v = mMesh.GetVertices();
  double weights[3];
  NearestPoint(point, v[corner.x], v[corner.y], v[corner.z], weights);
  for (int i = 0; i < 3; ++i) way += mVertexWay[corner[i]] * weights[i];
  return way * StepShare();
}

double Mesh::GetTravel() const {
  double most = 0;
  if (IsDeforming()) {
    for (const Vec3d& way : mVertexWay) most = std::max(most, Dot(way, way));
    return std::sqrt(most) * StepShare();
  }
  Vec3d size;
  mMesh.GetBoundsSize(size);
  return (Length(mLinearVelocity) + Length(mAngularVelocity) * Length(size) / 2) * StepShare();
}

void Mesh::GetVelocityAt(Vec3d& out, const Vec3d& point) const {
  out = (mLinearVelocity + Cross(mAngularVelocity, point - Pivot())) * StepShare();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
