#include "io/file_content.h"

#include <algorithm>

#include "cache/cache_contents.h"
#include "exchange/particle_files.h"
#include "host/file_error.h"
#include "host/mesh_readers.h"
#include "host/ply_header.h"
#include "io/vdb_info.h"

namespace MELDO_GLOBAL::app {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kHeadBytes = 4096;

/// Faces make a mesh of a PLY file; a header that goes on for longer belongs to particles.
bool HasFaces(std::string_view head) {
  std::string_view line = head;
  while (const auto next = host::NextLine(line)) {
    std::string_view words = *next;
    if (host::NextWord(words) == "element" && host::NextWord(words) == "face")
      return host::NextWord(words) != "0";
    if (*next == "end_header") break;
  }
  return false;
}

bool HoldsPoints(const fs::path& path) {
  const std::vector<VdbGridInfo> grids = ReadVdbInfo(path);
  return std::any_of(grids.begin(), grids.end(),
                     [](const VdbGridInfo& grid) { return grid.type.starts_with("ptdata"); });
}

FileContent RecordedIn(const fs::path& path) {
  HyperFile file;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) throw host::FileError(file.Error());
  switch (KindOfCache(file)) {
    case CacheKind::kParticles: return FileContent::Particles;
    case CacheKind::kMeshes: return FileContent::Mesh;
    default: return FileContent::Volumes;
  }
}

}  // namespace

FoundContent ContentOf(const fs::path& path) {
  using enum FileContent;
  const exchange::ParticleFormat* format = exchange::FormatOfFile(path);
  const std::string head = exchange::HeadOfFile(path, kHeadBytes);
  if (head.size() >= 12 && head.substr(8, 4) == "zlsv") return {RecordedIn(path), true};
  if (format && format->name == "vdb") return {HoldsPoints(path) ? Particles : Volumes};
  if (format && format->name == "ply") return {HasFaces(head) ? Mesh : Particles};
  if (format) return {Particles};
  const std::string extension = path.extension().string();
  const auto meshes = {".obj", ".stl", ".glb", ".gltf"};
  return {std::find(meshes.begin(), meshes.end(), extension) != meshes.end() ? Mesh : Unknown};
}

const char* NameOf(FileContent content) {
  switch (content) {
    case FileContent::Particles: return "particles";
    case FileContent::Mesh: return "a mesh";
    case FileContent::Volumes: return "volumes";
    default: return "nothing known";
  }
}

std::vector<std::string> WritableFormats(FileContent content) {
  if (content == FileContent::Mesh) return {"ply", "obj", "stl", "glb"};
  if (content == FileContent::Volumes) return {"vdb", "cache"};
  std::vector<std::string> names;
  for (const exchange::ParticleFormat* format : exchange::ParticleFormats())
    if (format->write) names.emplace_back(format->name);
  return names;
}

}  // namespace MELDO_GLOBAL::app
