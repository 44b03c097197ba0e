#include "fluids/surfaces/point_values.h"

#include <algorithm>
#include <limits>

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

/// Means of the particles of several kinds.
template <class T>
class Means {
 public:
  explicit Means(const std::vector<Vec3d>& points)
      : mPoints(points), mSums(points.size()), mWeights(points.size()) {}

  /// Adds valueOf(row) of the particles in reach; null for one that has none.
  template <class ValueOf>
  void Add(const PointLookup& particles, double radius, i32 threads, ValueOf&& valueOf) {
    const double perLimit = 1 / (radius * radius);
    ForEachPoint(mPoints.size(), threads, [&](i64 i) {
      particles.ForEachWithin(mPoints[i], radius, [&](const PointLookup::Entry& entry, double d2) {
        const T* value = valueOf(entry.index);
        if (!value) return;
        const double q = 1 - d2 * perLimit, w = q * q * q;
        mSums[i] += *value * w;
        mWeights[i] += w;
      });
    });
  }
  /// colourOf(mean) of the points that have one, `fallback` of the others.
  template <class ColourOf>
  std::vector<Vec3d> Take(const Vec3d& fallback, ColourOf&& colourOf) const {
    std::vector<Vec3d> result(mPoints.size(), fallback);
    for (std::size_t i = 0; i < result.size(); ++i)
      if (mWeights[i] > 0) result[i] = colourOf(mSums[i] / mWeights[i]);
    return result;
  }

 private:
  const std::vector<Vec3d>& mPoints;
  std::vector<T> mSums;
  std::vector<double> mWeights;
};

/// The particles of a kind that live.
PointLookup LookupOf(const ParticleStore& store, double radius) {
  std::vector<Vec3d> places(store.Positions().begin(), store.Positions().end());
  for (i32 row = 0; row < store.Count(); ++row)
    if (!(store.Flags()[row] & PF_ALIVE)) places[row].x = std::numeric_limits<double>::quiet_NaN();
  PointLookup lookup;
  lookup.Build(places.data(), store.Count(), radius);
  return lookup;
}

}  // namespace

std::vector<Vec3d> VelocitiesAt(const std::vector<Vec3d>& points, const PointLookup& particles,
                                const ParticleStore& store, double radius, i32 threads) {
  const std::span<const Vec3d> velocities = store.Velocities();
  Means<Vec3d> means(points);
  means.Add(particles, radius, threads, [&](i32 row) { return &velocities[row]; });
  return means.Take({}, [](const Vec3d& mean) { return mean; });
}

bool AreNear(const std::vector<Vec3d>& points, const PointLookup& particles, double radius) {
  const auto near = std::count_if(points.begin(), points.end(), [&](const Vec3d& p) {
    bool hasOne = false;
    particles.ForEachWithin(p, radius, [&](const PointLookup::Entry&, double) { hasOne = true; });
    return hasOne;
  });
  return 2 * static_cast<std::size_t>(near) > points.size();
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

std::optional<std::vector<Vec3d>> ColoursAt(const std::vector<Vec3d>& points,
                                            std::span<const ParticleStore* const> stores,
                                            i32 property, double radius,
                                            const ScalarColours& colours, i32 threads) {
  constexpr Vec3d kWhite{1, 1, 1};
  Means<Vec3d> ofVectors(points);
  Means<double> ofScalars(points);
  bool hasVectors = false, hasScalars = false;
  for (const ParticleStore* store : stores) {
    const PropertyColumn<Vec3d>* vectors = store->Find<Vec3d>(property);
    const PropertyColumn<double>* scalars = vectors ? nullptr : store->Find<double>(property);
    const bool isVelocity = property == property_id::kVelocity;
    if (!vectors && !scalars && !isVelocity) continue;
    (scalars ? hasScalars : hasVectors) = true;
    const PointLookup particles = LookupOf(*store, radius);
    if (scalars)
      ofScalars.Add(particles, radius, threads,
                    [&](i32 row) { return scalars->Has(row) ? &scalars->Values()[row] : nullptr; });
    else
      ofVectors.Add(particles, radius, threads, [&](i32 row) -> const Vec3d* {
        if (isVelocity) return &store->Velocities()[row];
        return vectors->Has(row) ? &vectors->Values()[row] : nullptr;
      });
  }
  if (!hasVectors && !hasScalars) return {};
  if (hasScalars) return ofScalars.Take(kWhite, [&](double mean) { return colours.Of(mean); });
  return ofVectors.Take(kWhite, [](const Vec3d& mean) { return mean; });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
