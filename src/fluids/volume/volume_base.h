// Volumes: host geometry as signed distance.
#pragma once
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "fluids/mesh/mesh.h"
#include "fluids/volume/volume_fractions.h"
#include "framework/cached_grids.h"
#include "framework/iobject.h"
#include "grids/egrid.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Where a point stands to a volume's surface.
struct SurfaceRecord {
  bool inside = false;
  Vec3d point{};
  Vec3d normal{0, 1, 0};
  double distance = 0;
};

class SharpSurface;
class ThinWalls;
class VolumeBase;

/// Root of all volumes: the box that they occupy, in simulation units.
class iVolume : public iObject {
 public:
  using iObject::iObject;
  iVolume() = default;
  void ExpandBounds(Vec3d& min, Vec3d& max) override;
  /// Appends the volumes with grids that this object stands for: itself, or a group's members.
  virtual void CollectMembers(std::vector<VolumeBase*>& /*out*/) {}

  VecInt3D mCells{};
  Vec3d mExtent{};  ///< cells times the domain's cell, host units
  Vec3d mBoxMin{kHuge, kHuge, kHuge};
  Vec3d mBoxMax{-kHuge, -kHuge, -kHuge};
  Vec3d mCentre{};
  Vec3d mOrigin{};  ///< lower corner, host units
  double mCellSize = 1.0;
  bool mWidensBounds = false;  ///< the simulation covers it even where nothing is in it
  bool mHasSecondBox = false;  ///< a cached placement that `ExpandBounds` merges in
  GridLayout mSecondBox;

  static constexpr double kHuge = std::numeric_limits<double>::max();
};

/// A volume with a signed distance grid on nodes, negative inside. Without a grid, distances read
/// 0 and tests are false. Positions are in cells of the grid ("grid"), in simulation units from its
/// origin ("relative"), or in simulation units ("world").
class VolumeBase : public iVolume, public CachedGrids {
 public:
  VolumeBase() = default;
  VolumeBase(host::BaseNode* node, Scene* scene) : iVolume(node, scene) {}
  void GetCategories(u32& mask) const override;
  bool ReadParameters() override;
  bool AfterLinks() override;
  void ClearLinks() override;
  bool IsDirty() const override;
  void Release(bool full) override;
  void Persist(StateArchive& archive) override;
  void CollectMembers(std::vector<VolumeBase*>& out) override { out.push_back(this); }

  /// Makes the box the empty one.
  void ClearBox() {
    mBoxMin = {kHuge, kHuge, kHuge};
    mBoxMax = {-kHuge, -kHuge, -kHuge};
  }
  /// Pads `mBoxMin` and `mBoxMax`, snaps them outwards to whole cells of `mCellSize` and sets the
  /// cell counts; no cells when the box isn't finite or too large to count.
  virtual void UpdateBounds();
  /// Places the grid on the box, in the memory that it has if the size is the same, and fills it
  /// with the largest double. False, without a grid and inactive, when it can't be had.
  virtual bool AllocateGrid();

  double DistanceAtGrid(const Vec3d& c) const { return mGrid ? SampleLinear(*mGrid, c) : 0.0; }
  double DistanceAtRelative(const Vec3d& p) const {
    return mGrid ? SampleLinear(*mGrid, p * mGrid->mLayout.simToCell) : 0.0;
  }
  double DistanceAtWorld(const Vec3d& p) const {
    return mGrid ? SampleLinear(*mGrid, mGrid->mLayout.ToCells(p)) : 0.0;
  }
  /// Box minimum <= p < box maximum; false without a grid.
  bool IsInBounds(const Vec3d& p) const {
    return mGrid && mBoxMin.x <= p.x && p.x < mBoxMax.x && mBoxMin.y <= p.y && p.y < mBoxMax.y &&
           mBoxMin.z <= p.z && p.z < mBoxMax.z;
  }
  /// Distance less `offset` is below 0 in single precision.
  bool IsInsideRelative(const Vec3d& p, f32 offset = 0) const;
  bool IsInsideWorld(const Vec3d& p, f32 offset = 0) const;
  /// |distance| over the greatest interior distance.
  double DepthRelative(const Vec3d& p) const;
  double DepthWorld(const Vec3d& p) const;
  /// Moves an inside point along the gradient so that it ends `margin` cells short of the surface;
  /// false when it is outside.
  bool PushOut(Vec3d& position, bool isWorld, double margin) const;
  /// The same on a world position; also returns its grid position and the unit normal.
  bool PushOutGrid(Vec3d& position, Vec3d& gridPosition, Vec3d& normal, double margin) const;
  /// Fills `record` for the surface moved outwards by `offset`; returns whether `position` (world)
  /// is inside of it.
  bool ClosestSurface(const Vec3d& position, SurfaceRecord& record, double offset) const;
  Vec3d GradientAtGrid(const Vec3d& c) const;
  Vec3d GradientAtRelative(const Vec3d& p) const;
  Vec3d GradientAtWorld(const Vec3d& p) const;

