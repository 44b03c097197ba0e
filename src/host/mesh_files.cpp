#include "host/mesh_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <new>

#include "host/mesh_readers.h"

namespace MELDO_GLOBAL::host {

namespace {
Geometry Read(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto known = {".obj", ".ply", ".stl", ".gltf", ".glb"};
  if (std::find(known.begin(), known.end(), extension) == known.end())
    throw MeshFileError("isn't of a known kind; .obj, .ply, .stl, .gltf and .glb are");
  const std::string bytes = ReadBytes(path);
  if (extension == ".obj") return ReadObj(bytes);
  if (extension == ".ply") return ReadPly(bytes);
  if (extension == ".stl") return ReadStl(bytes);
  return ReadGltf(bytes, path.parent_path());
}

bool IsFinite(const Vec3d& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

void Check(const Geometry& g) {
  if (g.points.size() > static_cast<size_t>(std::numeric_limits<i32>::max()))
    throw MeshFileError("has too many points");
  for (size_t i = 0; i < g.points.size(); ++i)
    if (!IsFinite(g.points[i]))
      throw MeshFileError(
          fmt::format("has a coordinate that isn't finite, in point {} (counted from 0)", i));
  for (const auto* ofPoints : {&g.velocities, &g.colours})
    if (!std::all_of(ofPoints->begin(), ofPoints->end(), IsFinite))
      throw MeshFileError("has a velocity or a colour that isn't finite");
  for (const auto* corners : {&g.uvs, &g.normals})
    for (const auto& face : *corners)
      if (!std::all_of(face.begin(), face.end(), IsFinite))
        throw MeshFileError("has a uv or a normal that isn't finite");
}
}  // namespace

Geometry LoadMeshOrNone(const std::filesystem::path& path) {
  const std::string name = fmt::format("mesh file \"{}\" ", path.string());
  try {
    Geometry geometry = Read(path);
    Check(geometry);
    return geometry;
  } catch (const MeshFileError& error) {
    throw MeshFileError(name + error.what());
  } catch (const std::bad_alloc&) {
    throw MeshFileError(name + "doesn't fit into memory");
  }
}

Geometry LoadMesh(const std::filesystem::path& path) {
  Geometry geometry = LoadMeshOrNone(path);
  if (geometry.polygons.empty())
    throw MeshFileError(fmt::format("mesh file \"{}\" has no polygons", path.string()));
  return geometry;
}

}  // namespace MELDO_GLOBAL::host
