// Domain walls and obstacles as one signed distance field.
#pragma once
#include <vector>

#include "fluids/fields/channel.h"
#include "fluids/volume/wall_bits.h"
#include "framework/iobject.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class VolumeBase;

/// A contact with a solid.
struct SolidContact {
  bool hit = false;
  Vec3d position{};
  Vec3d normal{};
  double depth = 0;
};

/// The solid level set on nodes, negative in solid: the six domain sides and all obstacle volumes.
///
/// Positions are in simulation units ("world"), relative to the grid's origin in simulation units
/// ("relative"), or relative times the inverse cell size ("index").
class GridBoundary : public iObject {
 public:
  GridBoundary();
  GridBoundary(const GridBoundary&) = default;
  i32 GetTypeId() const override { return kTypeGridBoundary; }
  bool ReadParameters(void* context = nullptr) override;
  bool ResolveLinks() override;
  void ClearLinks() override;
  void Reset() override { mLevelSet.Reset(); }
  void Release(bool full) override { mLevelSet.Release(full); }
  void ExpandBounds(Vec3d& min, Vec3d& max) override { mLevelSet.ExpandBounds(min, max); }
  bool ApplyBounds(const Vec3d& min, const Vec3d& max) override;
  void Persist(StateArchive& archive) override;
  /// Builds the level set over the nodes of a worker's cells, in stage 5 only.
  void Evaluate(const EvaluationThreadData& data) override;
  /// The box of all nodes whose value is at most 0; a single node grows by one on each axis.
  void ComputeActiveBox();

  double SampleWorld(const Vec3d& p) const;
  double SampleRelative(const Vec3d& p) const;
  double SampleIndex(const Vec3d& c) const;
  Vec3d GradientWorld(const Vec3d& p) const;
  Vec3d GradientRelative(const Vec3d& p) const;
  Vec3d GradientIndex(const Vec3d& c) const;
  /// The sample at `indexPosition` of `grid` isn't above 0 in single precision; `rescale` converts
  /// from the grid's own index space through the world. False without a level set.
  bool IsSolid(const Vec3d& indexPosition, const EGrid<double>& grid, bool rescale) const;
  bool ClampToDomain(Vec3d& relative) const;
  bool PushOut(Vec3d& position, bool relative, double margin) const;
  bool Collide(const Vec3d& position, bool absolute, SolidContact& contact, f32 radius) const;
  bool CollideDomain(const Vec3d& relative, SolidContact& contact, f32 radius) const;
  /// Corners of the node block round the point that lie in solid; bit order (x,y,z offsets) 000,
  /// 001, 010, 011, 100, 101, 110, 111.
  u32 SolidMask(const Vec3d& relative) const;
  /// Motion per step of the first obstacle that moves at `world`.
  Vec3d GetSolidVelocity(const Vec3d& world) const;
  bool IsOutsideOpenSide(const Vec3d& relative) const;

  EGrid<double>* GetLevelSet() const { return mLevelSet.GetGrid(0); }

  std::vector<VolumeBase*> mObstacles;
  u8 mWalls = 0;
  LevelField mLevelSet;

 private:
  void SetUpLevelSet();
};

/// The volumes that count as obstacles, groups replaced by their members.
void CollectObstacles(const Scene& scene, std::vector<VolumeBase*>& out);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
