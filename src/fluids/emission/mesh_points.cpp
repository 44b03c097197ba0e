#include "fluids/emission/mesh_points.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Twice the area along the normal of a triangle.
Vec3d AreaVector(const TriMeshSTL& mesh, i32 triangle) {
  const std::vector<Vec3d>& x = mesh.GetVertices();
  const VecInt3D& c = mesh.GetTriangles()[triangle];
  return Cross(x[c.y] - x[c.x], x[c.z] - x[c.x]);
}

}  // namespace

bool MeshPoints::Begin(const TriMeshSTL& mesh, bool vertices, bool normals) {
  Clear();
  mMesh = &mesh;
  if (vertices) {
    GatherUvs();
    if (normals) SumNormals();
    return mesh.GetVertexCount() > 0;
  }
  mAreas.resize(mesh.GetTriangleCount());
  double sum = 0;
  for (i32 t = 0; t < mesh.GetTriangleCount(); ++t)
    mAreas[t] = sum += 0.5 * Length(AreaVector(mesh, t));
  return sum > 0;
}

void MeshPoints::Clear() {
  mMesh = nullptr;
  mAreas.clear();
  mVertexUvs.clear();
  mVertexNormals.clear();
}

void MeshPoints::GatherUvs() {
  if (!HasUvs()) return;
  mVertexUvs.assign(mMesh->GetVertexCount(), {});
  std::vector<bool> isKnown(mMesh->GetVertexCount());
  for (i32 t = 0; t < mMesh->GetTriangleCount(); ++t)
    for (i32 corner = 0; corner < 3; ++corner) {
      const i32 vertex = mMesh->GetTriangles()[t][corner];
      if (isKnown[vertex]) continue;
      isKnown[vertex] = true;
      mVertexUvs[vertex] = mMesh->mUvs[3 * t + corner];
    }
}

void MeshPoints::SumNormals() {
  mVertexNormals.assign(mMesh->GetVertexCount(), {});
  for (i32 t = 0; t < mMesh->GetTriangleCount(); ++t)
    for (i32 corner = 0; corner < 3; ++corner)
      mVertexNormals[mMesh->GetTriangles()[t][corner]] += Normalised(AreaVector(*mMesh, t));
  for (Vec3d& normal : mVertexNormals) normal = Normalised(normal);
}

MeshPoint MeshPoints::OnTriangle(double u, double a, double b) const {
  const auto found = std::upper_bound(mAreas.begin(), mAreas.end(), u * mAreas.back());
  // A draw of 1 lies at the end of the last triangle that has an area.
  const auto last = std::lower_bound(mAreas.begin(), mAreas.end(), mAreas.back());
  MeshPoint point{.triangle = static_cast<i32>(std::min(found, last) - mAreas.begin())};
  if (a + b > 1) {
    a = 1 - a;
    b = 1 - b;
  }
  point.weights = {a, b, 1 - a - b};
  const VecInt3D& c = mMesh->GetTriangles()[point.triangle];
  const std::vector<Vec3d>& x = mMesh->GetVertices();
  point.position = x[c.x] * point.weights.x + x[c.y] * point.weights.y + x[c.z] * point.weights.z;
  return point;
}

Vec3d MeshPoints::NormalAt(const MeshPoint& point) const {
  if (point.triangle >= 0) return Normalised(AreaVector(*mMesh, point.triangle));
  const std::vector<Vec3d>& normals =
      mVertexNormals.empty() ? mMesh->mColumns.normal : mVertexNormals;
  return normals.empty() ? Vec3d{} : normals[point.vertex];
}

Vec3d MeshPoints::UvAt(const MeshPoint& point) const {
  if (!HasUvs()) return {};
  if (point.triangle < 0) return mVertexUvs[point.vertex];
  const Vec3d* uv = &mMesh->mUvs[3 * static_cast<std::size_t>(point.triangle)];
  return uv[0] * point.weights.x + uv[1] * point.weights.y + uv[2] * point.weights.z;
}

double MeshPoints::CurvatureAt(const MeshPoint& point) const {
  const std::vector<double>& curvature = mMesh->mColumns.curvature;
  if (curvature.empty()) return 0;
  if (point.triangle < 0) return curvature[point.vertex];
  const VecInt3D& c = mMesh->GetTriangles()[point.triangle];
  return curvature[c.x] * point.weights.x + curvature[c.y] * point.weights.y +
         curvature[c.z] * point.weights.z;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
