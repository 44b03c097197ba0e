// Surfaces that hold what they should, place by place.
#pragma once
#include <vector>

#include "fluids/surfaces/near_blocks.h"
#include "grids/point_lookup.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Moves the surface of a level set, each place by what the cells about it lack or have too much.
///
/// What lies inside is what marching cubes enclose. The lack of each block near the surface and the
/// area there are spread over two blocks' width or three; their quotient is how far the surface
/// moves, a step of Newton's for the volume within that width, which is limited and, being spread,
/// tears nothing. A few rounds leave next to nothing missing, and nothing depends on what lies
/// farther off than they reach.
class SurfaceBalance {
 public:
  /// `cell` is that of the scene, simulation units; samples of `outside` or more know nothing of a
  /// surface. The grid, with its surface near to where it is going to be, stays the same one until
  /// the last call.
  SurfaceBalance(EGrid<double>& grid, double cell, double outside, i32 threads);

  /// What lies inside now is wanted.
  void WantWhatIs();
  /// What particles fill is wanted: each of them `volume`, cubed simulation units, over `full`,
  /// which is found where that is 0.
  void WantOf(const PointLookup& points, double volume, double full);
  /// By how much particles of that volume would overfill what is full all round: 1 where they
  /// nearly don't, 0 where too little of it is full to tell.
  double Full() const { return mFull; }
  /// Moves the surface to where it holds what is wanted. Results don't depend on threads.
  void Restore();

 private:
  void Measure();
  void MeasureBlock(i32 i);
  void TellByDeepBlocks(double wanted);
  /// `each` is what a particle fills of a block.
  void AllowForCrowds(double each);
  /// How far each block moves the surface out, simulation units; false where none does.
  bool FindWays(std::vector<double>& ways);
  void Move(const std::vector<double>& ways);
  void MoveBlock(i32 i, const std::vector<double>& ways, double* moved) const;
  bool KnowsSurface(const VecInt3D& at) const;
  double Moved(const VecInt3D& at, double way) const;
  void ShowLost();
  void ShowLost(i32 i);
  template <class F>
  void ForEachSampleOf(i32 i, F&& f) const;

  EGrid<double>& mGrid;
  double mCell, mOutside;
  NearBlocks mBlocks;
  /// How widely the lack is spread.
  static constexpr i32 kTurns = 2, kWideTurns = 3;

  i32 mThreads;
  i32 mTurns = kTurns;
  double mFull = 0;
  std::vector<double> mWanted, mHeld;  ///< in blocks
  std::vector<double> mGrowth;         ///< blocks for a block's length outwards
  std::vector<u8> mIsMoving;           ///< whether a block's samples move in a round
  std::vector<double> mMoved;          ///< the values of samples after it, block by block
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
