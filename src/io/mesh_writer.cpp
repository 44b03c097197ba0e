#include "io/mesh_writer.h"

#include <fmt/format.h>

#include <bit>
#include <iterator>
#include <nlohmann/json.hpp>

#include "io/preview_film.h"

namespace MELDO_GLOBAL::app {

namespace {

static_assert(std::endian::native == std::endian::little, "files are written as numbers stand");

template <class T>
void Put(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}
void PutSingle(std::string& out, const Vec3d& v) {
  for (int axis = 0; axis < 3; ++axis) Put(out, static_cast<float>(v[axis]));
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
      for (int axis = 0; axis < 3; ++axis) Put(out, (*column)[i][axis]);
    for (int c = 0; c < 3 && !mesh.colours.empty(); ++c)
      Put(out, ToByte(static_cast<float>(mesh.colours[i][c])));
  }
  for (const host::Polygon& p : mesh.polygons) {
    Put(out, static_cast<u8>(p.IsQuad() ? 4 : 3));
    for (const i32 point : {p.a, p.b, p.c}) Put(out, point);
    if (p.IsQuad()) Put(out, p.d);
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
  Put(out, count);
  mesh.ForEachTriangle([&](i32 a, i32 b, i32 c) {
    const Vec3d &p = mesh.points[a], &q = mesh.points[b], &r = mesh.points[c];
    PutSingle(out, Normalised(Cross(q - p, r - p)));
    for (const Vec3d& corner : {p, q, r}) PutSingle(out, corner);
    Put(out, u16{0});
  });
  return out;
}

/// Binary glTF 2.0: one mesh of one primitive.
class GlbWriter {
 public:
  std::string Encode(const MeshTable& mesh) {
    nlohmann::ordered_json scene = {{"asset", {{"version", "2.0"}, {"generator", "sulva"}}},
                                    {"scene", 0},
                                    {"scenes", {nlohmann::json::object()}}};
    if (!mesh.polygons.empty()) {
      nlohmann::ordered_json attributes = {{"POSITION", AddVectors(mesh.points, true)}};
      if (!mesh.normals.empty()) attributes["NORMAL"] = AddVectors(mesh.normals, false);
      if (!mesh.velocities.empty())
        attributes["VELOCITY"] = attributes["_VELOCITY"] = AddVectors(mesh.velocities, false);
      if (!mesh.colours.empty()) attributes["COLOR_0"] = AddVectors(Shades(mesh.colours), false);
      const std::size_t indices = AddTriangles(mesh);
      scene["scenes"] = {{{"nodes", {0}}}};
      scene["nodes"] = {{{"mesh", 0}}};
      scene["meshes"] = {{{"primitives", {{{"attributes", attributes}, {"indices", indices}}}}}};
      scene["accessors"] = mAccessors;
      scene["bufferViews"] = mViews;
      scene["buffers"] = {{{"byteLength", mBytes.size()}}};
    }
    std::string json = scene.dump();
    json.resize((json.size() + 3) / 4 * 4, ' ');
    std::string out;
    constexpr u32 kMagic = 0x46546C67, kJson = 0x4E4F534A, kBinary = 0x004E4942;
    const std::size_t chunks = 8 + json.size() + (mBytes.empty() ? 0 : 8 + mBytes.size());
    for (const std::size_t word :
         {std::size_t{kMagic}, std::size_t{2}, 12 + chunks, json.size(), std::size_t{kJson}})
      Put(out, static_cast<u32>(word));
    out += json;
    if (mBytes.empty()) return out;
    Put(out, static_cast<u32>(mBytes.size()));
    Put(out, kBinary);
    return out + mBytes;
  }

 private:
  static constexpr int kFloat = 5126, kUnsigned = 5125;

  /// Colours as the format wants them: from 0 to 1.
  static std::vector<Vec3d> Shades(std::vector<Vec3d> colours) {
    for (Vec3d& colour : colours) colour = Max(Min(colour, Vec3d{1, 1, 1}), Vec3d{});
    return colours;
  }

  std::size_t AddView(std::size_t first, int target) {
    mViews.push_back({{"buffer", 0},
                      {"byteOffset", first},
                      {"byteLength", mBytes.size() - first},
                      {"target", target}});
    return mViews.size() - 1;
  }
  std::size_t AddVectors(const std::vector<Vec3d>& values, bool hasBounds) {
    const std::size_t first = mBytes.size();
    for (const Vec3d& v : values) PutSingle(mBytes, v);
    nlohmann::ordered_json accessor = {{"bufferView", AddView(first, 34962)},
                                       {"componentType", kFloat},
                                       {"count", values.size()},
                                       {"type", "VEC3"}};
    if (hasBounds) {
      Vec3d low = values.front(), high = low;
      for (const Vec3d& v : values) low = Min(low, v), high = Max(high, v);
      const auto list = [](const Vec3d& v) {
        return nlohmann::json{static_cast<float>(v.x), static_cast<float>(v.y),
                              static_cast<float>(v.z)};
      };
      accessor["min"] = list(low);
      accessor["max"] = list(high);
    }
    mAccessors.push_back(accessor);
    return mAccessors.size() - 1;
  }
  std::size_t AddTriangles(const MeshTable& mesh) {
    const std::size_t first = mBytes.size();
    mesh.ForEachTriangle([&](i32 a, i32 b, i32 c) {
      for (const i32 point : {a, b, c}) Put(mBytes, static_cast<u32>(point));
    });
    mAccessors.push_back({{"bufferView", AddView(first, 34963)},
                          {"componentType", kUnsigned},
                          {"count", (mBytes.size() - first) / sizeof(u32)},
                          {"type", "SCALAR"}});
    return mAccessors.size() - 1;
  }

  std::string mBytes;
  nlohmann::ordered_json mAccessors = nlohmann::ordered_json::array(),
                         mViews = nlohmann::ordered_json::array();
};

}  // namespace

std::string EncodeMesh(const MeshTable& mesh, std::string_view suffix) {
  if (suffix == ".obj") return EncodeObj(mesh);
  if (suffix == ".stl") return EncodeStl(mesh);
  if (suffix == ".glb") return GlbWriter().Encode(mesh);
  return EncodePly(mesh);
}

}  // namespace MELDO_GLOBAL::app
