// What is solid round a flow, for particles.
#pragma once
#include <vector>

#include "fluids/advection/volume_solid.h"
#include "fluids/flow/grid_boundary.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The walls of a flow, and the obstacles in it as one solid. Positions are in simulation units.
class FlowSolid {
 public:
  explicit FlowSolid(const GridBoundary& boundary);
  bool IsEmpty() const { return !mBoundary->GetLevelSet() || !mBoundary->GetLevelSet()->mData; }
  /// Finds the first wall that a leg passes.
  bool MeetWall(const Leg& leg, const Touch& touch, ParticleContact& contact) const;
  /// Finds where a leg meets an obstacle of the level set, or a wall in it.
  bool MeetLevelSet(const Leg& leg, const Touch& touch, ParticleContact& contact) const;
  /// The obstacles one by one.
  const std::vector<VolumeSolid>& Obstacles() const { return mObstacles; }
  /// The level set isn't enough for a leg: it may meet an obstacle that moves, or a sheet.
  bool AsksObstacles(const Leg& leg) const;

  SolidDistance At(const Vec3d& p) const;
  Vec3d NormalAt(const Vec3d& p, const SolidDistance& at) const;
  double CellSize() const { return mBoundary->GetLevelSet()->mLayout.cellSize; }
  const GridBoundary& Boundary() const { return *mBoundary; }

 private:
  const GridBoundary* mBoundary;
  std::vector<VolumeSolid> mObstacles;
  std::vector<i32> mThin;     ///< those that the level set shows only in part
  std::vector<i32> mSpecial;  ///< those that move, and sheets
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
