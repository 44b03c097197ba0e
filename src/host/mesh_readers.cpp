#include "host/mesh_readers.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>

namespace MELDO_GLOBAL::host {

namespace fs = std::filesystem;

namespace {
bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::string_view WithoutPlus(std::string_view word) {
  if (word.size() > 1 && word[0] == '+' && word[1] != '-') word.remove_prefix(1);
  return word;
}

void CheckIndex(i64 index, size_t count, const char* what) {
  if (index < 0 || index >= static_cast<i64>(count))
    throw MeshFileError(
        fmt::format("names {} {} (counted from 0) in a face, but has {}", what, index, count));
}
}  // namespace

std::string ReadBytes(const fs::path& path) {
  std::error_code failed;
  const fs::file_status status = fs::status(path, failed);
  if (!fs::exists(status)) throw MeshFileError("doesn't exist");
  if (!fs::is_regular_file(status)) throw MeshFileError("isn't a regular file");
  const auto size = fs::file_size(path, failed);
  if (failed) throw MeshFileError("can't be read");
  std::ifstream file(path, std::ios::binary);
  std::string bytes(size, '\0');
  if (!file.read(bytes.data(), static_cast<std::streamsize>(size)))
    throw MeshFileError("can't be read");
  return bytes;
}

std::optional<std::string_view> NextLine(std::string_view& text) {
  if (text.empty()) return {};
  const size_t end = text.find_first_of("\r\n");
  const std::string_view line = text.substr(0, end);
  if (end == std::string_view::npos) {
    text = {};
  } else {
    const bool two = text[end] == '\r' && end + 1 < text.size() && text[end + 1] == '\n';
    text.remove_prefix(end + (two ? 2 : 1));
  }
  return line;
}

std::string_view NextWord(std::string_view& text) {
  size_t begin = 0;
  while (begin < text.size() && IsBlank(text[begin])) ++begin;
  size_t end = begin;
  while (end < text.size() && !IsBlank(text[end])) ++end;
  const std::string_view word = text.substr(begin, end - begin);
  text.remove_prefix(end);
  return word;
}

std::optional<double> ParseReal(std::string_view word) {
  word = WithoutPlus(word);
  double value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (end != word.data() + word.size() || error == std::errc::invalid_argument) return {};
  // Too small to be told from zero is zero; too large isn't finite and is refused with its line.
  if (error == std::errc::result_out_of_range) {
    const size_t exponent = word.find_first_of("eE");
    const bool tiny = exponent != std::string_view::npos && word.substr(exponent + 1)[0] == '-';
    return tiny ? 0.0 : std::numeric_limits<double>::infinity();
  }
  return value;
}

std::optional<i64> ParseInteger(std::string_view word) {
  word = WithoutPlus(word);
  i64 value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (end != word.data() + word.size() || error != std::errc()) return {};
  return value;
}

GeometryBuilder::Corner GeometryBuilder::Narrow(const FaceCorner& corner) {
  const i64 limit = std::numeric_limits<i32>::max();
  if (corner.point > limit || corner.uv > limit || corner.normal > limit)
    throw MeshFileError("has a face with an index that is out of range");
  return {static_cast<i32>(corner.point), static_cast<i32>(corner.uv),
          static_cast<i32>(corner.normal)};
}

void GeometryBuilder::AddFace(const std::vector<FaceCorner>& corners) {
  const size_t count = corners.size();
  if (count == 4 && corners[2].point != corners[3].point) {
    mFaces.push_back(
        {Narrow(corners[0]), Narrow(corners[1]), Narrow(corners[2]), Narrow(corners[3])});
    return;
  }
  for (size_t i = 2; i < count; ++i) {
    const Corner last = Narrow(corners[i]);
    mFaces.push_back({Narrow(corners[0]), Narrow(corners[i - 1]), last, last});
    if (count == 4) break;  // a quad that repeats its third corner is a triangle
  }
}

Geometry GeometryBuilder::Build() {
  Geometry g;
  bool hasUvs = false, hasNormals = false;
  g.polygons.reserve(mFaces.size());
  for (const auto& face : mFaces) {
    for (const Corner& corner : face) {
      CheckIndex(corner.point, points.size(), "point");
      if (corner.uv != -1) CheckIndex(corner.uv, uvs.size(), "uv"), hasUvs = true;
      if (corner.normal != -1) {
        CheckIndex(corner.normal, normals.size(), "normal");
        hasNormals = true;
      }
    }
    g.polygons.push_back({face[0].point, face[1].point, face[2].point, face[3].point});
  }
  const auto gather = [&](const std::vector<Vec3d>& from, i32 Corner::*member) {
    std::vector<std::array<Vec3d, 4>> to(mFaces.size());
    for (size_t f = 0; f < mFaces.size(); ++f)
      for (int i = 0; i < 4; ++i)
        if (mFaces[f][i].*member != -1) to[f][i] = from[mFaces[f][i].*member];
    return to;
  };
  if (hasUvs) g.uvs = gather(uvs, &Corner::uv);
  if (hasNormals) g.normals = gather(normals, &Corner::normal);
  g.points = std::move(points);
  if (!velocities.empty()) velocities.resize(g.points.size());
  if (!colours.empty()) colours.resize(g.points.size(), {1, 1, 1});
  g.velocities = std::move(velocities);
  g.colours = std::move(colours);
  return g;
}

double LightOfSrgb(double shown) {
  return shown <= 0.04045 ? shown / 12.92 : std::pow((shown + 0.055) / 1.055, 2.4);
}

size_t PointWelder::Hash::operator()(const Vec3d& p) const {
  u64 hash = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const double value = p[axis] + 0.0;  // both zeros are one position
    u64 bits;
    std::memcpy(&bits, &value, sizeof bits);
    hash = (hash ^ bits) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 29;
  }
  return hash;
}

i32 PointWelder::Index(const Vec3d& position) {
  const auto [entry, isNew] = mIndices.try_emplace(position, static_cast<i32>(mPoints.size()));
  if (isNew) mPoints.push_back(position);
  return entry->second;
}

}  // namespace MELDO_GLOBAL::host
