// The surface within one cell.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Polygons of a cell from the values at its corners, as in Lorensen and Cline 1987 with the signs
/// of faces by the asymptotic decider (Nielson and Hamann 1991): where the corners of a face
/// alternate, the value at the face's saddle point decides whether its positive corners are joined.
/// Neighbours decide alike, so that surfaces have no holes. Within a cell each loop of face
/// crossings is one disc: there are no tunnels.
///
/// Corner c lies at the bits (x, y, z) = (c & 1, c >> 1 & 1, c >> 2 & 1). Edges 0 to 3 run along x,
/// 4 to 7 along y, 8 to 11 along z; the edge from corner c along an axis has the number 4 axis plus
/// the two other bits of c, the lower axis first.
class MarchingCube {
 public:
  /// In place of an edge: the mean of the crossings of a fan.
  static constexpr u8 kMiddle = 12;

  /// The triangles of one case.
  struct Case {
    std::vector<std::array<u8, 3>>
        triangles;        ///< edges, counter-clockwise seen from positive values
    std::vector<u8> fan;  ///< edges of the loop, if any, that has triangles round its middle
  };

  /// Of eight values less the level of the surface, of which those that are 0 count as positive.
  static const Case& CaseOf(const double* values);

  /// The edge that leaves a corner along an axis; its other corner has that bit set too.
  static constexpr i32 EdgeOf(i32 corner, i32 axis) {
    const i32 low = axis == 0 ? corner >> 1 & 1 : corner & 1;
    const i32 high = axis == 2 ? corner >> 1 & 1 : corner >> 2 & 1;
    return 4 * axis + low + 2 * high;
  }
  /// The lower corner of an edge.
  static constexpr i32 CornerOf(i32 edge) {
    const i32 axis = edge >> 2, low = edge & 1, high = edge >> 1 & 1;
    return axis == 0 ? low << 1 | high << 2 : axis == 1 ? low | high << 2 : low | high << 1;
  }
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
