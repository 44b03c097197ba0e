// Faces at the rims of thin walls.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "fluids/flow/solid_surfaces.h"
#include "fluids/volume/thin_walls.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Which faces close whose way from centre to centre runs along the rim of a thin wall.
///
/// Beside such a way the wall is on one side and the open on the other. It leads through where, a
/// little to one side of it, nothing crosses it: no wall whose rim it touches, none of another
/// obstacle, and no thick solid. So a gap one cell wide between two rims is open wherever they lie
/// to the grid, and where plates meet rim to rim, or a rim meets a solid, nothing passes. Ways that
/// end at a centre may lead on along different sides of their rims; where surfaces that pass
/// through the centre part these sides, all faces of rims there close.
class ThinRims {
 public:
  struct Rim {
    VecInt3D at;  ///< the cell above the face
    i32 axis;
    u8 sides;         ///< those on which walls cross the way, see `ThinWalls::Rim`
    double open = 0;  ///< the part of the sides that nothing crosses, 0 where the face is closed
  };

  /// Takes what lies in a grid of `dims` cells, whose cell `offset` is the first of the walls'.
  void Add(const ThinWalls& walls, const VecInt3D& offset, const VecInt3D& dims);
  /// Tells how far they are open; of the same face those of several obstacles are one.
  void Decide(const GridBoundary& boundary, i32 threads);
  /// In order of z, y, x and axis.
  std::span<const Rim> All() const { return mRims; }

 private:
  /// Walls of one obstacle and their first cell.
  struct Walls {
    const ThinWalls* walls;
    VecInt3D offset;
    bool isSheet;
  };
  /// By sides, as those of a rim, along each axis.
  using Parted = std::array<u8, 3>;

  void Merge();
  double OpenPart(const SolidSurfaces& solids, const Rim& rim) const;
  bool IsCrossed(const SolidSurfaces& solids, const Rim& rim, i32 side) const;
  bool PartsSides(const SolidSurfaces& solids, const VecInt3D& cell) const;
  bool FindParted(const VecInt3D& cell, Parted& parted) const;

  const GridLayout* mLayout = nullptr;
  std::vector<Walls> mWalls;
  std::vector<Rim> mRims;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
