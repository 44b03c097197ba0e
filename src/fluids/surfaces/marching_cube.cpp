#include "fluids/surfaces/marching_cube.h"

#include <cstdint>
#include <limits>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kFaces = 6, kEdges = 12;

/// Corners of a face in turn, counter-clockwise seen from outside of the cell; face 2 a + s is the
/// lower (s = 0) or upper one across axis a.
constexpr std::array<std::array<u8, 4>, kFaces> MakeFaces() {
  std::array<std::array<u8, 4>, kFaces> faces{};
  for (i32 axis = 0; axis < 3; ++axis)
    for (i32 side = 0; side < 2; ++side)
      for (i32 i = 0; i < 4; ++i) {
        const i32 turn = side == 1 ? i : 3 - i;
        const i32 b = turn == 1 || turn == 2, c = turn >= 2;
        faces[2 * axis + side][i] =
            static_cast<u8>(side << axis | b << (axis + 1) % 3 | c << (axis + 2) % 3);
      }
  return faces;
}
constexpr auto kFaceCorners = MakeFaces();

i32 EdgeBetween(i32 a, i32 b) {
  const i32 bit = a ^ b;
  return MarchingCube::EdgeOf(a & b, bit >> 1);
}

Vec3d MiddleOf(i32 edge) {
  const i32 corner = MarchingCube::CornerOf(edge);
  Vec3d p{double(corner & 1), double(corner >> 1 & 1), double(corner >> 2 & 1)};
  p[edge >> 2] += 0.5;
  return p;
}

/// Whether two edges of the cell lie on one face of it.
bool ShareFace(i32 a, i32 b) {
  const Vec3d p = MiddleOf(a), q = MiddleOf(b);
  for (i32 axis = 0; axis < 3; ++axis)
    if (p[axis] == q[axis] && p[axis] != 0.5) return true;
  return false;
}

bool IsPositive(u8 signs, i32 corner) { return signs >> corner & 1; }

/// Whether the signs of a face alternate.
bool IsAmbiguous(u8 signs, i32 face) {
  const auto& c = kFaceCorners[face];
  return IsPositive(signs, c[0]) == IsPositive(signs, c[2]) &&
         IsPositive(signs, c[1]) == IsPositive(signs, c[3]) &&
         IsPositive(signs, c[0]) != IsPositive(signs, c[1]);
}

/// Leads from crossing to crossing across one face, with the positive side on the left of one who
/// walks on the cell; `joins` says whether positive corners that alternate are joined.
void AddWays(u8 signs, i32 face, bool joins, std::array<std::int8_t, kEdges>& next) {
  const auto& c = kFaceCorners[face];
  // Crossings in turn; walking round the face, its sign falls at `leaves` and rises at `enters`.
  std::array<i32, 2> leaves{-1, -1}, enters{-1, -1};
  i32 falls = 0, rises = 0;
  for (i32 i = 0; i < 4; ++i) {
    const i32 from = c[i], to = c[(i + 1) % 4];
    if (IsPositive(signs, from) == IsPositive(signs, to)) continue;
    (IsPositive(signs, from) ? leaves[falls++] : enters[rises++]) = EdgeBetween(from, to);
  }
  if (falls == 0) return;
  if (falls == 1) {
    next[leaves[0]] = static_cast<std::int8_t>(enters[0]);
    return;
  }
  // Behind a fall comes the rise that ends the negative corner; a joined pair leaves that one cut
  // off, parted ones are each cut off between their rise and their fall.
  const bool fallsFirst = IsPositive(signs, c[0]);
  for (i32 i = 0; i < 2; ++i) {
    const i32 after = fallsFirst ? i : (i + 1) % 2, before = (after + 1) % 2;
    next[leaves[i]] = static_cast<std::int8_t>(enters[joins ? after : before]);
  }
}

// Crossings: longer loops run round the whole cell, and triangles between them would fold.
constexpr std::size_t kLongestLoop = 7;

