#include "fluids/mesh/mesh_converter.h"

#include <algorithm>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using host::Polygon;

namespace {
constexpr i32 kItemsInBlock = 2048;  // points or polygons
i32 BlocksOf(std::size_t items) {
  return static_cast<i32>((items + kItemsInBlock - 1) / kItemsInBlock);
}
}  // namespace

void MeshConverter_HostToSTL::Convert(i32 threads) {
  Resize();
  WriteVertices(threads);
  if (!HasChanged()) return;
  if (mRebuild) {
    mMesh.mUvs.clear();
    if (mGeometry.uvs.size() == mGeometry.polygons.size())
      mMesh.mUvs.resize(3 * static_cast<std::size_t>(mMesh.GetTriangleCount()));
    ForEachBlock(BlocksOf(mGeometry.polygons.size()), threads,
                 [&](i32 block) { WriteTriangles(block); });
    WriteQuadMap();
  }
  WriteNormals();
  mMesh.UpdateBounds();
}

void MeshConverter_HostToSTL::Resize() {
  const i32 points = static_cast<i32>(mGeometry.points.size());
  const i32 polygons = static_cast<i32>(mGeometry.polygons.size());
  mFirstTriangle.resize(BlocksOf(mGeometry.polygons.size()));
  i32 triangles = 0;
  for (i32 i = 0; i < polygons; ++i) {
    if (i % kItemsInBlock == 0) mFirstTriangle[i / kItemsInBlock] = triangles;
    triangles += mGeometry.polygons[i].IsQuad() ? 2 : 1;
  }
  mHasQuads = triangles != polygons;
  mCountsChanged = mMesh.Resize(triangles, points);
  mRebuild = mRebuild || mCountsChanged;
}

void MeshConverter_HostToSTL::WriteVertices(i32 threads) {
  std::vector<Vec3d>& vertices = mMesh.GetVertices();
  const i32 points = static_cast<i32>(mGeometry.points.size());
  mHasMoved = ReduceBlocks(
                  BlocksOf(mGeometry.points.size()), threads, i32{0},
                  [&](i32 block) {
                    i32 moved = 0;
                    for (i32 i = block * kItemsInBlock;
                         i < std::min((block + 1) * kItemsInBlock, points); ++i) {
                      const Vec3d p = (mMatrix * mGeometry.points[i]) * mWorldToSim;
                      if (p == vertices[i]) continue;
                      vertices[i] = p;
                      moved = 1;
                    }
                    return moved;
                  },
                  [](i32 a, i32 b) { return a | b; }) != 0;
}

void MeshConverter_HostToSTL::WriteTriangles(i32 block) {
  const bool hasUvs = !mMesh.mUvs.empty();
  i32 triangle = mFirstTriangle[block];
  const i32 polygons = static_cast<i32>(mGeometry.polygons.size());
  for (i32 i = block * kItemsInBlock; i < std::min((block + 1) * kItemsInBlock, polygons); ++i) {
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
