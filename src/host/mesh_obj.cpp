// Wavefront OBJ: points, uvs, normals and faces; everything else is passed over.
#include <fmt/format.h>

#include <algorithm>

#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::host {

namespace {
class ObjReader {
 public:
  Geometry Read(std::string_view text) {
    while (const auto line = NextLine(text)) {
      ++mLine;
      ReadLine(*line);
    }
    return mBuilder.Build();
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw MeshFileError(fmt::format("line {}: {}", mLine, what));
  }

  void ReadLine(std::string_view line) {
    const std::string_view key = NextWord(line);
    if (key == "v") {
      mBuilder.points.push_back(Numbers(line, 3));
    } else if (key == "vt") {
      mBuilder.uvs.push_back(Numbers(line, 1));
    } else if (key == "vn") {
      mBuilder.normals.push_back(Numbers(line, 3));
    } else if (key == "f") {
      ReadFace(line);
    }
  }

  Vec3d Numbers(std::string_view line, int needed) const {
    Vec3d v{};
    for (int i = 0; i < 3; ++i) {
      const std::string_view word = NextWord(line);
      if (word.empty() || word[0] == '#') {
        if (i < needed) Fail(fmt::format("{} numbers were expected", needed));
        break;
      }
      const auto number = ParseReal(word);
      if (!number) Fail(fmt::format("\"{}\" isn't a number", word));
      v[i] = *number;
    }
    return v;
  }

  void ReadFace(std::string_view line) {
    mCorners.clear();
    for (std::string_view word = NextWord(line); !word.empty() && word[0] != '#';
         word = NextWord(line))
      mCorners.push_back(Corner(word));
    if (mCorners.size() < 3) Fail("a face needs three corners");
    mBuilder.AddFace(mCorners);
  }

  // "point", "point/uv", "point//normal" or "point/uv/normal".
  FaceCorner Corner(std::string_view word) const {
    FaceCorner corner;
    const std::string_view whole = word;
    for (int part = 0; part < 3; ++part) {
      const size_t slash = std::min(word.find('/'), word.size());
      const std::string_view index = word.substr(0, slash);
      const bool optional = part > 0;
      if (!index.empty() || !optional) {
        i64& target = part == 0 ? corner.point : part == 1 ? corner.uv : corner.normal;
        const auto& list = part == 0   ? mBuilder.points
                           : part == 1 ? mBuilder.uvs
                                       : mBuilder.normals;
        target = Resolve(index, whole, list.size());
      }
      if (slash == word.size()) break;
      word.remove_prefix(slash + 1);
    }
    return corner;
  }

  // Counted from 1, or back from the last one read.
  i64 Resolve(std::string_view word, std::string_view whole, size_t count) const {
    const auto index = ParseInteger(word);
    if (!index) Fail(fmt::format("\"{}\" isn't a corner of a face", whole));
    const i64 resolved = *index > 0 ? *index - 1 : static_cast<i64>(count) + *index;
    if (*index == 0 || resolved < 0) Fail(fmt::format("index {} is out of range", *index));
    return resolved;
  }

  GeometryBuilder mBuilder;
  std::vector<FaceCorner> mCorners;
  i64 mLine = 0;
};

/// Lines that end in a backslash go on in the next one; the count of lines stays.
std::string JoinLines(std::string_view bytes) {
  std::string joined(bytes);
  size_t pending = 0;
  size_t out = 0;
  for (size_t i = 0; i < joined.size(); ++i) {
    if (joined[i] == '\\' && i + 1 < joined.size() &&
        (joined[i + 1] == '\n' || joined.compare(i + 1, 2, "\r\n") == 0)) {
      i += joined[i + 1] == '\r' ? 2 : 1;
      joined[out++] = ' ';
      ++pending;
      continue;
    }
    const char c = joined[i];
    joined[out++] = c;
    if (c == '\n')
      for (; pending > 0; --pending) joined[out++] = '\n';
  }
  joined.resize(out);
  return joined;
}
}  // namespace

Geometry ReadObj(std::string_view bytes) {
  if (bytes.find('\\') == std::string_view::npos) return ObjReader().Read(bytes);
  return ObjReader().Read(JoinLines(bytes));
}

}  // namespace MELDO_GLOBAL::host
