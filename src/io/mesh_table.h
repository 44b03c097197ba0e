// Meshes as they leave the simulation.
#pragma once
#include <array>
#include <span>
#include <string>
#include <vector>

#include "fluids/mesh/tri_mesh.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::app {

/// The points and polygons of a mesh: triangles and quads, counter-clockwise seen from outside.
struct MeshTable {
  std::vector<Vec3d> points;      ///< simulation units
  std::vector<Vec3d> normals;     ///< of the points
  std::vector<Vec3d> velocities;  ///< of the points, simulation units per second; empty without
  std::vector<Vec3d> colours;     ///< of the points, linear; empty without
  std::vector<std::array<Vec3d, 4>> uvs;  ///< of the corners of polygons; empty without
  std::vector<host::Polygon> polygons;
  std::string unit = "metres";  ///< of lengths; empty where nobody knows

  /// Gives points the normals of the polygons round them, by area.
  void MakeNormals();
  /// Calls f(a, b, c) with the points of each triangle, two for a quad.
  template <class F>
  void ForEachTriangle(F&& f) const {
    for (const host::Polygon& p : polygons) {
      f(p.a, p.b, p.c);
      if (p.IsQuad()) f(p.a, p.c, p.d);
    }
  }
};

/// What a mesh encloses.
struct MeshMeasure {
  double area = 0;    ///< squared simulation units
  double volume = 0;  ///< cubed; of a mesh that is open, that of a cone from the origin over it
};
MeshMeasure Measure(const MeshTable& mesh);
/// Edges that polygons don't walk once in each direction: at holes, between polygons that are
/// turned the other way round, and where more than two meet. Points that stand in one place, as
/// files have one for each normal, count as one where that closes more.
i64 CountOpenEdges(const MeshTable& mesh);

/// One after the other, in one table.
MeshTable Joined(std::span<const MeshTable* const> meshes);
/// The same mesh with a point for each texture coordinate that corners have at it, and `uvs` of
/// points in place of corners'.
MeshTable SplitByUvs(const MeshTable& mesh, std::vector<Vec3d>& uvs);

/// The triangles of the simulation.
MeshTable TableOf(const MELDO_SULVA::TriMeshSTL& mesh);
/// The polygons of an object where they stand; `worldToSim` takes host units to those of the
/// simulation. Corners that share a point share a normal.
MeshTable TableOf(const host::PolygonObject& object, const Vec3d& worldToSim);
/// The same of polygons that `place` puts where they stand.
MeshTable TableOf(const host::Geometry& geometry, const Matrix& place, const Vec3d& worldToSim);

}  // namespace MELDO_GLOBAL::app
