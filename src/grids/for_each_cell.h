// Cell loops.
#pragma once
#include "host/vector.h"

namespace MELDO_GLOBAL {

/// A box of cells, upper corner exclusive.
struct CellBox {
  VecInt3D min{}, max{};
  bool IsEmpty() const { return min.x >= max.x || min.y >= max.y || min.z >= max.z; }
};

/// The part of `box` inside [low, high).
inline CellBox Clip(const CellBox& box, const VecInt3D& low, const VecInt3D& high) {
  return {Max(box.min, low), Min(box.max, high)};
}

/// Whether two boxes have a point in common, borders included.
inline bool BoxesMeet(const Vec3d& min, const Vec3d& max, const Vec3d& low, const Vec3d& high) {
  for (int a = 0; a < 3; ++a)
    if (min[a] > high[a] || max[a] < low[a]) return false;
  return true;
}

/// Calls f(x, y, z) for every cell of the box; z outermost, x innermost.
template <class F>
inline void ForEachCell(const CellBox& box, F&& f) {
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y)
      for (i32 x = box.min.x; x < box.max.x; ++x) f(x, y, z);
}

}  // namespace MELDO_GLOBAL
