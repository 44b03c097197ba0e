#include "fluids/particles/ellipsoid.h"

#include <algorithm>
#include <cmath>

#include "grids/eigen.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kLeastVariance = 0.25, kMostVariance = 8;  ///< squared cells

/// The covariance of points about their mean; the mean by a first pass.
Matrix3d CovarianceAbout(const Vec3d& p, const PointLookup& points, double radius) {
  const double perLimit = 1 / (radius * radius);
  Vec3d mean{};
  double weights = 0;
  points.ForEachWithin(p, radius, [&](const PointLookup::Entry& entry, double d2) {
    const double w = 1 - d2 * perLimit;
    mean += (entry.position - p) * w;
    weights += w;
  });
  if (!(weights > 0)) return {};
  mean = p + mean / weights;
  Matrix3d sums{};
  weights = 0;
  points.ForEachWithin(p, radius, [&](const PointLookup::Entry& entry, double) {
    const Vec3d d = entry.position - mean;
    const double w = std::max(1 - Dot(d, d) * perLimit, 0.0);
    weights += w;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) sums[3 * i + j] += w * d[i] * d[j];
  });
  for (double& sum : sums) sum = weights > 0 ? sum / weights : 0;
  return sums;
}

}  // namespace

Ellipsoid FitEllipsoid(const Vec3d& p, const PointLookup& points, double radius, double cell) {
  Matrix3d covariance = CovarianceAbout(p, points, radius);
  // In squared cells no variance is lost among the rounding errors that the decomposition drops.
  for (double& sum : covariance) sum /= cell * cell;
  Vec3d values;
  Matrix3d vectors;
  SlSymetricEigenDecomp(covariance, values, vectors);
  int order[3] = {0, 1, 2};
  std::sort(order, order + 3, [&](int a, int b) { return values[a] > values[b]; });
  Ellipsoid result;
  if (!(values[order[0]] > 0)) return result;
  result.anisotropy = std::max(values[order[2]], 0.0) / values[order[0]];
  double product = 1;
  for (int k = 0; k < 3; ++k) {
    result.scales[k] = 1 / std::clamp(values[order[k]], kLeastVariance, kMostVariance);
    product *= result.scales[k];
  }
  result.scales = result.scales / std::cbrt(product);
  Vec3d* columns[3] = {&result.frame.v1, &result.frame.v2, &result.frame.v3};
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i) {
      double sum = 0;
      for (int k = 0; k < 3; ++k)
        sum += vectors[3 * i + order[k]] * result.scales[k] * vectors[3 * j + order[k]];
      (*columns[j])[i] = sum;
    }
  return result;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
