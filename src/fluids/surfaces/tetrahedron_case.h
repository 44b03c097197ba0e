// The surface within a tetrahedron.
#pragma once
#include <array>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The one or two triangles of a tetrahedron of which some corners are positive. Corners 0 to 3
/// with (1 - 0, 2 - 0, 3 - 0) right-handed; triangles are counter-clockwise seen from the positive
/// side.
struct TetrahedronCase {
  /// The corners of each edge.
  static constexpr std::array<std::array<u8, 2>, 6> kEdges = {
      {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}}};

  i32 count = 0;
  std::array<std::array<u8, 3>, 2> triangles{};  ///< edges

  /// By the signs, bit c set where corner c is positive.
  static const TetrahedronCase& Of(u32 signs);
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
