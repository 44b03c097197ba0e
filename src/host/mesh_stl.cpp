// STL, ascii and binary: a soup of triangles, welded where their corners meet.
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <unordered_map>
#include <utility>

#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::host {

namespace {
constexpr size_t kHeader = 84, kTriangle = 50;

using Soup = std::vector<std::array<Vec3d, 3>>;

/// Gives positions that agree within a tolerance, by component, one index, in order of first
/// appearance. Cells of twice the tolerance: what is near stands in the at most eight cells that
/// the position's surroundings touch.
class NearWelder {
 public:
  NearWelder(std::vector<Vec3d>& points, double tolerance)
      : mPoints(points), mTolerance(tolerance) {}

  i32 Index(const Vec3d& p) {
    const Cell low = CellOf(p, -mTolerance), high = CellOf(p, mTolerance);
    i32 best = -1;
    for (i64 z = low.z; z <= high.z; ++z)
      for (i64 y = low.y; y <= high.y; ++y)
        for (i64 x = low.x; x <= high.x; ++x) best = Lower(best, FindIn({x, y, z}, p));
    if (best >= 0) return best;
    const i32 made = static_cast<i32>(mPoints.size());
    const auto [head, isNew] = mHeads.try_emplace(CellOf(p, 0), made);
    mNext.push_back(isNew ? -1 : std::exchange(head->second, made));
    mPoints.push_back(p);
    return made;
  }

 private:
  using Cell = Vec3D<i64>;
  struct Hash {
    size_t operator()(const Cell& c) const {
      u64 hash = 0;
      for (int axis = 0; axis < 3; ++axis)
        hash = (hash ^ static_cast<u64>(c[axis])) * 0x9E3779B97F4A7C15u, hash ^= hash >> 29;
      return hash;
    }
  };

  Cell CellOf(const Vec3d& p, double shift) const {
    Cell cell;
    for (int axis = 0; axis < 3; ++axis)
      cell[axis] = static_cast<i64>(std::floor((p[axis] + shift) / (2 * mTolerance)));
    return cell;
  }
  i32 FindIn(const Cell& cell, const Vec3d& p) const {
    const auto head = mHeads.find(cell);
    i32 found = -1;
    for (i32 i = head == mHeads.end() ? -1 : head->second; i >= 0; i = mNext[i]) {
      const Vec3d d = mPoints[i] - p;
      const double distance = std::max({std::abs(d.x), std::abs(d.y), std::abs(d.z)});
      if (distance <= mTolerance) found = Lower(found, i);
    }
    return found;
  }
  static i32 Lower(i32 a, i32 b) { return a < 0 ? b : b < 0 ? a : std::min(a, b); }

  std::vector<Vec3d>& mPoints;
  double mTolerance;
  std::unordered_map<Cell, i32, Hash> mHeads;  ///< last point of a cell
  std::vector<i32> mNext;                      ///< the one before it in the same cell
};

/// Corners that differ by no more than a few last places of single precision, at the size of the
/// largest coordinate, are the same point: exporters compute one point more than once.
Geometry Weld(const Soup& soup) {
  double largest = 0;
  for (const auto& triangle : soup)
    for (const Vec3d& p : triangle)
      for (int axis = 0; axis < 3; ++axis) {
        if (!std::isfinite(p[axis])) throw MeshFileError("has a coordinate that isn't finite");
        largest = std::max(largest, std::abs(p[axis]));
      }
  Geometry g;
  NearWelder welder(g.points, std::max(largest, 1e-300) * 0x1p-22);
  for (const auto& [a, b, c] : soup) {
    const i32 i = welder.Index(a), j = welder.Index(b), k = welder.Index(c);
    // A triangle with two corners at one place has no area; without it the rest stays closed.
    if (i != j && j != k && k != i) g.polygons.push_back({i, j, k, k});
  }
  return g;
}

u32 Word32(std::string_view bytes, size_t at) {
  u32 word = 0;
  for (int i = 3; i >= 0; --i) word = word << 8 | static_cast<u8>(bytes[at + i]);
  return word;
}

Vec3d Vector(std::string_view bytes, size_t at) {
  Vec3d v;
  for (int i = 0; i < 3; ++i) v[i] = std::bit_cast<f32>(Word32(bytes, at + 4 * i));
  return v;
}

Geometry ReadBinary(std::string_view bytes, size_t count) {
  Soup soup;
  for (size_t i = 0; i < count; ++i) {
    const size_t at = kHeader + kTriangle * i + 12;  // behind the normal
    soup.push_back({Vector(bytes, at), Vector(bytes, at + 12), Vector(bytes, at + 24)});
  }
  return Weld(soup);
}

Geometry ReadAscii(std::string_view text) {
  Soup soup;
  std::array<Vec3d, 3> corners;
  int corner = 0;
  i64 number = 0;
  while (auto line = NextLine(text)) {
    ++number;
    const auto fail = [&](const std::string& what) {
      throw MeshFileError(fmt::format("line {}: {}", number, what));
    };
    const std::string_view key = NextWord(*line);
    if (key == "vertex") {
      if (corner == 3) fail("a facet has three corners");
      for (int i = 0; i < 3; ++i) {
        const std::string_view word = NextWord(*line);
        const auto value = ParseReal(word);
        if (!value) fail(fmt::format("\"{}\" isn't a number", word));
        corners[corner][i] = *value;
      }
      ++corner;
    } else if (key == "endloop" || key == "endfacet") {
      if (corner == 3) soup.push_back(corners);
      if (corner == 1 || corner == 2) fail("a facet has three corners");
      corner = 0;
    }
  }
  if (corner != 0) throw MeshFileError("is truncated: its last facet doesn't end");
  return Weld(soup);
}
}  // namespace

Geometry ReadStl(std::string_view bytes) {
  // Binary files may begin with "solid" too: the size that the count asks for tells them apart, and
  // in damaged ones a zero byte.
  const u64 count = bytes.size() >= kHeader ? Word32(bytes, 80) : 0;
  if (count > 0 && bytes.size() == kHeader + kTriangle * count) return ReadBinary(bytes, count);
  std::string_view rest = bytes;
  if (NextWord(rest) == "solid" && bytes.find('\0') == bytes.npos) return ReadAscii(bytes);
  if (bytes.size() < kHeader || bytes.size() < kHeader + kTriangle * count)
    throw MeshFileError("is truncated, or isn't an STL file");
  return ReadBinary(bytes, count);
}

}  // namespace MELDO_GLOBAL::host
