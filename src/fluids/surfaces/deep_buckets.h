// Where all is full of particles.
#pragma once
#include <vector>

#include "grids/point_lookup.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The buckets of a lookup about which a liquid fills all that a particle reaches: samples there
/// tell nothing.
class DeepBuckets {
 public:
  explicit DeepBuckets(const PointLookup& points) : mPoints(points) {}
  /// `reach` in simulation units; `density` is how many particles of the liquid a cubed one holds.
  void Find(double reach, double density, i32 threads);
  /// Whether all buckets that a box meets are of these.
  bool Holds(const Vec3d& low, const Vec3d& high) const;

 private:
  const PointLookup& mPoints;
  std::vector<u8> mIsDeep;  ///< by bucket; empty where nothing is known
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
