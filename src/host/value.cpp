#include "host/value.h"

#include <algorithm>

namespace MELDO_GLOBAL::host {

double SplineData::Evaluate(double x) const {
  if (knots.empty()) return 0.0;
  const auto above = std::upper_bound(knots.begin(), knots.end(), x,
                                      [](double v, const Vec2D<double>& k) { return v < k.x; });
  if (above == knots.begin()) return knots.front().y;
  if (above == knots.end()) return knots.back().y;
  const Vec2D<double>&a = above[-1], &b = *above;
  return a.y + (b.y - a.y) * ((x - a.x) / (b.x - a.x));
}

i32 SplineData::Insert(double x, double y) {
  const auto at = std::lower_bound(knots.begin(), knots.end(), x,
                                   [](const Vec2D<double>& k, double v) { return k.x < v; });
  const auto index = static_cast<i32>(at - knots.begin());
  if (at != knots.end() && at->x == x) {
    at->y = y;
  } else {
    knots.insert(at, {x, y});
  }
  return index;
}

Vec3d Gradient::Evaluate(double position) const {
  if (knots.empty()) return {};
  const auto above = std::upper_bound(knots.begin(), knots.end(), position,
                                      [](double v, const Knot& k) { return v < k.position; });
  if (above == knots.begin()) return knots.front().colour;
  if (above == knots.end()) return knots.back().colour;
  const Knot &a = above[-1], &b = *above;
  const double t = (position - a.position) / (b.position - a.position);
  return a.colour + (b.colour - a.colour) * t;
}

}  // namespace MELDO_GLOBAL::host
