#include "fluids/surfaces/point_values.h"

#include <algorithm>

#include "grids/fixed_blocks.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Calls f(point) for all, on workers.
template <class F>
void ForEachPoint(std::size_t count, i32 threads, F&& f) {
  constexpr i64 kRun = 1024;
  const i64 all = static_cast<i64>(count);
  ForEachBlock(static_cast<i32>((all + kRun - 1) / kRun), threads, [&](i32 run) {
    for (i64 i = run * kRun; i < std::min(all, (run + 1) * kRun); ++i) f(i);
  });
}

/// The means of valueOf(row), or `fallback`; the value of a row may be null.
template <class T, class ValueOf>
std::vector<T> MeansAt(const std::vector<Vec3d>& points, const PointLookup& particles,
                       double radius, const T& fallback, i32 threads, ValueOf&& valueOf) {
  std::vector<T> means(points.size(), fallback);
  const double perLimit = 1 / (radius * radius);
  ForEachPoint(points.size(), threads, [&](i64 i) {
    T sum{};
    double weights = 0;
    particles.ForEachWithin(points[i], radius, [&](const PointLookup::Entry& entry, double d2) {
      const T* value = valueOf(entry.index);
      if (!value) return;
      const double q = 1 - d2 * perLimit, w = q * q * q;
      sum += *value * w;
      weights += w;
    });
    if (weights > 0) means[i] = sum / weights;
  });
  return means;
}

}  // namespace

std::vector<Vec3d> VelocitiesAt(const std::vector<Vec3d>& points, const PointLookup& particles,
                                const ParticleStore& store, double radius, i32 threads) {
  const std::span<const Vec3d> velocities = store.Velocities();
  return MeansAt(points, particles, radius, Vec3d{}, threads,
                 [&](i32 row) { return &velocities[row]; });
}

std::vector<Vec3d> FieldAt(const std::vector<Vec3d>& points, CachedGrids& field, i32 threads) {
  std::vector<Vec3d> values(points.size());
  const auto grids = field.GetCachedGrids();
  if (!grids[0] || !grids[0]->mData) return values;
  ForEachPoint(points.size(), threads, [&](i64 i) {
    for (int a = 0; a < 3; ++a) {
      const EGrid<double>* grid = grids[a] && grids[a]->mData ? grids[a] : grids[0];
      values[i][a] = SampleLinear(*grid, grid->ToSamples(points[i]));
    }
  });
  return values;
}

Vec3d ScalarColours::Of(double value) const {
  const double share = full != 0 ? value / full : value;
  return gradient && !gradient->knots.empty() ? gradient->Evaluate(share)
                                              : Vec3d{share, share, share};
}

std::vector<Vec3d> ColoursAt(const std::vector<Vec3d>& points, const ParticleStore& store,
                             i32 property, double radius, const ScalarColours& colours,
                             i32 threads) {
  constexpr Vec3d kWhite{1, 1, 1};
  std::vector<Vec3d> result(points.size(), kWhite);
  const PropertyColumn<Vec3d>* vectors = store.Find<Vec3d>(property);
  const PropertyColumn<double>* scalars = vectors ? nullptr : store.Find<double>(property);
  const bool isVelocity = property == property_id::kVelocity;
  if (!vectors && !scalars && !isVelocity) return result;
  PointLookup particles;
  particles.Build(store.Positions().data(), store.Count(), radius);
  if (scalars) {
    const std::vector<double> means =
        MeansAt(points, particles, radius, -1e300, threads,
                [&](i32 row) { return scalars->Has(row) ? &scalars->Values()[row] : nullptr; });
    for (std::size_t i = 0; i < means.size(); ++i)
      if (means[i] > -1e300) result[i] = colours.Of(means[i]);
    return result;
  }
  return MeansAt(points, particles, radius, kWhite, threads, [&](i32 row) -> const Vec3d* {
    if (isVelocity) return &store.Velocities()[row];
    return vectors->Has(row) ? &vectors->Values()[row] : nullptr;
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
