#include "fluids/particles/points_to_implicit_grid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

PointsToImplicitGrid::PointsToImplicitGrid(const ParticleSet& particles, i32 kind,
                                           const ImplicitShape& shape)
    : mStore(particles.Store(kind)),
      mTree(particles.Tree(kind)),
      mShape(shape),
      mSpacing(mStore.Layout().cellSize),
      mRadius(shape.radiusFactor * mSpacing),
      mReach(shape.searchFactor * mRadius),
      mAxes{mStore.Find<Vec3d>(property_id::kEllipsoidX),
            mStore.Find<Vec3d>(property_id::kEllipsoidY),
            mStore.Find<Vec3d>(property_id::kEllipsoidZ)},
      mMass(mStore.Find<double>(property_id::kMass)),
      mKernelSum(mStore.Find<double>(property_id::kKernelSum)) {}

std::span<const TreeHit> PointsToImplicitGrid::Find(const Vec3d& p, NeighbourBuffer& buffer) const {
  if (!mTree) return {};
  mTree->FindNearest(p, mReach, buffer);
  const std::span<const TreeHit> hits = buffer.Hits();
  return static_cast<i32>(hits.size()) < mShape.leastNeighbours && !hits.empty() ? hits.first(1)
                                                                                 : hits;
}

Vec3d PointsToImplicitGrid::OffsetTo(const Vec3d& p, i32 row) const {
  const Vec3d way = p - mStore.Positions()[row];
  const auto axis = [&](int a, const Vec3d& unit) {
    return mAxes[a] ? mAxes[a]->Get(row, unit) : unit;
  };
  return axis(0, {1, 0, 0}) * way.x + axis(1, {0, 1, 0}) * way.y + axis(2, {0, 0, 1}) * way.z;
}

double PointsToImplicitGrid::KernelAt(double distanceSquared) const {
  if (distanceSquared >= mReach * mReach) return 0;
  return mShape.kernel->EvaluateSquared(distanceSquared, mReach * mReach, mReach * mReach * mReach);
}

std::optional<double> PointsToImplicitGrid::AveragedPosition(const Vec3d& p,
                                                             std::span<const TreeHit> hits) const {
  Vec3d sum{};
  double weights = 0;
  for (const TreeHit& hit : hits) {
    const Vec3d d = OffsetTo(p, hit.index);
    const double d2 = Dot(d, d);
    const double q = std::max(0.0, 1 - d2 / (mReach * mReach));
    const double w = mShape.kernel ? KernelAt(d2) : q * q * q;
    sum += d * w;
    weights += w;
  }
  if (!(weights > 0)) return {};
  return std::min(Length(sum / weights), mRadius) - mRadius;
}

double PointsToImplicitGrid::Blobs(const Vec3d& p, std::span<const TreeHit> hits) const {
  double sum = 0;
  for (const TreeHit& hit : hits) {
    const Vec3d d = OffsetTo(p, hit.index);
    const double d2 = Dot(d, d);
    // Without a kernel the frame of the ellipsoid brings the scale along.
    const double q = std::max(0.0, 1 - d2);
    const double w = mShape.kernel ? KernelAt(d2) : q * q * q;
    const double mass = mMass ? mMass->Get(hit.index, 1) : 1;
    const double kernelSum = mKernelSum ? mKernelSum->Get(hit.index, 1) : 1;
    sum += w * mass / kernelSum;
  }
  return (mRadius - sum) * mSpacing;
}

std::optional<double> PointsToImplicitGrid::ValueAt(const Vec3d& p, NeighbourBuffer& buffer) const {
  const std::span<const TreeHit> hits = Find(p, buffer);
  if (hits.empty()) return {};
  return mShape.mode == ImplicitShape::kAveragedPosition ? AveragedPosition(p, hits)
                                                         : Blobs(p, hits);
}

void PointsToImplicitGrid::Fill(EGrid<double>& grid, i32 first, i32 last,
                                NeighbourBuffer& buffer) const {
  for (i32 z = first; z < last; ++z)
    for (i32 y = 0; y < grid.mNy; ++y)
      for (i32 x = 0; x < grid.mNx; ++x)
        if (const auto value = ValueAt(grid.PositionOf(x, y, z), buffer)) grid(x, y, z) = *value;
}

template <class T, class ValueOf>
T PointsToImplicitGrid::MeanOf(const Vec3d& p, const T& fallback, NeighbourBuffer& buffer,
                               ValueOf&& valueOf) const {
  T sum{};
  double weights = 0;
  for (const TreeHit& hit : Find(p, buffer)) {
    const double q = 1 - hit.distanceSquared / (mReach * mReach);
    const double w = !mShape.weighted ? 1
                     : mShape.kernel  ? KernelAt(hit.distanceSquared)
                                      : q * q * q;
    sum += valueOf(hit.index) * w;
    weights += w;
  }
  return weights > 0 ? sum / weights : fallback;
}

double PointsToImplicitGrid::SampleScalar(const Vec3d& p, const PropertyKey& key, double fallback,
                                          NeighbourBuffer& buffer) const {
  const PropertyColumn<double>* column = mStore.Find<double>(key);
  if (!column) return fallback;
  return MeanOf(p, fallback, buffer, [&](i32 row) { return column->Get(row, fallback); });
}

Vec3d PointsToImplicitGrid::SampleVector(const Vec3d& p, const PropertyKey& key,
                                         const Vec3d& fallback, NeighbourBuffer& buffer) const {
  const auto mean = [&](auto&& valueOf) { return MeanOf(p, fallback, buffer, valueOf); };
  if (key.id == property_id::kPosition)
    return mean([&](i32 row) { return mStore.Positions()[row]; });
  if (key.id == property_id::kVelocity)
    return mean([&](i32 row) { return mStore.Velocities()[row]; });
  const PropertyColumn<Vec3d>* column = mStore.Find<Vec3d>(key);
  if (!column) return fallback;
  return mean([&](i32 row) { return column->Get(row, fallback); });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
