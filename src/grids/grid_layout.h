// The place of a grid in the world.
#pragma once
#include "grids/grid.h"

namespace MELDO_GLOBAL {

/// Converts between host units ("world"), simulation units ("sim") and cells of one grid.
///
/// `cellSize` is single precision, so the ratios carry its rounding.
class GridLayout {
 public:
  Vec3d worldOrigin{};    ///< lower corner, host units
  Vec3d simOrigin{};      ///< lower corner, simulation units
  Vec3d worldMax{};       ///< worldOrigin + worldSize
  Vec3d simMax{};         ///< simOrigin + simSize
  VecInt3D originCell{};  ///< simOrigin in global cells
  VecInt3D maxCell{};     ///< simMax in global cells
  Vec3d worldHalfCell{};  ///< half of worldCell
  Vec3d worldSize{};      ///< extent, host units
  Vec3d simSize{};        ///< dims * cellSize
  VecInt3D dims{};        ///< cells
  i32 count = 0;
  i32 slice = 0;
  Vec3d worldCell{};    ///< worldSize / dims
  Vec3d simToWorld{};   ///< worldSize / simSize
  Vec3d worldToCell{};  ///< dims / worldSize
  Vec3d simToCell{};    ///< dims / simSize
  Vec3d worldToSim{};   ///< simSize / worldSize
  Vec3d simCell{};      ///< simSize / dims
  f32 halfCell = 0;
  f32 inverseCell = 0;
  f32 cellSize = 0;

  void Set(const VecInt3D& dims, const Vec3d& worldSize, f32 cellSize, const Vec3d& worldOrigin);
  void SetOrigin(const Vec3d& worldOrigin);
  /// Dims, world size, cell size and world origin exactly equal.
  bool Equals(const GridLayout& other) const;

  /// `p` (simulation units) is inside: simOrigin <= p < simMax, or with a margin of one cell
  /// simOrigin + cellSize <= p < simMax - cellSize, on all axes.
  bool Contains(const Vec3d& p, bool withMargin) const;
  /// The cell of `p` (simulation units); false if it lies outside, or with `excludeBorder` in the
  /// outermost layer.
  bool CellOf(const Vec3d& p, bool excludeBorder, VecInt3D& cell) const;
  /// `p` (simulation units) in cells from the lower corner.
  Vec3d ToCells(const Vec3d& p) const { return (p - simOrigin) * simToCell; }
  /// The smallest box of whole cells of size `cell` (simulation units) round this grid.
  void GetCellBox(double cell, Vec3d& min, Vec3d& max) const;
};

}  // namespace MELDO_GLOBAL
