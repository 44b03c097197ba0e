// From host geometry to triangle meshes.
#pragma once
#include <vector>

#include "fluids/mesh/tri_mesh.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Reads a polygon object into a mesh: first the vertices, then, where it must, the triangles with
/// their uvs and the map of quads, then the normals, then the box.
class MeshConverter_HostToSTL {
 public:
  /// `mesh` holds what was read last, and with `polygonsChanged` other polygons than the object's.
  MeshConverter_HostToSTL(const host::PolygonObject& object, const Matrix& matrix,
                          const Vec3d& worldToSim, bool polygonsChanged, TriMeshSTL& mesh)
      : mGeometry(object.GetGeometry()),
        mMatrix(matrix),
        mWorldToSim(worldToSim),
        mRebuild(polygonsChanged),
        mMesh(mesh) {}

  /// The whole conversion on at most `threads` workers. Nothing but the vertices is looked at where
  /// none of them moved.
  void Convert(i32 threads);

  /// A vertex moved, or the triangles were rebuilt.
  bool HasChanged() const { return mRebuild || mHasMoved; }
  bool HaveCountsChanged() const { return mCountsChanged; }

 private:
  /// Makes room, and finds where the triangles of each block of polygons begin.
  void Resize();
  void WriteVertices(i32 threads);
  void WriteTriangles(i32 block);
  void WriteQuadMap();
  void WriteNormals();

  const host::Geometry& mGeometry;
  Matrix mMatrix;
  Vec3d mWorldToSim;
  bool mRebuild;
  TriMeshSTL& mMesh;
  bool mCountsChanged = false;
  bool mHasQuads = false;
  bool mHasMoved = false;
  std::vector<i32> mFirstTriangle;  ///< of each block of polygons
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
