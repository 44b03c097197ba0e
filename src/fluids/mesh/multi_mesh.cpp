#include "fluids/mesh/multi_mesh.h"

#include <algorithm>

#include "framework/node_kind.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& MultiMesh::Kind() {
  static const NodeKind kind = {
      .id = 1300144,
      .type = "mesh_multi",
      .label = "MultiMesh",
      .className = "MultiMesh",
      .typeId = kTypeMultiMesh,
      .list = kListGeometry,
      .categories = kCategoryMesh,
      .flags = "SV",
      .stages = {kVolumes},
      .priority = 0,
      .menu = {"Bodies"},
      .purpose = "reads the polygons of several host objects into one mesh",
      .example =
          {{example::kBall, example::kCube},
           {R"({ "type": "mesh_multi", "name": "pile", "parameters": { "objects": ["ball", "cube"] } })",
            R"({ "type": "volume_multi", "name": "pile volume", "parameters": { "meshes": ["pile"] }, "obstacle": {} })",
            example::kGas}},
      .rows = Parameters,
      .make = MakeNode<MultiMesh>,
  };
  return kind;
}

const ParameterTable& MultiMesh::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = Mesh::Parameters();
    std::erase_if(rows, [](const ParameterRow& row) { return row.id == Mesh::kObjectRow; });
    rows.push_back(LinksRow(kObjectsRow, "objects", "the pieces of geometry that count as one mesh",
                            {kMeshObject})
                       .To(&MultiMesh::mSources)
                       .Required());
    return rows;
  }();
  return table;
}

MultiMesh::MultiMesh(BaseNode* node, Scene* scene) : iObject(node, scene) {}

void MultiMesh::GetCategories(u32& mask) const {
  iObject::GetCategories(mask);
  const bool hasTag = (Node() && Node()->Tag(kObstacleTag)) ||
                      std::any_of(mMeshes.begin(), mMeshes.end(),
                                  [](const auto& entry) { return entry.second->HasTag(); });
  if (hasTag) mask |= kCategoryActiveVolume;
}

bool MultiMesh::ReadParameters() {
  if (!iObject::ReadParameters()) return false;
  for (auto& [key, mesh] : mMeshes) mesh->ReadParameters();
  return true;
}

bool MultiMesh::ResolveLinks() {
  if (!iObject::ResolveLinks()) return false;
  for (auto& [key, mesh] : mMeshes) mesh->SetFlag(FLAG_MARK, false);
  for (PolygonObject* object : mSources) {
    std::unique_ptr<Mesh>& mesh = mMeshes[{object->Id(), -1}];
    if (!mesh) {
      mesh = std::make_unique<Mesh>(Node(), mScene);
      mesh->ActAs(Mesh::Kind());
      mesh->mName = mName + "/" + object->Name();
      mesh->SetSource(object, -1);
      mesh->ReadParameters();
      mListChanged = true;
    }
    mesh->ResolveLinks();
    mesh->AfterLinks();
    mesh->SetFlag(FLAG_MARK, true);
  }
  if (std::erase_if(mMeshes, [](const auto& entry) { return !entry.second->Has(FLAG_MARK); }))
    mListChanged = true;
  return !mMeshes.empty();
}

bool MultiMesh::AfterLinks() {
  BaseNode* owner = Node() && Node()->Tag(kObstacleTag) ? Node() : nullptr;
  for (auto& [key, mesh] : mMeshes) mesh->SetTagOwner(owner);
  return true;
}

void MultiMesh::SetMoved(bool moved) {
  for (auto& [key, mesh] : mMeshes) mesh->SetMoved(moved);
  iObject::SetMoved(moved);
}

void MultiMesh::ClearLinks() {
  for (auto& [key, mesh] : mMeshes) mesh->ClearLinks();
  iObject::ClearLinks();
}

void MultiMesh::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!Has(FLAG_ENABLED)) return;
  for (auto& [key, mesh] : mMeshes) mesh->CheckDirty();
  if (mListChanged) MarkDirty(false);
  mListChanged = false;
}

bool MultiMesh::IsDirty() const {
  if (Has(FLAG_DIRTY)) return true;
  for (const auto& [key, mesh] : mMeshes)
    if (mesh->IsDirty()) return true;
  return false;
}

void MultiMesh::Reset() {
  for (auto& [key, mesh] : mMeshes) mesh->Reset();
}

void MultiMesh::Release(bool full) {
  for (auto& [key, mesh] : mMeshes) mesh->Release(full);
  iObject::Release(full);
}

void MultiMesh::Persist(StateArchive& archive) {
  iObject::Persist(archive);
  if (archive.IsLoading()) ResolveLinks();  // makes the meshes
  archive.Expect(mMeshes.size(), "the number of meshes of a group");
  for (auto& [key, mesh] : mMeshes) mesh->Persist(archive);
  archive(mListChanged);
}

void MultiMesh::Prepare() {
  if (!IsDirty()) return;
  if (mMeshes.empty()) return void(Deactivate("it has no objects; name some under 'objects'"));
  bool any = false;
  for (auto& [key, mesh] : mMeshes) {
    mesh->Prepare();
    any = any || mesh->HasTriangles();
  }
  if (!any) return void(Deactivate("none of its objects has polygons"));
  SetFlag(FLAG_ACTIVE, true);
}

void MultiMesh::Begin() {
  for (auto& [key, mesh] : mMeshes) mesh->Begin();
}

void MultiMesh::Evaluate(const EvaluationThreadData& data) {
  for (auto& [key, mesh] : mMeshes) mesh->Evaluate(data);
}

void MultiMesh::Finish() {
  for (auto& [key, mesh] : mMeshes) mesh->Finish();
}

void MultiMesh::CollectSubMeshes(std::vector<Mesh*>& out) const {
  for (const auto& [key, mesh] : mMeshes) out.push_back(mesh.get());
}

Mesh* MultiMesh::GetSubMesh(i32 index) const {
  index = std::max(index, 0);
  if (index >= GetSubMeshCount()) return nullptr;
  return std::next(mMeshes.begin(), index)->second.get();
}

void CollectMeshes(iBase* object, std::vector<Mesh*>& out) {
  if (!object) return;
  if (object->GetTypeId() == kTypeMesh) out.push_back(static_cast<Mesh*>(object));
  if (object->GetTypeId() != kTypeMultiMesh) return;
  static_cast<const MultiMesh&>(*object).CollectSubMeshes(out);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
