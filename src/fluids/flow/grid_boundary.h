// Domain walls and obstacles as one signed distance field.
#pragma once
#include <memory>
#include <vector>

#include "fluids/volume/wall_bits.h"
#include "grids/egrid.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class Scene;
class StateArchive;
class VolumeBase;

/// How far outside of a solid a point of a path that was pushed out comes to lie, in simulation
/// units.
constexpr double kPushOutMargin = 0.001;

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
class GridBoundary {
 public:
  static constexpr double kNoise = 1e-9;  ///< cells: smaller distances are 0
  /// Takes a box of a scene whose scale is `domain`; the distances are to be built anew. False, and
  /// without a level set, when there is no memory.
  bool Fit(const GridLayout& domain, const Vec3d& min, const Vec3d& max);
  /// Fills the level set from the walls and the enabled obstacles; the result doesn't depend on
  /// `threads`.
  void Build(i32 threads);
  /// The box of all nodes whose value is at most 0; a single node grows by one on each axis.
  void ComputeActiveBox(i32 threads);
  /// Nothing is solid.
  void Reset();
  void Release() { mLevelSet.reset(); }
  void Persist(StateArchive& archive);

  double SampleWorld(const Vec3d& p) const;
  double SampleRelative(const Vec3d& p) const;
  double SampleIndex(const Vec3d& c) const;
  Vec3d GradientWorld(const Vec3d& p) const;
  Vec3d GradientRelative(const Vec3d& p) const;
  Vec3d GradientIndex(const Vec3d& c) const;
  /// The sample at `indexPosition` of `grid` isn't above 0 in single precision; `rescale` converts
  /// from the grid's own index space through the world. False without a level set.
  bool IsSolid(const Vec3d& indexPosition, const EGrid<double>& grid, bool rescale) const;
  /// Brings a point back through those of `sides`, `WallBit`s, that it lies beyond.
  bool ClampToDomain(Vec3d& relative, u8 sides = kWallsAll) const;
  bool PushOut(Vec3d& position, bool relative, double margin, u8 sides = kWallsAll) const;
  bool Collide(const Vec3d& position, bool absolute, SolidContact& contact, f32 radius) const;
  bool CollideDomain(const Vec3d& relative, SolidContact& contact, f32 radius) const;
  /// Corners of the node block round the point that lie in solid; bit order (x,y,z offsets) 000,
  /// 001, 010, 011, 100, 101, 110, 111.
  u32 SolidMask(const Vec3d& relative) const;
  /// Motion per step of the surface nearest to `world`, of those whose grids hold it; 0 where that
  /// obstacle rests.
  Vec3d GetSolidVelocity(const Vec3d& world) const;
  /// The same for the flow beside it, times the transfer factors of the obstacle: a rigid body
  /// that forces move already has the velocity with which it goes on, behind a projection with what
  /// the fluid has changed of it.
  Vec3d GetFlowVelocity(const Vec3d& world) const;
  /// `GetFlowVelocity` isn't 0 everywhere.
  bool DrivesFlow() const;
  /// The longest way that a point of an obstacle goes in this step, simulation units.
  static double TravelOf(const VolumeBase& obstacle);
  double ObstacleTravel() const;
  struct Mover {
    const VolumeBase* obstacle;
    CellBox reach;  ///< the inner cells that it may cover or leave
    double travel;  ///< how far it moves at most in this step, simulation units
  };
  /// The obstacles that move in this step.
  std::vector<Mover> Movers() const;
  /// Widens a box (cells of the domain) until all obstacles that move in this step and come within
  /// `margin` cells of it lie in it with as much room on every side, as far as they lie between
  /// `low` and `high`.
  void WidenToMovers(double margin, const Vec3d& low, const Vec3d& high, Vec3d& min,
                     Vec3d& max) const;
  /// What a node's distance was before the obstacles moved in this step.
  double DistanceBefore(const VecInt3D& node) const;
  bool IsOutsideOpenSide(const Vec3d& relative) const;

  EGrid<double>* GetLevelSet() const { return mLevelSet.get(); }

  std::vector<VolumeBase*> mObstacles;
  u8 mWalls = 0;
  std::unique_ptr<EGrid<double>> mLevelSet;

 private:
  const VolumeBase* MoverAt(const Vec3d& world) const;
  void BuildLayer(i32 z);
  double WallDistance(const VecInt3D& node) const;
};

/// The volumes that count as obstacles, groups replaced by their members.
void CollectObstacles(const Scene& scene, std::vector<VolumeBase*>& out);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
