// The shape with which a body meets others.
#pragma once
#include <memory>
#include <vector>

#include "fluids/mesh/obstacle_settings.h"
#include "host/vector.h"
#include "rigid/convex_hull.h"

class btCollisionShape;
class btStridingMeshInterface;

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Vertices and triangles of a body in a frame of its own, in simulation units.
struct BodyGeometry {
  std::vector<Vec3d> vertices;
  std::vector<VecInt3D> triangles;
  bool isClosed = true;  ///< every edge has two triangles; vertices at one place count as one
};

/// A shape of the library of rigid bodies with what it reads, for vertices in that library's frame.
///
/// A solid gets the simplest shape that fits: a box whose corners are all of its vertices, a ball
/// whose vertices all lie on it, the convex hull of a convex body, else its triangles. What
/// encloses nothing and doesn't move has its triangles.
class BodyShape {
 public:
  BodyShape();
  ~BodyShape();
  BodyShape(const BodyShape&) = delete;
  BodyShape& operator=(const BodyShape&) = delete;

  /// False where the geometry has no triangles. `margin` as for `SetMargin`.
  bool Make(const BodyGeometry& geometry, BodyForm form, bool isDynamic, double margin);
  /// How far from what the library measures with bodies touch, simulation units; below 0 its own.
  /// Polygons touch as far off; boxes and hulls are measured as much smaller, by no more than half
  /// of what they have, and keep their size as balls do.
  void SetMargin(double margin);
  btCollisionShape* Get() const { return mShape.get(); }
  BodyForm Form() const { return mForm; }
  /// From the origin to the farthest vertex.
  double Radius() const { return mRadius; }
  /// Of a ball about the origin that lies in it, or nearly fills it; 0 for polygons.
  double CoreRadius() const;

 private:
  bool MakeBox(const BodyGeometry& geometry, bool isForced);
  bool MakeBall(const BodyGeometry& geometry, bool isForced);
  bool MakeHull(const BodyGeometry& geometry, bool isForced);
  bool MakeTriangles(const BodyGeometry& geometry, bool isDynamic);

  std::vector<int> mIndices;      ///< turned round, as the frame is mirrored
  std::vector<double> mVertices;  ///< z mirrored
  std::unique_ptr<btStridingMeshInterface> mMesh;
  std::unique_ptr<btCollisionShape> mInner;  ///< of a compound
  std::unique_ptr<btCollisionShape> mShape;
  BodyForm mForm = BodyForm::Automatic;
  ConvexHull mHull;  ///< of that form, in full size
  double mRadius = 0;
  double mOwnMargin = 0;  ///< that of the library
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
