// Writes geometry in the formats that the host reads, for tests.
#pragma once
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <string>

#include "host/polygon_object.h"

namespace MELDO_GLOBAL::host {

template <class T>
void Append(std::string& bytes, T value, bool big = false) {
  const auto raw = std::bit_cast<std::array<char, sizeof(T)>>(value);
  std::string piece(raw.begin(), raw.end());
  if (big) std::reverse(piece.begin(), piece.end());
  bytes += piece;
}

inline std::vector<i32> CornersOf(const Polygon& p) {
  return p.IsQuad() ? std::vector{p.a, p.b, p.c, p.d} : std::vector{p.a, p.b, p.c};
}

inline std::string ToObj(const Geometry& g) {
  std::string text;
  for (const Vec3d& p : g.points) text += fmt::format("v {} {} {}\n", p.x, p.y, p.z);
  for (const auto& uv : g.uvs)
    for (const Vec3d& c : uv) text += fmt::format("vt {} {}\n", c.x, c.y);
  for (size_t f = 0; f < g.polygons.size(); ++f) {
    text += "f";
    int corner = 0;
    for (const i32 i : CornersOf(g.polygons[f])) {
      text += g.uvs.empty() ? fmt::format(" {}", i + 1)
                            : fmt::format(" {}/{}", i + 1, 4 * f + corner + 1);
      ++corner;
    }
    text += "\n";
  }
  return text;
}

/// The triangles of a geometry, three points each.
inline std::vector<std::array<Vec3d, 3>> SoupOf(const Geometry& g) {
  std::vector<std::array<Vec3d, 3>> soup;
  for (const Polygon& p : g.polygons) {
    soup.push_back({g.points[p.a], g.points[p.b], g.points[p.c]});
    if (p.IsQuad()) soup.push_back({g.points[p.a], g.points[p.c], g.points[p.d]});
  }
  return soup;
}

inline std::string ToBinaryStl(const Geometry& g) {
  std::string bytes = "solid that is binary all the same";
  bytes.resize(80, ' ');
  const auto soup = SoupOf(g);
  Append(bytes, static_cast<u32>(soup.size()));
  for (const auto& triangle : soup) {
    bytes.append(12, '\0');
    for (const Vec3d& p : triangle)
      for (int axis = 0; axis < 3; ++axis) Append(bytes, static_cast<f32>(p[axis]));
    bytes.append(2, '\0');
  }
  return bytes;
}

inline std::string ToAsciiStl(const Geometry& g) {
  std::string text = "solid of vertex 1 2 3\n";
  for (const auto& triangle : SoupOf(g)) {
    text += "  facet normal 0 0 0\n    outer loop\n";
    for (const Vec3d& p : triangle) text += fmt::format("      vertex {} {} {:e}\n", p.x, p.y, p.z);
    text += "    endloop\n  endfacet\n";
  }
  return text + "endsolid\n";
}

inline std::string ToBinaryPly(const Geometry& g, bool big) {
  std::string bytes = fmt::format(
      "ply\nformat binary_{}_endian 1.0\ncomment made by a test\nelement vertex {}\n"
      "property double x\nproperty double y\nproperty uchar red\nproperty double z\n"
      "element edge 1\nproperty int a\nproperty list uchar short b\n"
      "element face {}\nproperty list uchar int vertex_indices\nend_header\n",
      big ? "big" : "little", g.points.size(), g.polygons.size());
  for (const Vec3d& p : g.points) {
    Append(bytes, p.x, big);
    Append(bytes, p.y, big);
    Append(bytes, u8{255});
    Append(bytes, p.z, big);
  }
  Append(bytes, i32{7}, big);
  Append(bytes, u8{2});
  Append(bytes, i16{1}, big);
  Append(bytes, i16{2}, big);
  for (const Polygon& p : g.polygons) {
    const auto corners = CornersOf(p);
    Append(bytes, static_cast<u8>(corners.size()));
    for (const i32 i : corners) Append(bytes, i, big);
  }
  return bytes;
}

inline std::string ToAsciiPly(const Geometry& g) {
  std::string text = fmt::format(
      "ply\nformat ascii 1.0\nelement vertex {}\nproperty float x\nproperty float y\n"
      "property float z\nproperty float s\nproperty float t\nelement face {}\n"
      "property list uchar int vertex_index\nend_header\n",
      g.points.size(), g.polygons.size());
  for (const Vec3d& p : g.points)
    text += fmt::format("{} {} {} {} 0.25\n", p.x, p.y, p.z, p.x * 0.5);
  for (const Polygon& p : g.polygons) {
    const auto corners = CornersOf(p);
    text += fmt::format("{} {}\n", corners.size(), fmt::join(corners, " "));
  }
  return text;
}

/// Every triangle with corners of its own, as exporters write flat faces; `nodes` is the JSON of
/// the nodes, which use mesh 0.
struct Gltf {
  std::string json, binary;
};

inline Gltf ToGltf(const Geometry& g, const std::string& nodes, const std::string& buffer) {
  Gltf gltf;
  const auto soup = SoupOf(g);
  for (const auto& triangle : soup)
    for (const Vec3d& p : triangle)
      for (int axis = 0; axis < 3; ++axis) Append(gltf.binary, static_cast<f32>(p[axis]));
  const size_t points = gltf.binary.size();
  for (size_t i = 0; i < 3 * soup.size(); ++i) Append(gltf.binary, static_cast<std::uint16_t>(i));
  gltf.json = fmt::format(
      R"({{"asset":{{"version":"2.0"}},"scene":0,"scenes":[{{"nodes":[0]}}],"nodes":{},)"
      R"("meshes":[{{"primitives":[{{"attributes":{{"POSITION":0}},"indices":1}}]}}],)"
      R"("accessors":[{{"bufferView":0,"componentType":5126,"count":{},"type":"VEC3"}},)"
      R"({{"bufferView":1,"componentType":5123,"count":{},"type":"SCALAR"}}],)"
      R"("bufferViews":[{{"buffer":0,"byteLength":{}}},)"
      R"({{"buffer":0,"byteOffset":{},"byteLength":{}}}],"buffers":[{{{}"byteLength":{}}}]}})",
      nodes, 3 * soup.size(), 3 * soup.size(), points, points, gltf.binary.size() - points, buffer,
      gltf.binary.size());
  while (gltf.json.size() % 4 != 0) gltf.json += ' ';
  while (gltf.binary.size() % 4 != 0) gltf.binary += '\0';
  return gltf;
}

inline std::string ToGlb(const Geometry& g, const std::string& nodes) {
  const Gltf gltf = ToGltf(g, nodes, "");
  std::string bytes = "glTF";
  Append(bytes, u32{2});
  Append(bytes, static_cast<u32>(28 + gltf.json.size() + gltf.binary.size()));
  Append(bytes, static_cast<u32>(gltf.json.size()));
  bytes += "JSON" + gltf.json;
  Append(bytes, static_cast<u32>(gltf.binary.size()));
  bytes += std::string("BIN\0", 4) + gltf.binary;
  return bytes;
}

}  // namespace MELDO_GLOBAL::host
