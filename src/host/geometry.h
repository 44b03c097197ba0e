// Polygons with their points and corner data.
#pragma once
#include <array>
#include <stdexcept>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::host {

/// Indices of three or four points; a triangle repeats its third index.
struct Polygon {
  i32 a = 0, b = 0, c = 0, d = 0;
  bool IsQuad() const { return c != d; }
  friend bool operator==(const Polygon&, const Polygon&) = default;
};

/// Points and polygons with optional data of corners and points, in the object's own frame and host
/// units.
/// Polygons turn counter-clockwise seen from outside (right-handed axes).
struct Geometry {
  std::vector<Vec3d> points;
  std::vector<Polygon> polygons;
  std::vector<std::array<Vec3d, 4>> uvs;      ///< per polygon corner; empty without
  std::vector<std::array<Vec3d, 4>> normals;  ///< per polygon corner; empty without
  std::vector<Vec3d> velocities;              ///< per point, a second; empty without
  std::vector<Vec3d> colours;                 ///< per point, linear; empty without
  friend bool operator==(const Geometry&, const Geometry&) = default;
};

/// A mesh file that can't be used; `what` is one sentence with the file's name and, in text
/// formats, the line.
class MeshFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace MELDO_GLOBAL::host
