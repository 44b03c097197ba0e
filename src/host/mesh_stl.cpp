// STL, ascii and binary: a soup of triangles, welded where positions are exactly equal.
#include <fmt/format.h>

#include <bit>
#include <cstring>

#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::host {

namespace {
constexpr size_t kHeader = 84, kTriangle = 50;

class StlBuilder {
 public:
  /// A triangle with two corners at one place has no area; without it the rest stays closed.
  void Add(const Vec3d& a, const Vec3d& b, const Vec3d& c) {
    const i32 i = mWelder.Index(a), j = mWelder.Index(b), k = mWelder.Index(c);
    if (i != j && j != k && k != i) mGeometry.polygons.push_back({i, j, k, k});
  }
  Geometry Take() { return std::move(mGeometry); }

 private:
  Geometry mGeometry;
  PointWelder mWelder{mGeometry.points};
};

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
  StlBuilder builder;
  for (size_t i = 0; i < count; ++i) {
    const size_t at = kHeader + kTriangle * i + 12;  // behind the normal
    builder.Add(Vector(bytes, at), Vector(bytes, at + 12), Vector(bytes, at + 24));
  }
  return builder.Take();
}

Geometry ReadAscii(std::string_view text) {
  StlBuilder builder;
  Vec3d corners[3];
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
      if (corner == 3) builder.Add(corners[0], corners[1], corners[2]);
      if (corner == 1 || corner == 2) fail("a facet has three corners");
      corner = 0;
    }
  }
  if (corner != 0) throw MeshFileError("is truncated: its last facet doesn't end");
  return builder.Take();
}
}  // namespace

Geometry ReadStl(std::string_view bytes) {
  // Binary files may begin with "solid" too: the size that the count asks for tells them apart.
  const u64 count = bytes.size() >= kHeader ? Word32(bytes, 80) : 0;
  if (count > 0 && bytes.size() == kHeader + kTriangle * count) return ReadBinary(bytes, count);
  std::string_view rest = bytes;
  if (NextWord(rest) == "solid") return ReadAscii(bytes);
  if (bytes.size() < kHeader || bytes.size() < kHeader + kTriangle * count)
    throw MeshFileError("is truncated, or isn't an STL file");
  return ReadBinary(bytes, count);
}

}  // namespace MELDO_GLOBAL::host
