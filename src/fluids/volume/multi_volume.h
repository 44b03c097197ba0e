// Groups of volumes.
#pragma once
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "fluids/volume/volume_mesh.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One node for many volumes: it keeps a volume, with the parameters of this node, for each mesh
/// node of its list and for each mesh of the groups of meshes among them. Emitters and obstacles
/// take it as the sum of its members; it has no grid of its own.
class MultiVolume : public iVolume {
 public:
  MultiVolume() = default;
  MultiVolume(host::BaseNode* node, Scene* scene);
  static constexpr i32 kMeshesRow = 1100;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  void GetCategories(u32& mask) const override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  bool AfterLinks() override;
  void SetMoved(bool moved) override;
  void ClearLinks() override;
  void CheckDirty() override;
  bool IsDirty() const override;
  void Release(bool full) override;
  void Persist(StateArchive& archive) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;
  void Finish() override;
  void ExpandBoundsWithin(const Vec3d& low, const Vec3d& high, Vec3d& min, Vec3d& max) override;
  void CollectMembers(std::vector<VolumeBase*>& out) override;

  // The point operations take world positions and ask the members in order.

  /// The least distance over the members that have a grid; the largest double without one.
  double DistanceAtWorld(const Vec3d& p) const;
  /// `index` counts the members that don't hold `p` before the first one that does.
  bool IsInsideWorld(const Vec3d& p, f32 offset, i32& index) const;
  bool IsInsideWorld(const Vec3d& p, f32 offset = 0) const;
  /// The depth in the member of that index, with a negative one in the first that holds `p`; 1 when
  /// none does.
  double DepthWorld(const Vec3d& p, i32 index) const;
  /// The gradient of the member of that index, else of the first.
  Vec3d GradientAtWorld(const Vec3d& p, i32 index) const;
  // These stop at the first member that answers true, and are false when none does.
  bool PushOut(Vec3d& position, double margin) const;
  bool PushOutGrid(Vec3d& position, Vec3d& gridPosition, Vec3d& normal, double margin) const;
  bool ClosestSurface(const Vec3d& position, SurfaceRecord& record, double offset) const;

  i32 GetMemberCount() const { return static_cast<i32>(mMembers.size()); }

 private:
  /// By creation number of the mesh node, then by the index in a group of meshes (-1: a mesh).
  using Key = std::pair<host::NodeId, i32>;
  void FindOrMake(host::BaseNode* meshNode, i32 subIndex);
  void UniteBounds();
  const VolumeMesh* Member(i32 index) const;

  std::map<Key, std::unique_ptr<VolumeMesh>> mMembers;
  bool mHasTag = false;
  bool mListChanged = false;              ///< members came or went when the links were fetched
  std::vector<host::BaseNode*> mSources;  ///< nodes of meshes and groups of meshes
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
