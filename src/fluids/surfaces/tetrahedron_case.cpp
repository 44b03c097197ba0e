#include "fluids/surfaces/tetrahedron_case.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Seen from outside, counter-clockwise.
constexpr std::array<std::array<u8, 3>, 4> kSides = {{{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}}};

i32 EdgeOf(i32 a, i32 b) {
  i32 edge = 0;
  while (!((TetrahedronCase::kEdges[edge][0] == a && TetrahedronCase::kEdges[edge][1] == b) ||
           (TetrahedronCase::kEdges[edge][0] == b && TetrahedronCase::kEdges[edge][1] == a)))
    ++edge;
  return edge;
}

/// One rule for all: across each face the surface leads from where the sign falls, on the way round
/// the face, to where it rises.
TetrahedronCase CaseOfSigns(u32 signs) {
  std::array<i32, 6> next;
  next.fill(-1);
  for (const auto& face : kSides) {
    i32 falls = -1, rises = -1;
    for (i32 i = 0; i < 3; ++i) {
      const i32 from = face[i], to = face[(i + 1) % 3];
      const bool isFrom = signs >> from & 1, isTo = signs >> to & 1;
      if (isFrom != isTo) (isFrom ? falls : rises) = EdgeOf(from, to);
    }
    if (falls >= 0) next[falls] = rises;
  }
  TetrahedronCase result;
  i32 first = 0;
  while (first < 6 && next[first] < 0) ++first;
  if (first == 6) return result;
  for (i32 a = next[first], b = next[a]; b != first; a = b, b = next[b])
    result.triangles[result.count++] = {static_cast<u8>(first), static_cast<u8>(a),
                                        static_cast<u8>(b)};
  return result;
}

std::array<TetrahedronCase, 16> MakeCases() {
  std::array<TetrahedronCase, 16> cases;
  for (u32 signs = 0; signs < 16; ++signs) cases[signs] = CaseOfSigns(signs);
  return cases;
}

}  // namespace

const TetrahedronCase& TetrahedronCase::Of(u32 signs) {
  static const std::array<TetrahedronCase, 16> cases = MakeCases();
  return cases[signs];
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