/// Cuts a loop into triangles: of all ways that lay no diagonal into a face, where a neighbour may
/// have one too, that of the least area (Klincsek 1980).
void CutLoop(const std::vector<u8>& loop, std::vector<std::array<u8, 3>>& triangles) {
  constexpr double kNever = std::numeric_limits<double>::infinity();
  const i32 n = static_cast<i32>(loop.size());
  const auto isAllowed = [&](i32 i, i32 j) {
    return j - i == 1 || (i == 0 && j == n - 1) || !ShareFace(loop[i], loop[j]);
  };
  std::vector<std::vector<double>> cost(n, std::vector<double>(n, 0.0));
  std::vector<std::vector<i32>> apex(n, std::vector<i32>(n, -1));
  for (i32 span = 2; span < n; ++span)
    for (i32 i = 0; i + span < n; ++i) {
      const i32 j = i + span;
      cost[i][j] = kNever;
      if (!isAllowed(i, j)) continue;
      for (i32 k = i + 1; k < j; ++k) {
        const Vec3d a = MiddleOf(loop[i]), b = MiddleOf(loop[k]), c = MiddleOf(loop[j]);
        const double area = Length(Cross(b - a, c - a)) + cost[i][k] + cost[k][j];
        if (area < cost[i][j]) cost[i][j] = area, apex[i][j] = k;
      }
    }
  std::vector<std::pair<i32, i32>> open = {{0, n - 1}};
  while (!open.empty()) {
    const auto [i, j] = open.back();
    open.pop_back();
    if (j - i < 2) continue;
    const i32 k = apex[i][j];
    triangles.push_back({loop[i], loop[k], loop[j]});
    open.push_back({i, k});
    open.push_back({k, j});
  }
}

MarchingCube::Case MakeCase(u8 signs, u32 joined) {
  std::array<std::int8_t, kEdges> next;
  next.fill(-1);
  for (i32 face = 0, index = 0; face < kFaces; ++face) {
    const bool isAmbiguous = IsAmbiguous(signs, face);
    AddWays(signs, face, isAmbiguous && (joined >> index & 1), next);
    index += isAmbiguous;
  }
  MarchingCube::Case result;
  for (i32 start = 0; start < kEdges; ++start) {
    std::vector<u8> loop;
    for (i32 edge = start; next[edge] >= 0;) {
      loop.push_back(static_cast<u8>(edge));
      const i32 to = next[edge];
      next[edge] = -1;
      edge = to;
    }
    if (loop.empty()) continue;
    if (loop.size() <= kLongestLoop) {
      CutLoop(loop, result.triangles);
      continue;
    }
    for (std::size_t i = 0; i < loop.size(); ++i)
      result.triangles.push_back({loop[i], loop[(i + 1) % loop.size()], MarchingCube::kMiddle});
    result.fan = std::move(loop);
  }
  return result;
}

/// All cases: by the signs of the corners, and of those with ambiguous faces one for each way in
/// which these may be decided.
struct Table {
  std::array<i32, 256> first{};
  std::array<std::array<std::int8_t, kFaces + 1>, 256> ambiguous{};  ///< faces, -1 at the end
  std::vector<MarchingCube::Case> cases;

  Table() {
    for (i32 signs = 0; signs < 256; ++signs) {
      first[signs] = static_cast<i32>(cases.size());
      ambiguous[signs].fill(-1);
      i32 count = 0;
      for (i32 face = 0; face < kFaces; ++face)
        if (IsAmbiguous(static_cast<u8>(signs), face))
          ambiguous[signs][count++] = static_cast<std::int8_t>(face);
      for (u32 joined = 0; joined < 1u << count; ++joined)
        cases.push_back(MakeCase(static_cast<u8>(signs), joined));
    }
  }
};

}  // namespace

const MarchingCube::Case& MarchingCube::CaseOf(const double* values) {
  static const Table table;
  u32 signs = 0;
  for (i32 corner = 0; corner < 8; ++corner) signs |= (values[corner] >= 0 ? 1u : 0u) << corner;
  u32 joined = 0;
  for (i32 i = 0; table.ambiguous[signs][i] >= 0; ++i) {
    const auto& c = kFaceCorners[table.ambiguous[signs][i]];
    const bool isFirst = values[c[0]] >= 0;
    const double same = values[c[0]] * values[c[2]], other = values[c[1]] * values[c[3]];
    // At the saddle point of a bilinear face the value has the sign of the larger product's
    // corners.
    joined |= (isFirst ? same > other : other > same ? 1u : 0u) << i;
  }
  return table.cases[table.first[signs] + joined];
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
