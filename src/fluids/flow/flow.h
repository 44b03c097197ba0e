// The staggered flow without a node.
#pragma once
#include "fluids/fields/channel.h"
#include "fluids/flow/grid_boundary.h"
#include "fluids/flow/narrow_gaps.h"
#include "fluids/flow/scalar_walls.h"
#include "fluids/flow/scratch_grids.h"
#include "fluids/flow/solid_cells.h"
#include "fluids/flow/thin_faces.h"
#include "fluids/volume/volume_fractions.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A velocity on the faces of a box of cells, the solids that bound it, and the memory of those
/// that work on it. A solver owns one and decides where its box lies and what happens to it; a flow
/// knows neither the solver nor a node. Of its scene it takes the lattice of cells, the workers and
/// the length of the step. Lengths in metres (simulation units), times in seconds.
class Flow {
 public:
  explicit Flow(Scene* scene);
  Flow(const Flow&) = delete;
  Flow& operator=(const Flow&) = delete;

  /// Layout of the velocity grids; null without grids.
  const GridLayout* GetLayout() const;
  bool HasVelocity() const;
  /// Open fractions of the faces of `axis`; null before `BuildSolids` or when they don't fit the
  /// velocity.
  const EGrid<float>* GetOpenFaces(i32 axis) const;
  /// Strictly inside the velocity grid's box shrunk by one cell on every side.
  bool ContainsPoint(const Vec3d& world) const;

  /// Moves all grids to a box, a whole number of cells apart; data stays where it is in the world.
  /// A flow that a cache feeds keeps no source. What went wrong as a clause, or null.
  const char* Fit(const Vec3d& min, const Vec3d& max, bool isCached);
  /// Walls and obstacles become distances, those open fractions and flags of cells. Without
  /// obstacles, what stays as it is isn't built anew.
  void BuildSolids();
  /// Sets the velocity at the six sides: normal 0 at walls and copied outwards, tangential ghost
  /// layers at walls `factor` times the layer inside (1 slips freely, 0 sticks).
  void SetWallVelocities(double factor);
  /// How far the fastest obstacle moves in this step, in cells.
  double ObstacleTravel() const;
  /// Squares of the largest magnitudes of the three components, added up; at least 1e-8.
  double MeasureMaxSpeedSq() const;

  void Reset();
  /// Drops work grids; `full` drops the fields too.
  void Release(bool full);
  void Persist(StateArchive& archive);

  i32 Threads() const;
  /// Length of the step, s.
  double StepDuration() const;
  bool IsCancelled() const;

  VelocityField mVelocity;
  ScalarField mDivergence;  ///< the source of the step, cell centres, 1/s
  GridBoundary mBoundary;
  Grid_VolumeFractions mFractions;
  NarrowGaps mNarrowGaps;  ///< what is open that the distances don't show
  ThinFaces mThinFaces;    ///< what walls close that they don't show
  SolidCells mSolidCells;  ///< which cells are clear of solids in this step
  ScalarWalls mWallCells;  ///< which cells hold nothing, and what continues into them
  ScratchGrids mScratch;   ///< for the operators that work on this flow
  /// A liquid's level set at cell centres, negative inside; null for a gas.
  EGrid<double>* mSurface = nullptr;
  /// What the layers beyond walls have of the velocity inside, for what is carried along them: 1
  /// slips, -1 rests at the wall.
  double mWallSlip = 1;
  /// Something makes gas in this frame: what it carries gets thinner there. Set while links
  /// resolve.
  bool mExpands = false;
  /// The velocity has moved in this step; before that it is in its other buffer.
  bool mHasMoved = false;

 private:
  bool AreSolidsBuilt();

  Scene* mScene;
  /// Of the last solids, where they are walls alone.
  GridLayout mWallLayout;
  u8 mWalls = 0;
  i32 mAlike = 0;  ///< steps in a row with those
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
