#include "fluids/mesh/tri_mesh.h"

#include <algorithm>
#include <limits>

#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void TriMeshSTL::SetBounds(const Vec3d& min, const Vec3d& max) {
  mBoundsMin = min;
  mBoundsMax = max;
  mCentre = min + (max - min) * 0.5;
}

void TriMeshSTL::ExpandBounds(Vec3d& min, Vec3d& max) const {
  min = Min(min, mBoundsMin);
  max = Max(max, mBoundsMax);
}

void TriMeshSTL::UpdateBounds() {
  constexpr double huge = std::numeric_limits<double>::max();
  Vec3d min{huge, huge, huge}, max{-huge, -huge, -huge};
  for (const Vec3d& v : mVertices) {
    min = Min(min, v);
    max = Max(max, v);
  }
  SetBounds(min, max);
}

void TriMeshSTL::Assign(const TriMeshSTL& other) { *this = other; }

bool TriMeshSTL::Resize(i32 triangles, i32 vertices) {
  const bool changed = triangles != GetTriangleCount() || vertices != GetVertexCount();
  if (vertices != GetVertexCount()) mColumns.Clear();
  mVertices.resize(vertices);
  mTriangles.resize(triangles);
  return changed;
}

void TriMeshSTL::Persist(StateArchive& archive) {
  std::vector<std::pair<i32, std::pair<i32, i32>>> quads(mQuadMap.begin(), mQuadMap.end());
  std::sort(quads.begin(), quads.end());
  archive(mBoundsMin, mBoundsMax, mCentre, mTriangles, mVertices, mUvs, mColumns.velocity,
          mColumns.normal, mColumns.curvature, quads);
  if (archive.IsLoading()) mQuadMap = {quads.begin(), quads.end()};
}

void TriMeshSTL::Clear() {
  mTriangles.clear();
  mVertices.clear();
  mUvs.clear();
  mColumns.Clear();
  mQuadMap.clear();
  SetBounds({}, {});
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
