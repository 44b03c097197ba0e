// Neighbours of a point among many.
#pragma once
#include <span>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL {

/// A point found near another.
struct PointNeighbour {
  i32 index = 0;
  double distanceSquared = 0;
};

/// All points within a radius, found through a uniform grid of buckets whose size is the radius, or
/// more where the points lie far apart. Exact; the order of what it finds depends on the points
/// alone. Reading is safe on all workers.
class PointLookup {
 public:
  /// Sorts `count` points for queries of `radius` (above 0). Points that aren't finite are left
  /// out.
  void Build(const Vec3d* points, i32 count, double radius);
  void Clear();
  bool IsEmpty() const { return mEntries.empty(); }
  /// The points at most `radius` of `Build` away from `p`; of more than `limit` the nearest, by
  /// distance and then index. `out` is replaced.
  void Find(const Vec3d& p, i32 limit, std::vector<PointNeighbour>& out) const;

  /// A point with its number among those of `Build`.
  struct Entry {
    Vec3d position;
    i32 index;
  };
  /// How the buckets lie: the lower corner of the first, their size, and their number on each axis.
  const Vec3d& Low() const { return mMin; }
  double BucketSize() const { return mSize; }
  const VecInt3D& Buckets() const { return mDims; }
  /// The points of the buckets from x = `first` to `last`.
  std::span<const Entry> Row(i32 first, i32 last, i32 y, i32 z) const {
    const i32 row = (z * mDims.y + y) * mDims.x;
    return {mEntries.data() + mFirst[row + first],
            static_cast<std::size_t>(mFirst[row + last + 1] - mFirst[row + first])};
  }
  /// Calls f(points) with those of each row of buckets that meets a box.
  template <class F>
  void ForEachRow(const Vec3d& low, const Vec3d& high, F&& f) const {
    if (IsEmpty()) return;
    VecInt3D first, last;
    for (int a = 0; a < 3; ++a) {
      // Points on the upper side lie in the last bucket.
      if (!(high[a] >= mMin[a] && low[a] <= mMin[a] + mDims[a] * mSize)) return;
      first[a] = Bucket(low[a], a);
      last[a] = Bucket(high[a], a);
    }
    for (i32 z = first.z; z <= last.z; ++z)
      for (i32 y = first.y; y <= last.y; ++y)
        if (const auto points = Row(first.x, last.x, y, z); !points.empty()) f(points);
  }
  /// Calls f(point, distanceSquared) for every point closer than any `radius` to `p`.
  template <class F>
  void ForEachWithin(const Vec3d& p, double radius, F&& f) const {
    const Vec3d wide{radius, radius, radius};
    ForEachRow(p - wide, p + wide, [&](std::span<const Entry> points) {
      for (const Entry& point : points) {
        const Vec3d d = point.position - p;
        const double squared = Dot(d, d);
        if (squared < radius * radius) f(point, squared);
      }
    });
  }

 private:
  i32 Bucket(double c, int axis) const;

  double mRadius = 0;
  double mSize = 1;  ///< of a bucket
  Vec3d mMin{};
  VecInt3D mDims{};
  std::vector<i32> mFirst;  ///< of each bucket in `mEntries`, and the end
  std::vector<Entry> mEntries;
};

}  // namespace MELDO_GLOBAL
