// Which particles of a group are whose.
#pragma once
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The particles that a liquid takes of a group which it shares with other liquids: a particle is
/// moved by one of them, the first whose box holds it, and where none does by all that reach it.
struct GroupShare {
  /// From `low` to below `high`, simulation units.
  struct Box {
    Vec3d low, high;
    bool Holds(const Vec3d& p) const {
      return p.x >= low.x && p.y >= low.y && p.z >= low.z && p.x < high.x && p.y < high.y &&
             p.z < high.z;
    }
  };
  Box own;
  std::vector<Box> before, after;  ///< of the others, in their order with its own

  bool IsOurs(const Vec3d& p) const {
    return !HoldsAny(before, p) && (own.Holds(p) || !HoldsAny(after, p));
  }

 private:
  static bool HoldsAny(const std::vector<Box>& boxes, const Vec3d& p) {
    for (const Box& box : boxes)
      if (box.Holds(p)) return true;
    return false;
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
