// Boxes that the objects of a scene negotiate.
#pragma once
#include <limits>
#include <map>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class iBase;

/// A box that grows (simulation units); at the start it holds nothing.
struct Bounds {
  static constexpr double kHuge = std::numeric_limits<double>::max();
  Vec3d min{kHuge, kHuge, kHuge}, max{-kHuge, -kHuge, -kHuge};

  bool IsValid() const {
    for (int a = 0; a < 3; ++a)
      if (!(min[a] != kHuge && max[a] != -kHuge && min[a] <= max[a])) return false;
    return true;
  }
  void Add(const Bounds& other) {
    min = Min(min, other.min);
    max = Max(max, other.max);
  }
};

/// What the objects of a scene are about to cover in a step.
struct NegotiatedBounds {
  Bounds fields;                       ///< what all solvers took
  std::map<const iBase*, Bounds> own;  ///< of those that choose a box, also where they rest
  /// The box of an object.
  const Bounds& Of(const iBase& object) const {
    const auto found = own.find(&object);
    return found == own.end() ? fields : found->second;
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
