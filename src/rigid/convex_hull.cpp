#include "rigid/convex_hull.h"

#include <LinearMath/btConvexHullComputer.h>

#include <algorithm>
#include <cmath>

#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

ConvexHull FindConvexHull(std::span<const Vec3d> points) {
  ConvexHull hull;
  if (points.size() < 4) return hull;
  std::vector<double> flat;
  for (const Vec3d& p : points) flat.insert(flat.end(), {p.x, p.y, p.z});
  btConvexHullComputer computer;
  computer.compute(flat.data(), int{3 * sizeof(double)}, static_cast<int>(points.size()), 0, 0);
  for (int i = 0; i < computer.vertices.size(); ++i)
    hull.vertices.push_back(
        {computer.vertices[i].x(), computer.vertices[i].y(), computer.vertices[i].z()});
  for (int i = 0; i < computer.faces.size(); ++i) {
    const btConvexHullComputer::Edge* first = &computer.edges[computer.faces[i]];
    const i32 a = first->getSourceVertex();
    i32 b = first->getTargetVertex();
    for (const auto* edge = first->getNextEdgeOfFace(); edge != first;
         edge = edge->getNextEdgeOfFace()) {
      const i32 c = edge->getTargetVertex();
      if (c != a) hull.triangles.push_back({a, b, c});
      b = c;
    }
  }
  return hull;
}

namespace {

constexpr double kSameCorner = 1e-6;  // of the size

/// Twice the area of a triangle, with its direction.
Vec3d NormalOf(const ConvexHull& hull, const VecInt3D& t) {
  const Vec3d& a = hull.vertices[t.x];
  return Cross(hull.vertices[t.y] - a, hull.vertices[t.z] - a);
}

std::vector<Vec3d> Distinct(std::span<const Vec3d> points, std::size_t most) {
  Vec3d low = points.front(), high = low;
  for (const Vec3d& p : points) low = Min(low, p), high = Max(high, p);
  const double near = kSameCorner * Length(high - low);
  std::vector<Vec3d> distinct;
  for (const Vec3d& p : points) {
    const bool isNew = std::none_of(distinct.begin(), distinct.end(),
                                    [&](const Vec3d& q) { return Length(p - q) <= near; });
    if (isNew) distinct.push_back(p);
    if (distinct.size() > most) break;
  }
  return distinct;
}

}  // namespace

double InnerRadius(const ConvexHull& hull) {
  Vec3d middle{};
  for (const Vec3d& v : hull.vertices) middle += v / static_cast<double>(hull.vertices.size());
  double least = HUGE_VAL;
  for (const VecInt3D& t : hull.triangles) {
    const Vec3d normal = NormalOf(hull, t);
    if (normal != Vec3d{})
      least = std::min(least, Dot(Normalised(normal), hull.vertices[t.x] - middle));
  }
  return least;
}

ConvexHull Shrunken(const ConvexHull& hull, double by) {
  constexpr double kLeast = 1e-6;  // of the planes' weight, against moves along an edge or a face
  std::vector<Matrix> planes(hull.vertices.size(), Matrix{{}, {}, {}, {}});
  std::vector<Vec3d> ways(hull.vertices.size());
  for (const VecInt3D& t : hull.triangles) {
    const Vec3d normal = NormalOf(hull, t), unit = Normalised(normal);
    for (const i32 corner : {t.x, t.y, t.z}) {
      Matrix& sum = planes[corner];
      sum.v1 += normal * unit.x;
      sum.v2 += normal * unit.y;
      sum.v3 += normal * unit.z;
      ways[corner] -= normal * by;
    }
  }
  ConvexHull shrunken = hull;
  for (std::size_t i = 0; i < planes.size(); ++i) {
    const Matrix& sum = planes[i];
    const double all = sum.v1.x + sum.v2.y + sum.v3.z;
    if (!(all > 0)) continue;
    const Matrix shares{{},
                        sum.v1 / all + Vec3d{kLeast, 0, 0},
                        sum.v2 / all + Vec3d{0, kLeast, 0},
                        sum.v3 / all + Vec3d{0, 0, kLeast}};
    shrunken.vertices[i] += Inverse(shares).Rotate(ways[i] / all);
  }
  return shrunken;
}

std::vector<Vec3d> Thickened(std::span<const Vec3d> points) {
  constexpr double kFlat = 1e-6, kThickness = 0.01;  // of the size
  std::vector<Vec3d> solid(points.begin(), points.end());
  const Vec3d first = points.front();
  const auto farthest = [&](auto&& distance) {
    return *std::max_element(points.begin(), points.end(), [&](const Vec3d& a, const Vec3d& b) {
      return distance(a - first) < distance(b - first);
    });
  };
  const Vec3d way = farthest([](const Vec3d& p) { return Length(p); }) - first;
  const Vec3d side = farthest([&](const Vec3d& p) { return Length(Cross(way, p)); }) - first;
  const double size = Length(way);
  const Vec3d normal = Cross(way, side);
  if (!(Length(normal) > kFlat * size * size)) return solid;
  const Vec3d up = Normalised(normal);
  const Vec3d off = farthest([&](const Vec3d& p) { return std::fabs(Dot(up, p)); }) - first;
  if (std::fabs(Dot(up, off)) > kFlat * size) return solid;
  for (Vec3d& p : solid) p += up * (0.5 * kThickness * size);
  for (const Vec3d& p : points) solid.push_back(p - up * (0.5 * kThickness * size));
  return solid;
}

bool FindBoxAxes(std::span<const Vec3d> points, Vec3d (&axes)[3]) {
  if (points.size() < 8) return false;
  const std::vector<Vec3d> corner = Distinct(points, 8);
  if (corner.size() != 8) return false;
  Vec3d centre{};
  for (const Vec3d& c : corner) centre += c / 8.0;
  const double radius = Length(corner[0] - centre);
  for (const Vec3d& c : corner)
    if (std::fabs(Length(c - centre) - radius) > kSameCorner * radius) return false;
  // Eight points on a sphere are a box where three of the ways from one of them to others stand at
  // right angles and add up to the way to the one across.
  const auto isSquare = [&](const Vec3d& a, const Vec3d& b) {
    return std::fabs(Dot(a, b)) <= kSameCorner * Length(a) * Length(b);
  };
  for (int i = 1; i < 8; ++i)
    for (int j = i + 1; j < 8; ++j)
      for (int k = j + 1; k < 8; ++k) {
        const Vec3d a = corner[i] - corner[0], b = corner[j] - corner[0], c = corner[k] - corner[0];
        if (!isSquare(a, b) || !isSquare(b, c) || !isSquare(c, a)) continue;
        if (Length(a + b + c - (centre - corner[0]) * 2.0) > 4 * kSameCorner * radius) continue;
        axes[0] = Normalised(a);
        axes[1] = Normalised(b);
        axes[2] = Cross(axes[0], axes[1]);
        return true;
      }
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
