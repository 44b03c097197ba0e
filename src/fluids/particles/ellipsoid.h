// Ellipsoids that follow how particles lie about one of them.
#pragma once
#include "grids/point_lookup.h"
#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The ellipsoid of a particle.
struct Ellipsoid {
  Matrix frame;           ///< takes space to where the ellipsoid is a ball; of determinant 1
  Vec3d scales{1, 1, 1};  ///< its stretch along its axes, that along the longest one first
  double anisotropy = 1;  ///< the shortest axis over the longest, squared: 0 in a sheet or a thread
};

/// Fits an ellipsoid to the points closer than `radius` to `p`, whose own place counts among them:
/// the axes of their weighted covariance (Yu and Turk 2013, section 4). Its variances, in squared
/// cells of the size `cell`, are limited to 0.25 and 8. A ball where the points tell no axis.
Ellipsoid FitEllipsoid(const Vec3d& p, const PointLookup& points, double radius, double cell);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
