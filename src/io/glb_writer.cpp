#include "io/glb_writer.h"

#include <algorithm>

namespace MELDO_GLOBAL::app {

namespace {

constexpr int kFloat = 5126, kUnsigned = 5125;

template <class T>
void Put(std::string& out, T value) {
  out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Colours as the format wants them: from 0 to 1.
std::vector<Vec3d> Shades(std::vector<Vec3d> colours) {
  for (Vec3d& colour : colours) colour = Max(Min(colour, Vec3d{1, 1, 1}), Vec3d{});
  return colours;
}

}  // namespace

std::size_t GlbWriter::AddMesh(const MeshTable& mesh) {
  if (mesh.uvs.empty()) return AddSplit(mesh, {});
  std::vector<Vec3d> uvs;
  const MeshTable split = SplitByUvs(mesh, uvs);
  return AddSplit(split, uvs);
}

std::size_t GlbWriter::AddSplit(const MeshTable& mesh, const std::vector<Vec3d>& uvs) {
  Json attributes = {{"POSITION", AddVectors(mesh.points, true)}};
  if (!mesh.normals.empty()) attributes["NORMAL"] = AddVectors(mesh.normals, false);
  if (!mesh.velocities.empty())
    attributes["VELOCITY"] = attributes["_VELOCITY"] = AddVectors(mesh.velocities, false);
  if (!mesh.colours.empty()) attributes["COLOR_0"] = AddVectors(Shades(mesh.colours), false);
  if (!uvs.empty()) attributes["TEXCOORD_0"] = AddUvs(uvs);
  const std::size_t indices = AddTriangles(mesh);
  mMeshes.push_back({{"primitives", {{{"attributes", attributes}, {"indices", indices}}}}});
  return mMeshes.size() - 1;
}

std::size_t GlbWriter::AddNode(Json node) {
  mNodes.push_back(std::move(node));
  return mNodes.size() - 1;
}

std::size_t GlbWriter::AddNumbers(std::span<const double> numbers, int components) {
  const std::size_t first = mBytes.size();
  for (const double number : numbers) Put(mBytes, static_cast<float>(number));
  mViews.push_back({{"buffer", 0}, {"byteOffset", first}, {"byteLength", mBytes.size() - first}});
  const char* type = components == 1 ? "SCALAR" : components == 3 ? "VEC3" : "VEC4";
  Json accessor = {{"bufferView", mViews.size() - 1},
                   {"componentType", kFloat},
                   {"count", numbers.size() / static_cast<std::size_t>(components)},
                   {"type", type}};
  if (components == 1) {
    const auto [low, high] = std::minmax_element(numbers.begin(), numbers.end());
    accessor["min"] = {static_cast<float>(*low)};
    accessor["max"] = {static_cast<float>(*high)};
  }
  mAccessors.push_back(accessor);
  return mAccessors.size() - 1;
}

void GlbWriter::Animate(std::size_t node, const char* path, std::size_t times, std::size_t values) {
  mChannels.push_back(
      {{"sampler", mSamplers.size()}, {"target", {{"node", node}, {"path", path}}}});
  mSamplers.push_back({{"input", times}, {"output", values}, {"interpolation", "LINEAR"}});
}

std::string GlbWriter::Encode() {
  Json scene = {{"asset", {{"version", "2.0"}, {"generator", "sulva"}}},
                {"scene", 0},
                {"scenes", {Json::object()}}};
  if (!mExtras.is_null()) scene["extras"] = mExtras;
  if (!mNodes.empty()) {
    Json roots = Json::array();
    for (std::size_t i = 0; i < mNodes.size(); ++i) roots.push_back(i);
    scene["scenes"] = {{{"nodes", roots}}};
    scene["nodes"] = mNodes;
    if (!mMeshes.empty()) scene["meshes"] = mMeshes;
    if (!mChannels.empty())
      scene["animations"] = {{{"channels", mChannels}, {"samplers", mSamplers}}};
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

std::size_t GlbWriter::AddView(std::size_t first, int target) {
  mViews.push_back({{"buffer", 0},
                    {"byteOffset", first},
                    {"byteLength", mBytes.size() - first},
                    {"target", target}});
  return mViews.size() - 1;
}

std::size_t GlbWriter::AddVectors(const std::vector<Vec3d>& values, bool hasBounds) {
  const std::size_t first = mBytes.size();
  for (const Vec3d& v : values)
    for (int axis = 0; axis < 3; ++axis) Put(mBytes, static_cast<float>(v[axis]));
  Json accessor = {{"bufferView", AddView(first, 34962)},
                   {"componentType", kFloat},
                   {"count", values.size()},
                   {"type", "VEC3"}};
  if (hasBounds) {
    Vec3d low = values.front(), high = low;
    for (const Vec3d& v : values) low = Min(low, v), high = Max(high, v);
    const auto list = [](const Vec3d& v) {
      return Json{static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
    };
    accessor["min"] = list(low);
    accessor["max"] = list(high);
  }
  mAccessors.push_back(accessor);
  return mAccessors.size() - 1;
}

std::size_t GlbWriter::AddUvs(const std::vector<Vec3d>& uvs) {
  const std::size_t first = mBytes.size();
  for (const Vec3d& uv : uvs) {
    Put(mBytes, static_cast<float>(uv.x));
    Put(mBytes, static_cast<float>(1 - uv.y));
  }
  mAccessors.push_back({{"bufferView", AddView(first, 34962)},
                        {"componentType", kFloat},
                        {"count", uvs.size()},
                        {"type", "VEC2"}});
  return mAccessors.size() - 1;
}

std::size_t GlbWriter::AddTriangles(const MeshTable& mesh) {
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

}  // namespace MELDO_GLOBAL::app
