// Neighbours of a point among many.
#pragma once
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

 private:
  struct Entry {
    Vec3d position;
    i32 index;
  };
  i32 Bucket(double c, int axis) const;

  double mRadius = 0;
  double mSize = 1;  ///< of a bucket
  Vec3d mMin{};
  VecInt3D mDims{};
  std::vector<i32> mFirst;  ///< of each bucket in `mEntries`, and the end
  std::vector<Entry> mEntries;
};

}  // namespace MELDO_GLOBAL
