// Between the axes of the simulation and those of the library of rigid bodies.
#pragma once
#include <LinearMath/btTransform.h>

#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

// The library's z points the other way. Positions, velocities and forces change the sign of z;
// turns, angular velocities and torques are made of products of two such vectors, so that of a
// mirrored world x and y change theirs.

inline btVector3 ToBullet(const Vec3d& v) { return {v.x, v.y, -v.z}; }
inline Vec3d FromBullet(const btVector3& v) { return {v.x(), v.y(), -v.z()}; }
inline btVector3 TurnToBullet(const Vec3d& w) { return {-w.x, -w.y, w.z}; }
inline Vec3d TurnFromBullet(const btVector3& w) { return {-w.x(), -w.y(), w.z()}; }

/// S m S for the mirroring S: a linear map, columns as axes, without offset.
inline btMatrix3x3 AxesToBullet(const Matrix& m) {
  return {m.v1.x, m.v2.x, -m.v3.x, m.v1.y, m.v2.y, -m.v3.y, -m.v1.z, -m.v2.z, m.v3.z};
}
inline Matrix AxesFromBullet(const btMatrix3x3& m) {
  return {{},
          {m[0][0], m[1][0], -m[2][0]},
          {m[0][1], m[1][1], -m[2][1]},
          {-m[0][2], -m[1][2], m[2][2]}};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
