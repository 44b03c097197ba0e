// Meshes that are recorded and played back.
#pragma once
#include "cache/cache_operator.h"
#include "cache/mesh_cache_file.h"
#include "fluids/surfaces/implicit_mesher.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Writes the polygons of meshers into a file a frame, with what their points and corners have, and
/// hands them to the meshers again, which then make none themselves.
class MeshCacher : public Cache_OperatorBase {
 public:
  MeshCacher(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  std::string DescribeFile(const std::filesystem::path& path) const override;

 protected:
  const RowNumbers& Numbers() const override { return kNumbers; }
  i32 FirstFormat() const override { return 24; }
  i32 DataStage() const override { return kMeshing; }
  std::vector<StoredObject> NamedObjects() const override;
  bool LacksAny() const override;
  void WriteBody(HyperFile& file) override;
  bool ReadHeader(HyperFile& file, std::string& problem) override {
    return ReadMeshCacheHeader(file, mHeader, problem);
  }
  std::size_t ChunkCount() const override { return mHeader.meshes.size(); }
  const CacheOrigin& Origin() const override { return mHeader.origin; }
  void TakePlaces() override;
  bool Feeds(std::size_t, std::size_t) const override { return true; }
  bool ReadChunk(std::size_t object, std::size_t chunk) override;

 private:
  static constexpr RowNumbers kNumbers = {1015, 1008, 1016, 1017, 1018, 1019, 1020};

  /// The mesher among the objects; the row takes no other kind.
  ImplicitMesher& MesherOf(std::size_t object) const {
    return dynamic_cast<ImplicitMesher&>(*mObjects[object]);
  }

  MeshCacheHeader mHeader;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
