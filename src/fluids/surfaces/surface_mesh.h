// A surface that was made, not given.
#pragma once
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Triangles over shared points, counter-clockwise seen from outside. Simulation units.
struct SurfaceMesh {
  std::vector<Vec3d> points;
  std::vector<VecInt3D> triangles;
  std::vector<Vec3d> normals;     ///< of the points, or empty
  std::vector<Vec3d> velocities;  ///< of the points, or empty
  std::vector<Vec3d> colours;     ///< of the points, linear, or empty

  bool IsEmpty() const { return points.empty() || triangles.empty(); }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
