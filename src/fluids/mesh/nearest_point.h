// The point of a triangle that is nearest to another point.
#pragma once
#include <algorithm>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The point of the triangle (a, b, c) nearest to `p`, and its barycentric `weights`; a triangle
/// without area is its edges.
inline Vec3d NearestPoint(const Vec3d& p, const Vec3d& a, const Vec3d& b, const Vec3d& c,
                          double weights[3]) {
  const Vec3d ab = b - a, ac = c - a, n = Cross(ab, ac);
  const double area = Dot(n, n);
  if (area > 1e-20 * Dot(ab, ab) * Dot(ac, ac)) {
    const double w = Dot(Cross(ab, p - a), n) / area, v = Dot(Cross(p - a, ac), n) / area;
    if (v >= 0 && w >= 0 && v + w <= 1) {
      weights[0] = 1 - v - w, weights[1] = v, weights[2] = w;
      return a * weights[0] + b * v + c * w;
    }
  }
  // Outside of it, or a needle: the nearest of its edges.
  const Vec3d* corner[3] = {&a, &b, &c};
  Vec3d nearest = a;
  double least = -1;
  for (int i = 0; i < 3; ++i) {
    const int j = (i + 1) % 3;
    const Vec3d edge = *corner[j] - *corner[i];
    const double length = Dot(edge, edge);
    const double t = length > 0 ? std::clamp(Dot(p - *corner[i], edge) / length, 0.0, 1.0) : 0.0;
    const Vec3d q = *corner[i] + edge * t;
    const double distance = Dot(p - q, p - q);
    if (least >= 0 && distance >= least) continue;
    least = distance;
    nearest = q;
    weights[0] = weights[1] = weights[2] = 0;
    weights[i] = 1 - t;
    weights[j] = t;
  }
  return nearest;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
