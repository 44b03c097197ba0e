#include "fluids/surfaces/deep_buckets.h"

#include <algorithm>
#include <cmath>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void DeepBuckets::Find(double reachOfPoints, double density, i32 threads) {
  mIsDeep.clear();
  if (density <= 0) return;
  const VecInt3D n = mPoints.Buckets();
  const double size = mPoints.BucketSize();
  const auto index = [&](i32 x, i32 y, i32 z) { return (std::size_t(z) * n.y + y) * n.x + x; };
  // The counts of 27 buckets are steady enough to tell water from a gap in it.
  std::vector<i32> counts(static_cast<std::size_t>(n.x) * n.y * n.z);
  ForEachBlock(n.z, threads, [&](i32 z) {
    if (z < 1 || z >= n.z - 1) return;
    for (i32 y = 1; y < n.y - 1; ++y)
      for (i32 x = 1; x < n.x - 1; ++x)
        for (i32 k = z - 1; k <= z + 1; ++k)
          for (i32 j = y - 1; j <= y + 1; ++j)
            counts[index(x, y, z)] += static_cast<i32>(mPoints.Row(x - 1, x + 1, j, k).size());
  });
  const double most = counts.empty() ? 0 : *std::max_element(counts.begin(), counts.end());
  double sum = 0, full = 0;
  for (const i32 count : counts)
    if (2 * count >= most) sum += count, ++full;
  // Crowds of particles must not make water of what lies beside them.
  constexpr double kEnough = 0.6;
  const double told = 27 * size * size * size * density;
  const double wanted = kEnough * std::max(told, full > 0 ? sum / full : 0.0);
  // As far as particles reach, and a bucket for the middle of the count.
  const i32 reach = std::max(1, static_cast<i32>(std::ceil(reachOfPoints / size)) - 1);
  mIsDeep.assign(counts.size(), 0);
  ForEachBlock(n.z, threads, [&](i32 z) {
    for (i32 y = reach; z >= reach && z < n.z - reach && y < n.y - reach; ++y)
      for (i32 x = reach; x < n.x - reach; ++x) {
        bool isDeep = true;
        for (i32 k = z - reach; k <= z + reach && isDeep; ++k)
          for (i32 j = y - reach; j <= y + reach && isDeep; ++j)
            for (i32 i = x - reach; i <= x + reach && isDeep; ++i)
              isDeep = counts[index(i, j, k)] >= wanted;
        mIsDeep[index(x, y, z)] = isDeep;
      }
  });
}

bool DeepBuckets::Holds(const Vec3d& low, const Vec3d& high) const {
  if (mIsDeep.empty()) return false;
  const VecInt3D n = mPoints.Buckets();
  VecInt3D first, last;
  for (int a = 0; a < 3; ++a) {
    const double from = std::floor((low[a] - mPoints.Low()[a]) / mPoints.BucketSize());
    const double to = std::floor((high[a] - mPoints.Low()[a]) / mPoints.BucketSize());
    if (from < 0 || to >= n[a]) return false;
    first[a] = static_cast<i32>(from);
    last[a] = static_cast<i32>(to);
  }
  for (i32 z = first.z; z <= last.z; ++z)
    for (i32 y = first.y; y <= last.y; ++y)
      for (i32 x = first.x; x <= last.x; ++x)
        if (!mIsDeep[(std::size_t(z) * n.y + y) * n.x + x]) return false;
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
