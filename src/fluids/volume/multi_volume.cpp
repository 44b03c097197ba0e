#include "fluids/volume/multi_volume.h"

#include "fluids/mesh/multi_mesh.h"
#include "framework/node_kind.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& MultiVolume::Kind() {
  static const NodeKind kind = {
      .id = 1300133,
      .type = "volume_multi",
      .label = "MultiVolume",
      .className = "MultiVolume",
      .typeId = kTypeMultiVolume,
      .list = kListGeometry,
      .categories = kCategoryVolume,
      .flags = "SV",
      .stages = {kVolumes},
      .priority = 0,
      .menu = {"Bodies"},
      .purpose = "one volume of several meshes: a whole sculpture as one obstacle or source",
      .example =
          {{example::kBall, example::kCube},
           {example::kBallMesh,
            R"({ "type": "mesh", "name": "cube mesh", "parameters": { "object": "cube" } })",
            R"({ "type": "volume_multi", "name": "both", "parameters": { "meshes": ["ball mesh", "cube mesh"] }, "obstacle": {} })",
            example::kGas}},
      .rows = Parameters,
      .make = MakeNode<MultiVolume>,
  };
  return kind;
}

const ParameterTable& MultiVolume::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = VolumeMesh::Parameters();
    std::erase_if(rows, [](const ParameterRow& row) { return row.id == VolumeMesh::kMeshRow; });
    rows.push_back(LinksRow(kMeshesRow, "meshes",
                            "what the volume is made of; inside any of them is inside",
                            {Mesh::Kind().id, MultiMesh::Kind().id})
                       .To(&MultiVolume::mSources)
                       .Required());
    rows.push_back(ButtonRow(1101, "take_children", "makes mesh nodes for the node's children"));
    return rows;
  }();
  return table;
}

MultiVolume::MultiVolume(BaseNode* node, Scene* scene) : iVolume(node, scene) {}

void MultiVolume::GetCategories(u32& mask) const {
  iVolume::GetCategories(mask);
  if (mHasTag) mask |= kCategoryActiveVolume;
}

bool MultiVolume::ReadParameters() {
  if (!iVolume::ReadParameters()) return false;
  SetFlag(FLAG_AFFECTS_BOUNDS, mWidensBounds);
  for (auto& [key, member] : mMembers) member->ReadParameters();
  return true;
}

void MultiVolume::FindOrMake(BaseNode* meshNode, i32 subIndex) {
  std::unique_ptr<VolumeMesh>& member = mMembers[{meshNode->Id(), subIndex}];
  if (!member) {
    member = std::make_unique<VolumeMesh>(Node(), mScene);
    member->ActAs(VolumeMesh::Kind());
    member->SetSource(meshNode, subIndex);
    mListChanged = true;
  }
  member->mName = mName + "/" + meshNode->Name();
  if (subIndex >= 0) member->mName.append("/").append(std::to_string(subIndex));
  member->ReadParameters();
  member->ResolveLinks();
  member->AfterLinks();
  member->SetFlag(FLAG_MARK, true);
}

bool MultiVolume::ResolveLinks() {
  if (!iVolume::ResolveLinks()) return false;
  for (auto& [key, member] : mMembers) member->SetFlag(FLAG_MARK, false);
  for (BaseNode* node : mSources) {
    if (node->Type() == Mesh::Kind().id) FindOrMake(node, -1);
    if (node->Type() != MultiMesh::Kind().id) continue;
    auto* group = static_cast<MultiMesh*>(
        mScene->FindObject(node, kListGeometry, kBitMesh, kBitAny, kTypeMultiMesh));
    if (!group) continue;
    // The group may stand later in the list: its meshes are brought up to date first.
    group->ResolveLinks();
    for (i32 i = 0; i < group->GetSubMeshCount(); ++i) FindOrMake(node, i);
  }
  if (std::erase_if(mMembers, [](const auto& entry) { return !entry.second->Has(FLAG_MARK); }))
    mListChanged = true;
  return !mMembers.empty();
}

bool MultiVolume::AfterLinks() {
  mHasTag = Node() && Node()->Tag(kObstacleTag);
  for (auto& [key, member] : mMembers) member->AfterLinks();
  return true;
}

void MultiVolume::SetMoved(bool moved) {
  for (auto& [key, member] : mMembers) member->SetMoved(moved);
  iVolume::SetMoved(moved);
}

void MultiVolume::ClearLinks() {
  for (auto& [key, member] : mMembers) member->ClearLinks();
  iVolume::ClearLinks();
}

void MultiVolume::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iVolume::CheckDirty();
  if (!Has(FLAG_ENABLED)) return;
  for (auto& [key, member] : mMembers) member->CheckDirty();
  if (mListChanged) MarkDirty(false);
  mListChanged = false;
}

