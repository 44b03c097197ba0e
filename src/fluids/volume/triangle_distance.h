// Distance of points to one triangle, and where a line along x crosses it.
#pragma once
#include <cmath>
#include <limits>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A triangle with what doesn't depend on the point. Squared distances to it follow the barycentric
/// projection and, outside of it, its two nearest edges.
struct TriangleRecord {
  Vec3d x3, e13, e23;  ///< third vertex; edges x1 - x3 and x2 - x3
  double m13, m23, d;  ///< products of the edges
  double inverseDeterminant;
  double inverse13, inverse23, inverse12;  ///< inverse squared lengths of the edges
  Vec3d normal;                            ///< unit; zero when the triangle is too thin to tell

  void Set(const Vec3d& x1, const Vec3d& x2, const Vec3d& third) {
    x3 = third;
    e13 = x1 - x3;
    e23 = x2 - x3;
    m13 = Dot(e13, e13);
    m23 = Dot(e23, e23);
    d = Dot(e13, e23);
    // Of a needle the weights would be noise. Without a number it is its two edges at x3, which
    // cover the third.
    const double determinant = m13 * m23 - d * d;
    inverseDeterminant = determinant > 1e-10 * m13 * m23 ? 1.0 / determinant
                                                         : std::numeric_limits<double>::quiet_NaN();
    const Vec3d e12 = e13 - e23;
    const auto inverse = [](double m) { return m > 0 ? 1.0 / m : 0.0; };
    inverse13 = inverse(m13);
    inverse23 = inverse(m23);
    inverse12 = inverse(Dot(e12, e12));
    const Vec3d n = Cross(e13, e23);
    const double area = Dot(n, n);
    normal = area > 1e-6 * m13 * m23 ? n / std::sqrt(area) : Vec3d{};
  }

  /// The point's distance from the triangle's plane bounds its distance from below; 0 for thin
  /// triangles.
  double PlaneDistance(const Vec3d& p) const { return Dot(normal, p - x3); }

  double SquaredDistance(const Vec3d& p) const {
    const Vec3d x03 = p - x3;
    const double a = Dot(e13, x03), b = Dot(e23, x03);
    const double w23 = inverseDeterminant * (m23 * a - d * b);
    const double w31 = inverseDeterminant * (m13 * b - d * a);
    const double w12 = 1.0 - w23 - w31;
    if (w23 >= 0 && w31 >= 0 && w12 >= 0) {
      const Vec3d r = x03 - e13 * w23 - e23 * w31;
      return Dot(r, r);
    }
    if (w23 > 0) return std::min(ToEdge12(x03), ToEdge(x03, e13, a * inverse13));
    if (w31 > 0) return std::min(ToEdge12(x03), ToEdge(x03, e23, b * inverse23));
    return std::min(ToEdge(x03, e13, a * inverse13), ToEdge(x03, e23, b * inverse23));
  }

 private:
  /// From the edge that runs from the origin along `e`, `t` being the projection on it.
  static double ToEdge(const Vec3d& x, const Vec3d& e, double t) {
    const double s = t > 0 ? (t < 1 ? t : 1.0) : 0.0;
    const Vec3d r = x - e * s;
    return Dot(r, r);
  }
  double ToEdge12(const Vec3d& x03) const {
    const Vec3d e12 = e13 - e23, x02 = x03 - e23;
    return ToEdge(x02, e12, Dot(x02, e12) * inverse12);
  }
};

/// Orientation of the ordered pair (p, q) round the origin, +1 or -1, with twice the area of their
/// triangle. Ties are broken by the coordinates, so that of two triangles with a common edge
/// exactly one holds a point on it; 0 only for equal points.
inline int Orientation(const Vec2D<double>& p, const Vec2D<double>& q, double& area) {
  area = p.y * q.x - p.x * q.y;
  if (area > 0) return 1;
  if (area < 0) return -1;
  if (q.y > p.y) return 1;
  if (q.y < p.y) return -1;
  if (p.x > q.x) return 1;
  if (p.x < q.x) return -1;
  return 0;
}

/// Whether the triangle (p1, p2, p3), relative to the point, holds the point; `weights` are its
/// barycentric coordinates.
inline bool HoldsOrigin(const Vec2D<double>& p1, const Vec2D<double>& p2, const Vec2D<double>& p3,
                        double weights[3]) {
  const int sign = Orientation(p2, p3, weights[0]);
  if (sign == 0) return false;
  if (Orientation(p3, p1, weights[1]) != sign) return false;
  if (Orientation(p1, p2, weights[2]) != sign) return false;
  const double sum = weights[0] + weights[1] + weights[2];
  if (sum != 0)
    for (int i = 0; i < 3; ++i) weights[i] /= sum;
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
