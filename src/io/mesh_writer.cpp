#include "io/mesh_writer.h"

#include <fmt/format.h>

#include <bit>
#include <iterator>
#include <map>

#include "host/console.h"
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
  std::string out = "ply\nformat binary_little_endian 1.0\n";
  if (!mesh.unit.empty()) out += fmt::format("comment {}, seconds\n", mesh.unit);
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
  out += fmt::format("element face {}\nproperty list uchar int vertex_indices\n{}end_header\n",
                     mesh.polygons.size(),
                     mesh.uvs.empty() ? "" : "property list uchar double texcoord\n");
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    for (const auto* column : columns)
      for (int axis = 0; axis < 3; ++axis) PutValue(out, (*column)[i][axis]);
    for (int c = 0; c < 3 && !mesh.colours.empty(); ++c)
      PutValue(out, ToByte(static_cast<float>(mesh.colours[i][c])));
  }
  for (std::size_t i = 0; i < mesh.polygons.size(); ++i) {
    const host::Polygon& p = mesh.polygons[i];
    const int corners = p.IsQuad() ? 4 : 3;
    PutValue(out, static_cast<u8>(corners));
    for (const i32 point : {p.a, p.b, p.c}) PutValue(out, point);
    if (p.IsQuad()) PutValue(out, p.d);
    if (mesh.uvs.empty()) continue;
    PutValue(out, static_cast<u8>(2 * corners));
    for (int c = 0; c < corners; ++c)
      PutValue(out, mesh.uvs[i][c].x), PutValue(out, mesh.uvs[i][c].y);
  }
  return out;
}

/// Adds meshes to a text one by one; corners go by numbers that count on over all of them.
class ObjText {
 public:
  explicit ObjText(const std::string& unit) {
    if (!unit.empty()) mText = fmt::format("# {}\n", unit);
  }

  void Add(const std::string& name, const MeshTable& mesh) {
    const auto to = std::back_inserter(mText);
    if (!name.empty()) fmt::format_to(to, "o {}\n", host::Escaped(name));
    for (const Vec3d& p : mesh.points) fmt::format_to(to, "v {} {} {}\n", p.x, p.y, p.z);
    for (const Vec3d& n : mesh.normals) fmt::format_to(to, "vn {} {} {}\n", n.x, n.y, n.z);
    const std::vector<std::array<std::size_t, 4>> uvs = AddUvs(mesh);
    for (std::size_t i = 0; i < mesh.polygons.size(); ++i) {
      const host::Polygon& p = mesh.polygons[i];
      const i32 points[] = {p.a, p.b, p.c, p.d};
      mText += 'f';
      for (int c = 0; c < (p.IsQuad() ? 4 : 3); ++c) {
        fmt::format_to(to, " {}", mPoints + points[c] + 1);
        if (!uvs.empty()) fmt::format_to(to, "/{}", uvs[i][c]);
        if (!mesh.normals.empty())
          fmt::format_to(to, "{}{}", uvs.empty() ? "//" : "/", mNormals + points[c] + 1);
      }
      mText += '\n';
    }
    mPoints += static_cast<i64>(mesh.points.size());
    mNormals += static_cast<i64>(mesh.normals.size());
  }
  std::string Take() { return std::move(mText); }

 private:
  /// A line for each that is new; the numbers of those of all corners.
  std::vector<std::array<std::size_t, 4>> AddUvs(const MeshTable& mesh) {
    std::vector<std::array<std::size_t, 4>> numbers;
    for (const auto& corners : mesh.uvs) {
      auto& own = numbers.emplace_back();
      for (int c = 0; c < 4; ++c) {
        const auto [found, isNew] = mUvs.try_emplace({corners[c].x, corners[c].y}, mUvs.size() + 1);
        own[c] = found->second;
        if (isNew)
          fmt::format_to(std::back_inserter(mText), "vt {} {}\n", corners[c].x, corners[c].y);
      }
    }
    return numbers;
  }

  std::string mText;
  i64 mPoints = 0, mNormals = 0;
  std::map<std::pair<double, double>, std::size_t> mUvs;
};

std::string EncodeStl(const MeshTable& mesh) {
  constexpr std::size_t kHeader = 80;
  std::string out = mesh.unit.empty() ? "binary stl" : "binary stl, " + mesh.unit;
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

std::string EncodeGlb(std::span<const NamedMesh> meshes) {
  GlbWriter file;
  for (const auto& [name, mesh] : meshes) {
    if (mesh->polygons.empty()) continue;
    GlbWriter::Json node = {{"mesh", file.AddMesh(*mesh)}};
    if (!name.empty()) node["name"] = host::Escaped(name);
    file.AddNode(std::move(node));
  }
  return file.Encode();
}

}  // namespace

std::string EncodeMesh(const MeshTable& mesh, std::string_view suffix) {
  const NamedMesh one[] = {{{}, &mesh}};
  return EncodeMeshes(one, suffix);
}

std::string EncodeMeshes(std::span<const NamedMesh> meshes, std::string_view suffix) {
  if (suffix == ".glb") return EncodeGlb(meshes);
  if (suffix == ".obj") {
    ObjText text(meshes.empty() ? std::string() : meshes.front().mesh->unit);
    for (const auto& [name, mesh] : meshes) text.Add(name, *mesh);
    return text.Take();
  }
  const auto encode = [&](const MeshTable& mesh) {
    return suffix == ".stl" ? EncodeStl(mesh) : EncodePly(mesh);
  };
  if (meshes.size() == 1) return encode(*meshes.front().mesh);
  std::vector<const MeshTable*> tables;
  for (const NamedMesh& each : meshes) tables.push_back(each.mesh);
  return encode(Joined(tables));
}

std::vector<std::string> MissingFrom(std::string_view suffix, const MeshTable& mesh) {
  std::vector<std::string> missing;
  const bool isStl = suffix == ".stl", isObj = suffix == ".obj";
  if (!mesh.velocities.empty() && (isStl || isObj)) missing.emplace_back("velocities");
  if (!mesh.colours.empty() && (isStl || isObj)) missing.emplace_back("colours");
  if (!mesh.uvs.empty() && isStl) missing.emplace_back("texture coordinates");
  return missing;
}

}  // namespace MELDO_GLOBAL::app
