#include "grids/point_lookup.h"

#include <limits>

namespace MELDO_GLOBAL {

void PointLookup::Clear() {
  mEntries.clear();
  mFirst.clear();
  mDims = {};
}

i32 PointLookup::Bucket(double c, int axis) const {
  const double bucket = std::floor((c - mMin[axis]) / mSize);
  return static_cast<i32>(std::clamp(bucket, 0.0, double(mDims[axis] - 1)));
}

void PointLookup::Build(const Vec3d* points, i32 count, double radius) {
  Clear();
  constexpr double huge = std::numeric_limits<double>::max();
  Vec3d min{huge, huge, huge}, max{-huge, -huge, -huge};
  const auto usable = [&](const Vec3d& p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
  };
  i32 used = 0;
  for (i32 i = 0; i < count; ++i) {
    if (!usable(points[i])) continue;
    min = Min(min, points[i]);
    max = Max(max, points[i]);
    ++used;
  }
  if (used == 0 || !(radius > 0)) return;

  mRadius = radius;
  mMin = min;
  const double most = 4.0 * used + 64;
  const auto buckets = [&](int a) { return std::floor((max[a] - min[a]) / mSize) + 1; };
  mSize = radius;
  while (buckets(0) * buckets(1) * buckets(2) > most) mSize *= 1.25;
  mDims = {i32(buckets(0)), i32(buckets(1)), i32(buckets(2))};

  const auto bucketOf = [&](const Vec3d& p) {
    return (Bucket(p.z, 2) * mDims.y + Bucket(p.y, 1)) * mDims.x + Bucket(p.x, 0);
  };
  mFirst.assign(mDims.x * mDims.y * mDims.z + 1, 0);
  for (i32 i = 0; i < count; ++i)
    if (usable(points[i])) ++mFirst[bucketOf(points[i]) + 1];
  for (std::size_t b = 1; b < mFirst.size(); ++b) mFirst[b] += mFirst[b - 1];
  mEntries.resize(used);
  std::vector<i32> next(mFirst.begin(), mFirst.end() - 1);
  for (i32 i = 0; i < count; ++i)
    if (usable(points[i])) mEntries[next[bucketOf(points[i])]++] = {points[i], i};
}

void PointLookup::Find(const Vec3d& p, i32 limit, std::vector<PointNeighbour>& out) const {
  out.clear();
  if (IsEmpty()) return;
  VecInt3D lo, hi;
  for (int a = 0; a < 3; ++a) {
    // Beyond the outermost buckets by more than the radius there is nothing.
    if (!(p[a] + mRadius >= mMin[a] && p[a] - mRadius <= mMin[a] + mDims[a] * mSize)) return;
    lo[a] = Bucket(p[a] - mRadius, a);
    hi[a] = Bucket(p[a] + mRadius, a);
  }
  const double radiusSquared = mRadius * mRadius;
  for (i32 z = lo.z; z <= hi.z; ++z)
    for (i32 y = lo.y; y <= hi.y; ++y) {
      const i32 row = (z * mDims.y + y) * mDims.x;
      for (i32 e = mFirst[row + lo.x]; e < mFirst[row + hi.x + 1]; ++e) {
        const Vec3d d = mEntries[e].position - p;
        const double distanceSquared = Dot(d, d);
        if (distanceSquared <= radiusSquared) out.push_back({mEntries[e].index, distanceSquared});
      }
    }
  if (static_cast<i32>(out.size()) <= limit) return;
  std::nth_element(out.begin(), out.begin() + limit, out.end(),
                   [](const PointNeighbour& a, const PointNeighbour& b) {
                     return a.distanceSquared != b.distanceSquared
                                ? a.distanceSquared < b.distanceSquared
                                : a.index < b.index;
                   });
  out.resize(limit);
  std::sort(out.begin(), out.end(),
            [](const PointNeighbour& a, const PointNeighbour& b) { return a.index < b.index; });
}

}  // namespace MELDO_GLOBAL
