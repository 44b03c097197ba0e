// A mesh as a volume.
#pragma once
#include <optional>

#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_base.h"
#include "fluids/volume/voxeliser.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A volume that voxelises a mesh node. It runs in every frame and measures anew only when the
/// mesh, the cells or its own parameters changed.
class VolumeMesh : public VolumeBase {
 public:
  VolumeMesh() = default;
  VolumeMesh(host::BaseNode* node, Scene* scene);
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kAffectsBoundsRow = 1001, kMeshRow = 1003, kShellRow = 1006,
                       kInvertedRow = 1007;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void CheckDirty() override;
  void Release(bool full) override;
  void Prepare() override;
  void Evaluate(const EvaluationThreadData& data) override;

  /// Makes the volume a member of a group: it voxelises `source` (a mesh node, of a group of meshes
  /// the one of that index) in place of the linked one.
  void SetSource(host::BaseNode* source, i32 subIndex) {
    mSource = host::BaseLink(source);
    mSubIndex = subIndex;
    mIsMember = true;
  }

  /// Of a mesh that deforms, that of the triangle that is nearest to `p` of those that are nearest
  /// to the nodes round it.
  Vec3d SurfaceVelocityAt(const Vec3d& p) const override;
  bool HasPassed(const Vec3d& p, const Vec3d& motion) const override;
  const ThinWalls* GetThinWalls() const override;
  std::optional<SharpSurface> GetSharpSurface() const override;
  std::optional<SharpSurface> GetOutline() const override;
  std::optional<SharpSurface> GetWallSurface() const override;
  bool IsSheet() const override { return mIsSheet; }
  void Persist(StateArchive& archive) override;
  /// Unit normal of the triangle that is nearest to node `index` of the grid; zero for a degenerate
  /// triangle, (0, 1, 0) where there is none.
  Vec3d TriangleNormalAt(i32 index) const;

 private:
  /// All that the distances depend on.
  struct State {
    const Mesh* mesh = nullptr;
    u32 revision = 0;
    double cellSize = 0;
    Vec3d metric{};
    double padding = 0;
    double thickness = 0;
    bool inverted = false;
    bool moves = false;
    friend bool operator==(const State&, const State&) = default;
  };
  State CurrentState() const;
  /// The surface of the present distances, as long as the mesh stays; nothing without triangles.
  std::optional<SharpSurface> GetSurface() const;
  bool IsSolid() const { return mHasTag && mShellThickness >= 1; }
  void FindSheet();
  void FindThinWalls(i32 threads);

  host::BaseLink mSource;  ///< of a member of a group
  bool mIsMember = false;
  VolumeVoxeliser mVoxeliser;
  ThinWalls mThinWalls;
  bool mInwards = false;                  ///< the triangles' normals point into the solid
  bool mIsSheet = false;                  ///< an obstacle whose triangles enclose nothing
  std::vector<VecInt3D> mSheetTriangles;  ///< what that was found of
  double mShellThickness = 1.0;
  i32 mThreadLimit = 0;                   ///< 0: the scene's thread count
  State mVoxelised;                       ///< what the grid was made from
  host::BaseNode* mLinkedMesh = nullptr;  ///< a mesh node or a group of them; members have a source
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
