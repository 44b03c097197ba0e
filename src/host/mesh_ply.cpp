#include "host/mesh_readers.h"
namespace MELDO_GLOBAL::host {
Geometry ReadPly(std::string_view) { throw MeshFileError("can't be read yet"); }
Geometry ReadGltf(std::string_view, const std::filesystem::path&) {
  throw MeshFileError("can't be read yet");
}
}  // namespace MELDO_GLOBAL::host
