// Points on a triangle mesh, with what the mesh says there.
#pragma once
#include <vector>

#include "fluids/mesh/tri_mesh.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A point of a mesh: on a triangle, or a vertex.
struct MeshPoint {
  Vec3d position{};   ///< simulation units
  i32 triangle = -1;  ///< -1 for a vertex
  i32 vertex = -1;    ///< -1 for a point of a triangle
  Vec3d weights{};    ///< of the corners of the triangle
};

/// Finds points on a mesh, evenly by area. The mesh stays as it is meanwhile.
class MeshPoints {
 public:
  /// Measures the triangles; false where they have no area. With `vertices` the points are
  /// vertices: their surface coordinates, those of the first triangle with a vertex, are gathered,
  /// and with `normals` their normals too, in place of those of the mesh.
  bool Begin(const TriMeshSTL& mesh, bool vertices, bool normals);
  void Clear();

  /// Three draws, 0 to 1, make a point of a triangle: the first picks one by its area.
  MeshPoint OnTriangle(double u, double a, double b) const;
  MeshPoint AtVertex(i32 vertex) const {
    return {.position = mMesh->GetVertices()[vertex], .vertex = vertex};
  }
  /// Of the triangle, or of the vertex; zero where it isn't known.
  Vec3d NormalAt(const MeshPoint& point) const;
  bool HasUvs() const { return !mMesh->mUvs.empty(); }
  Vec3d UvAt(const MeshPoint& point) const;  ///< zero without any
  /// Property 13 of the vertices; 0 where they have none.
  double CurvatureAt(const MeshPoint& point) const;

 private:
  void GatherUvs();
  void SumNormals();

  const TriMeshSTL* mMesh = nullptr;
  std::vector<double> mAreas;  ///< of all triangles up to one, simulation units squared
  std::vector<Vec3d> mVertexUvs;
  std::vector<Vec3d> mVertexNormals;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
