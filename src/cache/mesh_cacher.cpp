#include "cache/mesh_cacher.h"

#include "cache/cache_rows.h"
#include "framework/node_kind.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& MeshCacher::Kind() {
  static const NodeKind kind = {
      .id = 1300100,
      .type = "cache_mesh",
      .label = "MOP::Cacher",
      .className = "MeshCacher",
      .typeId = kTypeMeshCacher,
      .list = kListCaches,
      .categories = kCategoryMesh,
      .flags = "S",
      .stages = {kLoadCache, kSaveCache, kMeshing},
      .priority = 0,
      .menu = {"Bodies/Operators"},
      .purpose = "records the polygons of meshers, a file a frame, and plays them back",
      .example =
          {{example::kBall},
           {example::kBallMesh, example::kBallVolume,
            R"({ "type": "mesher", "name": "skin", "parameters": { "source": "ball volume", "level": 0 } })",
            R"({ "type": "cache_mesh", "name": "recording", "parameters": { "mode": "record", "compression": "fast", "objects": ["skin"] } })"}},
      .rows = Parameters,
      .make = MakeNode<MeshCacher>,
  };
  return kind;
}

const ParameterTable& MeshCacher::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = WithRows(
        kNumbers, {LongRow(cache_row::kFormat, "format", 0, "", "which kind of file is written")
                       .Choices({{0, "mesh_cache"}})
                       .To(&MeshCacher::mFormat)});
    ObjectsRow(rows).Accepts({ImplicitMesher::Kind().id});
    return rows;
  }();
  return table;
}

MeshCacher::MeshCacher(BaseNode* node, Scene* scene)
    : Cache_OperatorBase(node, scene, "sulva_mesh_frame") {}

std::vector<StoredObject> MeshCacher::NamedObjects() const {
  std::vector<StoredObject> named;
  for (const iBase* object : mObjects) named.push_back({object->mName, "host units"});
  return named;
}

bool MeshCacher::LacksAny() const {
  for (std::size_t i = 0; i < mObjects.size(); ++i)
    if (MesherOf(i).HasPolygons() && ChunkOf(i) < 0) return true;
  return false;
}

void MeshCacher::WriteBody(HyperFile& file) {
  std::vector<const Geometry*> meshes;
  for (std::size_t i = 0; i < mObjects.size(); ++i) meshes.push_back(MesherOf(i).Polygons());
  WriteMeshCache(file, meshes, {mCompression, mScene->mThreadCount});
}

void MeshCacher::TakePlaces() {
  for (std::size_t i = 0; i < mObjects.size(); ++i)
    if (ChunkOf(i) >= 0) mObjects[i]->SetFlag(FLAG_CACHED, true);
}

bool MeshCacher::ReadChunk(std::size_t object, std::size_t) {
  Geometry mesh;
  if (!ReadMeshChunk(PlayedFile(), mScene->mThreadCount, mesh)) return false;
  if (const double rate = PlayedRate(); rate != 1)
    for (Vec3d& velocity : mesh.velocities) velocity *= rate;
  MesherOf(object).TakePlayed(std::move(mesh));
  return true;
}

std::string MeshCacher::DescribeFile(const std::filesystem::path& path) const {
  HyperFile file;
  if (!file.Open(kCacheIdent, path, HyperFile::Mode::kRead)) return file.Error() + "\n";
  return DescribeMeshCache(file);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
