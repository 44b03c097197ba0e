#include "io/mesh_writer.h"

#include <fmt/format.h>

#include <bit>
#include <iterator>

#include "io/glb_writer.h"
#include "io/preview_film.h"

namespace MELDO_GLOBAL::app {

namespace {

static_assert(std::endian::native == std::endian::little, "files are written as numbers stand");

template <class T>
void PutValue(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}
void PutSingle(std::string& out, const Vec3d& v) {
  for (int axis = 0; axis < 3; ++axis) PutValue(out, static_cast<float>(v[axis]));
}

std::string EncodePly(const MeshTable& mesh) {
  std::string out = "ply\nformat binary_little_endian 1.0\ncomment metres, seconds\n";
  out += fmt::format("element vertex {}\n", mesh.points.size());
  std::vector<const std::vector<Vec3d>*> columns = {&mesh.points};
  std::vector<const char*> names = {"x", "y", "z"};
  const auto add = [&](const std::vector<Vec3d>& column, std::initializer_list<const char*> own) {
    if (column.empty()) return;
    columns.push_back(&column);
    names.insert(names.end(), own);
  };
  add(mesh.normals, {"nx", "ny", "nz"});
  add(mesh.velocities, {"vx", "vy", "vz"});
  for (const char* name : names) out += fmt::format("property double {}\n", name);
  if (!mesh.colours.empty())
    for (const char* name : {"red", "green", "blue"})
      out += fmt::format("property uchar {}\n", name);
  out += fmt::format("element face {}\nproperty list uchar int vertex_indices\nend_header\n",
                     mesh.polygons.size());
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    for (const auto* column : columns)
      for (int axis = 0; axis < 3; ++axis) PutValue(out, (*column)[i][axis]);
    for (int c = 0; c < 3 && !mesh.colours.empty(); ++c)
      PutValue(out, ToByte(static_cast<float>(mesh.colours[i][c])));
  }
  for (const host::Polygon& p : mesh.polygons) {
    PutValue(out, static_cast<u8>(p.IsQuad() ? 4 : 3));
    for (const i32 point : {p.a, p.b, p.c}) PutValue(out, point);
    if (p.IsQuad()) PutValue(out, p.d);
  }
  return out;
}

std::string EncodeObj(const MeshTable& mesh) {
  std::string out = "# metres\n";
  const auto to = std::back_inserter(out);
  for (const Vec3d& p : mesh.points) fmt::format_to(to, "v {} {} {}\n", p.x, p.y, p.z);
  for (const Vec3d& n : mesh.normals) fmt::format_to(to, "vn {} {} {}\n", n.x, n.y, n.z);
  const auto corner = [&](i32 point) {
    if (mesh.normals.empty())
      fmt::format_to(to, " {}", point + 1);
    else
      fmt::format_to(to, " {0}//{0}", point + 1);
  };
  for (const host::Polygon& p : mesh.polygons) {
    out += 'f';
    for (const i32 point : {p.a, p.b, p.c}) corner(point);
    if (p.IsQuad()) corner(p.d);
    out += '\n';
  }
  return out;
}

std::string EncodeStl(const MeshTable& mesh) {
  constexpr std::size_t kHeader = 80;
  std::string out = "binary stl, metres";
  out.resize(kHeader, ' ');
  u32 count = 0;
  mesh.ForEachTriangle([&](i32, i32, i32) { ++count; });
  PutValue(out, count);
  mesh.ForEachTriangle([&](i32 a, i32 b, i32 c) {
    const Vec3d &p = mesh.points[a], &q = mesh.points[b], &r = mesh.points[c];
    PutSingle(out, Normalised(Cross(q - p, r - p)));
    for (const Vec3d& corner : {p, q, r}) PutSingle(out, corner);
    PutValue(out, u16{0});
  });
  return out;
}

std::string EncodeGlb(const MeshTable& mesh) {
  GlbWriter file;
  if (!mesh.polygons.empty()) file.AddNode({{"mesh", file.AddMesh(mesh)}});
  return file.Encode();
}

}  // namespace

std::string EncodeMesh(const MeshTable& mesh, std::string_view suffix) {
  if (suffix == ".obj") return EncodeObj(mesh);
  if (suffix == ".stl") return EncodeStl(mesh);
  if (suffix == ".glb") return EncodeGlb(mesh);
  return EncodePly(mesh);
}

}  // namespace MELDO_GLOBAL::app
