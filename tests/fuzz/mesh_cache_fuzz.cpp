// Any bytes as the body of a mesh cache's file.
#include "cache/mesh_cache_file.h"
#include "host/document.h"
#include "host/polygon_object.h"

using namespace MELDO_GLOBAL;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  HyperFile file;
  if (!file.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, body))) __builtin_trap();
  MeshCacheHeader header;
  std::string problem;
  if (!ReadMeshCacheHeader(file, header, problem)) {
    if (problem.empty()) __builtin_trap();
    return 0;
  }
  host::Document document;
  auto& object = document.Create<host::PolygonObject>(0, "mesh", nullptr);
  for (std::size_t chunk = 0; chunk < header.meshes.size(); ++chunk) {
    i32 id, level;
    host::Geometry mesh;
    if (!file.ReadChunkStart(id, level)) break;
    // The document throws where a polygon names a point that isn't there.
    if (ReadMeshChunk(file, 1, mesh)) object.SetGeometry(std::move(mesh));
    if (!file.SkipToEndChunk() || !file.ReadChunkEnd()) break;
  }
  file.Rewind();
  DescribeMeshCache(file);
  return 0;
}
