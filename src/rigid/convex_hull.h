// Convex hulls of points.
#pragma once
#include <span>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Corners of a convex hull and triangles that face outwards; empty of points in a plane.
struct ConvexHull {
  std::vector<Vec3d> vertices;
  std::vector<VecInt3D> triangles;
};

ConvexHull FindConvexHull(std::span<const Vec3d> points);

/// From the mean of its corners to the nearest of its faces.
double InnerRadius(const ConvexHull& hull);

/// A hull whose faces lie further in by `by`, which is less than its inner radius: each corner
/// moves so that the planes that meet there do, by the least squares of their areas.
ConvexHull Shrunken(const ConvexHull& hull, double by);

/// The points as they are; of a plane, those of a plate a hundredth as thick as they lie apart.
/// Those of a line stay one.
std::vector<Vec3d> Thickened(std::span<const Vec3d> points);

/// The axes of a box, as the columns of a turn, where the points are the eight corners of one, some
/// of them repeated; false else.
bool FindBoxAxes(std::span<const Vec3d> points, Vec3d (&axes)[3]);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
