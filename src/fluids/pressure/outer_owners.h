// Which cell of the lattice round a container each of its fine cells belongs to.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "fluids/pressure/outer_lattice.h"
#include "grids/egrid.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class ThinWalls;

/// What the search for owners looks at, for one step.
struct OwnerSearch {
  const OuterLattice* lattice = nullptr;
  const std::array<std::vector<i32>, 3>* cuts = nullptr;  ///< fine cells of the inner lines
  std::array<const EGrid<float>*, 3> open{};              ///< open fractions of fine faces
  VecInt3D origin{};                                      ///< of the fine cells in the domain
  u8 freeSides = 0;                                       ///< bits of `WallBit`
  i32 threads = 1;
  std::vector<CellBox> solids;  ///< fine cells that the grids of solids cover
  struct Wall {
    const ThinWalls* walls;
    VecInt3D origin;  ///< in the domain
  };
  std::vector<Wall> walls;

  bool IsOpen(i32 axis, const VecInt3D& face) const {
    return (*open[axis])(face.x, face.y, face.z) > 0;
  }
  bool IsNearSolid(const CellBox& box) const;
  /// A wall crosses the way from one cell of the domain to another, along an axis at a time.
  bool IsParted(const VecInt3D& from, const VecInt3D& to) const;
};

/// The fine cells that a wall parts from the centre of the lattice cell that they lie in.
///
/// Of a lattice cell that a wall cuts, one side is its own: that of its centre, or where that lies
/// in a solid, the largest. What lies on the other side belongs to the next lattice cell that open
/// faces lead to, inside of the container or beyond a free side of it, and to none where nothing
/// leads on. So what the two sides of a wall bring about is never added up, however the wall lies
/// to the lattice. The result doesn't depend on the number of workers.
class OuterOwners {
 public:
  static constexpr i32 kNone = -1;
  struct Stray {
    i32 cell;           ///< index of the fine cell
    i32 owner;          ///< index of the cell of the lattice, or `kNone`
    VecInt3D at, home;  ///< the fine cell, and the cell of the lattice that it lies in
  };

  void Find(const OwnerSearch& search);
  /// In order of their cells.
  std::span<const Stray> Strays() const { return mStrays; }
  /// The index of the cell of the lattice that an inner fine cell belongs to, or `kNone`.
  i32 OwnerOf(const VecInt3D& cell) const;

 private:
  static constexpr i32 kUnknown = -2;

  void FindStrays(const OwnerSearch& search, i32 layer, std::vector<Stray>& found) const;
  void FollowFaces(const OwnerSearch& search);
  void LeaveBySides(const OwnerSearch& search);

  VecInt3D mCells{};                      ///< of the fine grid
  VecInt3D mLattice{};                    ///< cells of the lattice
  std::array<std::vector<i32>, 3> mHome;  ///< by fine cell of an axis, the cell of the lattice
  std::vector<Stray> mStrays;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
