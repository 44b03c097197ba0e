// What is solid round a flow, for particles.
#pragma once
#include <vector>

#include "fluids/advection/volume_solid.h"
#include "fluids/flow/grid_boundary.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The walls of a flow, and the obstacles in it as one solid. Positions are in simulation units.
class FlowSolid {
 public:
  explicit FlowSolid(const GridBoundary& boundary);
  bool IsEmpty() const { return !mBoundary->GetLevelSet() || !mBoundary->GetLevelSet()->mData; }
  /// Whether a look at its end says that a leg meets nothing, neither wall nor obstacle; `offset`
  /// is how many cells off surfaces it would stop.
  bool IsClear(const Leg& leg, double offset) const {
    if (IsEmpty()) return false;
    const EGrid<double>& level = *mBoundary->GetLevelSet();
    const double clear = SampleLinear(level, level.mLayout.ToCells(leg.to));
    return clear - (offset + kSlack) * level.mLayout.cellSize >=
               kSteepestSample * Length(leg.to - leg.from) &&
           (mIsPlain || IsFarFromOthers(leg));
  }
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
  /// The nearest obstacle at a place between it and a wall, or another one, less than a cell off:
  /// distances at nodes know the nearer of two solids alone, and close the gap.
  struct Gap {
    double distance = 0;
    const VolumeBase* owner = nullptr;  ///< null where no gap is
  };
  Gap GapAt(const Vec3d& p, double sampled) const;
  double DistanceToWalls(const Vec3d& p) const;
  /// No obstacle counts for a leg that the level set doesn't show.
  bool IsFarFromOthers(const Leg& leg) const;

  // Cells: what rounding may add to a distance.
  static constexpr double kSlack = 1e-6;
  static constexpr double kGapLook = 0.25;  ///< cells: where distances are larger no gap is closed

  const GridBoundary* mBoundary;
  bool mIsPlain = false;  ///< its level set is all that counts
  std::vector<VolumeSolid> mObstacles;
  std::vector<i32> mThin;     ///< those that the level set shows only in part
  std::vector<i32> mSpecial;  ///< those that move, and sheets
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
