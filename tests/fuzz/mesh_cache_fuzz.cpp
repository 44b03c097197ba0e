// Any bytes as the body of a mesh cache's file.
#include "cache/mesh_cache_file.h"
#include "cache_fuzz.h"
#include "host/document.h"
#include "host/polygon_object.h"

using namespace MELDO_GLOBAL;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  host::Document document;
  auto& object = document.Create<host::PolygonObject>(0, "mesh", nullptr);
  ReadAnyCache(
      data, size, ReadMeshCacheHeader,
      [](const MeshCacheHeader& header) { return header.meshes.size(); },
      [&](HyperFile& file, const MeshCacheHeader&, std::size_t) {
        host::Geometry mesh;
        // The document throws where a polygon names a point that isn't there.
        if (ReadMeshChunk(file, 1, mesh)) object.SetGeometry(std::move(mesh));
      },
      DescribeMeshCache);
  return 0;
}
