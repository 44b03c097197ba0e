// A level set round the dense part of a scalar field.
#pragma once
#include "fluids/fields/channel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Makes a level set (simulation units, negative inside) of the cells whose density reaches a
/// threshold: seeds the inside with minus half a cell, empties it but for its outermost layer,
/// spreads distances (`FastSweeper`) and makes the inside negative. The outermost layer of cells is
/// never seeded, and keeps what it held where no distance reaches it.
class DensityToLevelset {
 public:
  /// False when there is nothing to work on: no grids, or grids of different shapes.
  bool Run(host::HostThread* thread);

  LevelField* mLevelSet = nullptr;  ///< its grid takes the result, its initial value means "far"
  const ScalarField* mSource = nullptr;
  double mThreshold = 0.0001;  ///< density from which on a cell is inside
  bool mSigned = true;         ///< false: distances of the inside stay positive
  /// Distances as they are along every direction (`EikonalSweeper`), instead of counted in steps to
  /// neighbours.
  bool mTrueDistances = false;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
