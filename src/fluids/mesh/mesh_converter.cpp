#include "fluids/mesh/mesh_converter.h"

#include <algorithm>

#include "grids/run_shares.h"
#include "grids/split.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using host::Polygon;

void MeshConverter::Convert(i32 threads) {
  while (NextStep()) {
    Begin(threads);
    RunShares(threads, nullptr, [&](const EvaluationThreadData& share) { Run(share); });
  }
}

bool MeshConverter_HostToSTL::AnyMoved() const {
  return std::find(mHasMoved.begin(), mHasMoved.end(), 1) != mHasMoved.end();
}

bool MeshConverter_HostToSTL::NextStep() {
  if (mStep == kBox || (mStep == kVertices && !HasChanged())) return false;
  ++mStep;
  if (mStep == kTriangles && !mRebuild) ++mStep;
  return true;
}

void MeshConverter_HostToSTL::Begin(i32 workers) {
  if (mStep == kVertices) {
    Split(workers);
  } else if (mStep == kTriangles) {
    mMesh.mUvs.clear();
    if (mGeometry.uvs.size() == mGeometry.polygons.size())
      mMesh.mUvs.resize(3 * static_cast<std::size_t>(mMesh.GetTriangleCount()));
  }
}

void MeshConverter_HostToSTL::Split(i32 workers) {
  const i32 points = static_cast<i32>(mGeometry.points.size());
  const i32 polygons = static_cast<i32>(mGeometry.polygons.size());
  SplitCount(mFirstPoint, mLastPoint, points, 0, workers);
  SplitCount(mFirstPolygon, mLastPolygon, polygons, 0, workers);
  i32 triangles = 0;
  for (i32 w = 0; w < workers; ++w) {
    mFirstTriangle[w] = triangles;
    for (i32 i = mFirstPolygon[w]; i < mLastPolygon[w]; ++i)
      triangles += mGeometry.polygons[i].IsQuad() ? 2 : 1;
  }
  mHasQuads = triangles != polygons;
  mCountsChanged = mMesh.Resize(triangles, points);
  mRebuild = mRebuild || mCountsChanged;
}

void MeshConverter_HostToSTL::Run(const EvaluationThreadData& data) {
  switch (mStep) {
    case kVertices: WriteVertices(data.index); break;
    case kTriangles:
      WriteTriangles(data.index);
      if (data.isLast) WriteQuadMap();
      break;
    case kNormals:
      if (data.isLast) WriteNormals();
      break;
    case kBox:
      if (data.isLast) mMesh.UpdateBounds();
      break;
    default: break;
  }
}

void MeshConverter_HostToSTL::WriteVertices(i32 worker) {
  std::vector<Vec3d>& vertices = mMesh.GetVertices();
  for (i32 i = mFirstPoint[worker]; i < mLastPoint[worker]; ++i) {
    const Vec3d p = (mMatrix * mGeometry.points[i]) * mWorldToSim;
    if (p == vertices[i]) continue;
    vertices[i] = p;
    mHasMoved[worker] = 1;
  }
}

void MeshConverter_HostToSTL::WriteTriangles(i32 worker) {
  const bool hasUvs = !mMesh.mUvs.empty();
  i32 triangle = mFirstTriangle[worker];
  for (i32 i = mFirstPolygon[worker]; i < mLastPolygon[worker]; ++i) {
    const Polygon& p = mGeometry.polygons[i];
    const auto write = [&](i32 b, i32 c, int cornerB, int cornerC) {
      mMesh.GetTriangles()[triangle] = {p.a, b, c};
      if (hasUvs) {
        Vec3d* corner = mMesh.mUvs.data() + 3 * static_cast<std::size_t>(triangle);
        corner[0] = mGeometry.uvs[i][0];
        corner[1] = mGeometry.uvs[i][cornerB];
        corner[2] = mGeometry.uvs[i][cornerC];
      }
      ++triangle;
    };
    write(p.b, p.c, 1, 2);
    if (p.IsQuad()) write(p.c, p.d, 2, 3);
  }
}

void MeshConverter_HostToSTL::WriteQuadMap() {
  mMesh.mQuadMap.clear();
  if (!mHasQuads) return;
  i32 triangle = 0;
  for (std::size_t i = 0; i < mGeometry.polygons.size(); ++i) {
    const bool isQuad = mGeometry.polygons[i].IsQuad();
    mMesh.mQuadMap[static_cast<i32>(i)] = {triangle, isQuad ? triangle + 1 : -1};
    triangle += isQuad ? 2 : 1;
  }
}

void MeshConverter_HostToSTL::WriteNormals() {
  std::vector<Vec3d>& normals = mMesh.mColumns.normal;
  normals.clear();
  if (mGeometry.normals.empty() || mGeometry.normals.size() != mGeometry.polygons.size()) return;
  // Normals go by the transposed inverse, so that they stay upright under uneven scales.
  const Matrix inverse = Inverse(mMatrix);
  normals.assign(mGeometry.points.size(), {});
  for (std::size_t i = 0; i < mGeometry.polygons.size(); ++i) {
    const Polygon& p = mGeometry.polygons[i];
    const i32 corners[4] = {p.a, p.b, p.c, p.d};
    for (int c = 0; c < (p.IsQuad() ? 4 : 3); ++c) {
      const Vec3d& n = mGeometry.normals[i][c];
      normals[corners[c]] =
          Normalised(Vec3d{Dot(inverse.v1, n), Dot(inverse.v2, n), Dot(inverse.v3, n)});
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
