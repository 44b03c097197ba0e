// The surface of a voxelised mesh between the nodes of its grid.
#pragma once
#include <vector>

#include "fluids/mesh/tri_mesh.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Answers from the triangles what the distances at the nodes can't tell: parts that are thinner
/// than a cell, and which triangle is the nearest. Looks at the triangles that are nearest to the
/// eight nodes round a point. Keeps references to what it is made from.
class SharpSurface {
 public:
  /// `closest` names the nearest triangle of each node of `distance`; `inwards` tells that the
  /// triangles' normals point into the solid.
  SharpSurface(const TriMeshSTL& mesh, const EGrid<double>& distance, const Grid<i32>& closest,
               bool inwards)
      : mMesh(mesh), mDistance(distance), mClosest(closest), mOut(inwards ? -1 : 1) {}
  /// Whether the normals of a closed mesh point to what it encloses.
  static bool TurnsInwards(const TriMeshSTL& mesh);

  struct Nearest {
    i32 triangle = -1;    ///< none where no triangle is known
    double distance = 0;  ///< simulation units, negative in the solid
    Vec3d at{};           ///< the nearest point of the surface
  };
  /// The nearest triangle to a point (simulation units); of those that share the nearest point that
  /// which sees it most from the front or back decides the side.
  Nearest Find(const Vec3d& p) const;
  /// Lists the triangles round each vertex: from now on `Find` goes on from the triangles that the
  /// nodes know to their neighbours, as long as these come nearer. Of triangles smaller than a cell
  /// the nodes know few, and those may lie off to the side.
  void LinkTriangles();
  /// The same at a node of the grid, by what is known of it.
  Nearest AtNode(const VecInt3D& node) const;
  /// Unit normal of a triangle, out of the solid; zero for one without area.
  Vec3d NormalOf(i32 triangle) const;

  /// The triangles' normals point into the solid.
  bool LooksInwards() const { return mOut < 0; }
  const TriMeshSTL& Mesh() const { return mMesh; }
  const EGrid<double>& Distances() const { return mDistance; }

 private:
  const TriMeshSTL& mMesh;
  const EGrid<double>& mDistance;
  const Grid<i32>& mClosest;
  struct Search;
  Vec3d NearestOf(i32 triangle, const Vec3d& p) const;

  std::vector<i32> mRound, mRoundStart;  ///< triangles of vertex i: [start[i], start[i + 1])
  double mOut;  ///< 1, or -1 where the triangles' normals point into the solid
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