  /// Motion of the surface in the present substep at its point that is nearest to `p`, simulation
  /// units per step; 0 without a mesh.
  virtual Vec3d SurfaceVelocityAt(const Vec3d& p) const;
  /// The surface has passed over a point outside of it that saw it from its other side before the
  /// motion there, simulation units, of this step.
  virtual bool HasPassed(const Vec3d& /*p*/, const Vec3d& /*motion*/) const { return false; }
  /// What is too thin for the distances; null where nothing is known of it.
  virtual const ThinWalls* GetThinWalls() const { return nullptr; }
  /// The surface of an obstacle between its nodes; nothing without triangles or for hollow shells,
  /// and none where triangles enclose nothing.
  virtual std::optional<SharpSurface> GetSharpSurface() const;
  /// The same of what its triangles enclose, whether an obstacle or not.
  virtual std::optional<SharpSurface> GetOutline() const;
  /// The same of an obstacle whose triangles may enclose nothing: that of its thin walls.
  virtual std::optional<SharpSurface> GetWallSurface() const;
  /// An obstacle whose triangles enclose nothing: its distances have no sign.
  virtual bool IsSheet() const { return false; }
  /// Another number for other distances.
  u32 GridRevision() const { return mGridRevision; }

  /// How much of the grid's cells, faces or edges (bits of `FractionKind`) lies inside; measured
  /// when it is asked for and something changed since. Null without a grid, or without memory. Not
  /// for workers.
  const Grid_VolumeFractions* GetFractions(u32 kinds,
                                           FractionMethod method = FractionMethod::Analytic);
  /// The cells, without the outermost layer, whose mean distance over their corners isn't above 0:
  /// their volume in cubed simulation units.
  double VoxelVolume() const;

  EGrid<double>* GetGrid() const { return mGrid.get(); }
  bool HasGridData() const { return mGrid && mGrid->mData; }
  /// The source mesh, or null.
  Mesh* GetMesh() const { return mMesh; }

  std::array<EGrid<double>*, 3> GetCachedGrids() override { return {GetGrid(), nullptr, nullptr}; }
  i32 CachedKind() const override { return kNode; }
  bool TakeCachedPlace(const GridLayout& layout, i32 kind) override;
  /// Places the grid where the cache has it; false, and inactive, when it can't be had.
  bool AllocateCachedGrid();

  std::unique_ptr<EGrid<double>> mGrid;
  bool mInverted = false;
  double mPaddingCells = 0;
  Vec3d mPadding{2, 2, 2};         ///< cells
  bool mHasTag = false;            ///< the node carries the obstacle tag
  bool mDerivesMass = false;       ///< the space of its rigid body is `VoxelVolume`
  i32 mSubIndex = -1;              ///< mesh of a group of meshes to take, below 1 the first
  double mMaximumDistance = -1e7;  ///< greatest interior distance of the voxeliser

 protected:
  /// The distances are no longer those that the fractions were measured from.
  void MarkGridChanged() {
    mHasFractions = false;
    ++mGridRevision;
  }

  Mesh* mMesh = nullptr;

 private:
  Grid_VolumeFractions mFractions;
  bool mHasFractions = false;  ///< they are those of the present grid
  u32 mGridRevision = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
