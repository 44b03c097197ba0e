// Groups of meshes.
#pragma once
#include <map>
#include <memory>
#include <utility>

#include "fluids/mesh/mesh.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One node for many host objects: it keeps a mesh for each polygon object of its list.
class MultiMesh : public iObject {
 public:
  MultiMesh() = default;
  MultiMesh(host::BaseNode* node, Scene* scene);
  static constexpr i32 kObjectsRow = 1050;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  /// An obstacle when its node or any of its objects carries the tag.
  void GetCategories(u32& mask) const override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  bool AfterLinks() override;
  void SetMoved(bool moved) override;
  void ClearLinks() override;
  void CheckDirty() override;
  bool IsDirty() const override;
  void Reset() override;
  void Release(bool full) override;
  void Persist(StateArchive& archive) override;
  void Prepare() override;
  void Begin() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;

  i32 GetSubMeshCount() const { return static_cast<i32>(mMeshes.size()); }
  /// The mesh at that place of the group; an index below 1 gives the first, one beyond the count
  /// null.
  Mesh* GetSubMesh(i32 index) const;
  /// Appends all of them in their order.
  void CollectSubMeshes(std::vector<Mesh*>& out) const;

 private:
  /// By creation number of the host object, then by the index of the clone (-1 for the object).
  using Key = std::pair<host::NodeId, i32>;
  std::map<Key, std::unique_ptr<Mesh>> mMeshes;
  bool mListChanged = false;  ///< meshes came or went when the links were fetched
  std::vector<host::PolygonObject*> mSources;
};

/// The meshes that an object of the mesh category stands for: a mesh itself, or those of a group in
/// its order.
void CollectMeshes(iBase* object, std::vector<Mesh*>& out);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