bool MultiVolume::IsDirty() const {
  if (Has(FLAG_DIRTY)) return true;
  for (const auto& [key, member] : mMembers)
    if (member->IsDirty()) return true;
  return false;
}

void MultiVolume::Release(bool full) {
  for (auto& [key, member] : mMembers) member->Release(full);
  UniteBounds();
  iVolume::Release(full);
}

void MultiVolume::Persist(StateArchive& archive) {
  iVolume::Persist(archive);
  if (archive.IsLoading()) ResolveLinks();  // makes the volumes
  archive.Expect(mMembers.size(), "the number of volumes of a group");
  for (auto& [key, member] : mMembers) member->Persist(archive);
  archive(mListChanged, mHasTag, mBoxMin, mBoxMax, mCentre);
}

void MultiVolume::UniteBounds() {
  mBoxMin = {kHuge, kHuge, kHuge};
  mBoxMax = {-kHuge, -kHuge, -kHuge};
  for (const auto& [key, member] : mMembers) {
    if (!member->HasGridData()) continue;
    mBoxMin = Min(mBoxMin, member->mBoxMin);
    mBoxMax = Max(mBoxMax, member->mBoxMax);
  }
  mCentre = mBoxMin.x > mBoxMax.x ? Vec3d{} : mBoxMin + (mBoxMax - mBoxMin) * 0.5;
}

void MultiVolume::ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) {
  for (auto& [key, member] : mMembers)
    if (member->HasGridData()) member->ExpandBoundsWithin(low, high, min, max);
}

void MultiVolume::Prepare() {
  if (!IsDirty()) return;
  bool any = false;
  for (auto& [key, member] : mMembers) {
    member->Prepare();
    any = any || member->HasGridData();
  }
  UniteBounds();
  if (mMembers.empty()) return void(Deactivate("it has no meshes; name some under 'meshes'"));
  if (!any) return void(Deactivate("none of its volumes has a grid"));
  SetFlag(FLAG_ACTIVE, true);
}

void MultiVolume::Evaluate(const EvaluationThreadData& data) {
  for (auto& [key, member] : mMembers) member->Evaluate(data);
}

void MultiVolume::Finish() {
  for (auto& [key, member] : mMembers) member->Finish();
}

void MultiVolume::CollectMembers(std::vector<VolumeBase*>& out) {
  for (auto& [key, member] : mMembers) out.push_back(member.get());
}

// ---- point operations -------------------------------------------------------------------------

const VolumeMesh* MultiVolume::Member(i32 index) const {
  if (index < 0 || index >= GetMemberCount()) return nullptr;
  return std::next(mMembers.begin(), index)->second.get();
}

double MultiVolume::DistanceAtWorld(const Vec3d& p) const {
  double least = kHuge;
  for (const auto& [key, member] : mMembers)
    if (member->HasGridData()) least = std::min(least, member->DistanceAtWorld(p));
  return least;
}

bool MultiVolume::IsInsideWorld(const Vec3d& p, f32 offset, i32& index) const {
  index = 0;
  for (const auto& [key, member] : mMembers) {
    if (member->IsInsideWorld(p, offset)) return true;
    ++index;
  }
  return false;
}

bool MultiVolume::IsInsideWorld(const Vec3d& p, f32 offset) const {
  i32 index;
  return IsInsideWorld(p, offset, index);
}

double MultiVolume::DepthWorld(const Vec3d& p, i32 index) const {
  if (index < 0 && !IsInsideWorld(p, 0, index)) return 1.0;
  const VolumeMesh* member = Member(index);
  return member ? member->DepthWorld(p) : 1.0;
}

Vec3d MultiVolume::GradientAtWorld(const Vec3d& p, i32 index) const {
  const VolumeMesh* member = Member(index);
  if (!member) member = Member(0);
  return member ? member->GradientAtWorld(p) : Vec3d{};
}

bool MultiVolume::PushOut(Vec3d& position, double margin) const {
  for (const auto& [key, member] : mMembers)
    if (member->PushOut(position, true, margin)) return true;
  return false;
}

bool MultiVolume::PushOutGrid(Vec3d& position, Vec3d& gridPosition, Vec3d& normal,
                              double margin) const {
  for (const auto& [key, member] : mMembers)
    if (member->PushOutGrid(position, gridPosition, normal, margin)) return true;
  return false;
}

bool MultiVolume::ClosestSurface(const Vec3d& position, SurfaceRecord& record,
                                 double offset) const {
  for (const auto& [key, member] : mMembers)
    if (member->ClosestSurface(position, record, offset)) return true;
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
