// The scene's meshes as rays see them.
#pragma once
#include <memory>
#include <vector>

#include "host/polygon_object.h"

namespace MELDO_GLOBAL::app {

/// A point of a mesh that a ray met.
struct MeshHit {
  double distance = 0;
  Vec3d facing;               ///< normal of the triangle, towards the ray's origin
  Vec3d normal;               ///< smooth normal, on the same side
  i32 material = 0;           ///< as given to `Add`
  bool isFromInside = false;  ///< the ray meets the back of a polygon
};

/// Normals at the corners of polygons: the polygon's own ones, or the means over neighbours that
/// meet within `degrees`.
std::vector<std::array<Vec3d, 4>> CornerNormals(const host::Geometry& geometry,
                                                double degrees = 40);

/// Triangles in the world. Once committed it is read by any number of threads.
class MeshScene {
 public:
  MeshScene();
  ~MeshScene();
  MeshScene(const MeshScene&) = delete;
  MeshScene& operator=(const MeshScene&) = delete;

  /// Adds a mesh at a placement, as its velocities have it so many `seconds` later; all its hits
  /// tell `material`.
  void Add(const host::Geometry& geometry, const Matrix& placement, i32 material,
           double seconds = 0);
  /// Ends the adding.
  void Commit();

  /// The nearest hit between two distances.
  bool Trace(const Vec3d& origin, const Vec3d& direction, double near, double far,
             MeshHit& hit) const;
  /// All hits between two distances, nearest first; where edges of a mesh are met, each side once.
  std::vector<MeshHit> CollectHits(const Vec3d& origin, const Vec3d& direction, double near,
                                   double far) const;
  bool IsEmpty() const { return Count() == 0; }
  i32 Count() const;
  /// Whether there is a hit between two distances.
  bool IsBlocked(const Vec3d& origin, const Vec3d& direction, double near, double far) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> mImpl;
};

}  // namespace MELDO_GLOBAL::app
