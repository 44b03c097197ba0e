// Points that move by keys.
#pragma once
#include <vector>

#include "host/node.h"

namespace MELDO_GLOBAL::host {

/// Whole lists of points at frames, sorted by frame, in host units.
struct PointTrack {
  struct Key {
    double frame;
    std::vector<Vec3d> points;  ///< as many in all keys
  };
  std::vector<Key> keys;
  Interpolation interpolation = Interpolation::Linear;

  /// The points at `frame`; the first or last key's outside of the keys.
  std::vector<Vec3d> Evaluate(double frame) const;
};

}  // namespace MELDO_GLOBAL::host
