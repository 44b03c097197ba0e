// Placement of an object: an offset and three axes.
#pragma once
#include "host/vector.h"

namespace MELDO_GLOBAL {

/// p -> offset + v1 p.x + v2 p.y + v3 p.z. The identity when default constructed.
struct Matrix {
  Vec3d offset{};
  Vec3d v1{1, 0, 0};
  Vec3d v2{0, 1, 0};
  Vec3d v3{0, 0, 1};

  /// The image of a point.
  Vec3d operator*(const Vec3d& p) const { return offset + Rotate(p); }
  /// The image of a direction: axes only, no offset.
  Vec3d Rotate(const Vec3d& d) const { return v1 * d.x + v2 * d.y + v3 * d.z; }
  Matrix operator*(const Matrix& m) const {
    return {*this * m.offset, Rotate(m.v1), Rotate(m.v2), Rotate(m.v3)};
  }
  friend bool operator==(const Matrix&, const Matrix&) = default;
};

/// The inverse of `m`; the identity where the axes are linearly dependent.
Matrix Inverse(const Matrix& m);

/// The rotation part of `m`: its axes made orthonormal one after the other (Gram-Schmidt), so that
/// scale and shear go and handedness stays; no offset.
Matrix RotationOf(const Matrix& m);

/// Rotation about x, then y, then z (angles in degrees, right-handed), after a scale and before a
/// translation: the placement of `position`, `rotation` and `scale` of a scene file.
Matrix Placement(const Vec3d& position, const Vec3d& rotationDegrees, const Vec3d& scale);

/// Axis times angle (radians) of the rotation that leads from the axes of `from` to those of `to`.
Vec3d RotationVector(const Matrix& from, const Matrix& to);

}  // namespace MELDO_GLOBAL
