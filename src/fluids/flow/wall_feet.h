// Faces that thin walls close with the solids they stand on.
#pragma once
#include <optional>
#include <span>
#include <vector>

#include "fluids/flow/solid_surfaces.h"
#include "fluids/volume/thin_walls.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A wall that ends on a thick solid ends in a cell whose centre that solid holds. The way from
/// that centre to the next meets the wall inside of the solid or not at all, and what the solid
/// leaves open of the faces round such a cell would lead past the wall.
///
/// So such a cell stands for another place in it: of a lattice of places that which is farthest
/// from all surfaces. All others stand for their centres. A face is closed where no way leads
/// straight from the one cell's place to a place on the face and straight on to the other cell's,
/// free of walls and solids. Through the faces that are left any chain of cells is a way through
/// the open: a cell that the wall parts belongs to one of its sides.
class WallFeet {
 public:
  using Face = ThinWalls::Face;

  explicit WallFeet(const GridBoundary& boundary);

  /// Those to close besides `closed`, in order of z, y, x and axis. `isClosed(axis, cell above)`
  /// tells of those that needn't be found. The result doesn't depend on `threads`.
  template <class IsClosed>
  std::vector<Face> Find(std::span<const Face> closed, IsClosed&& isClosed, i32 threads) {
    std::vector<Face> asked = FacesAtFoot(closed, threads);
    std::erase_if(asked, [&](const Face& face) { return isClosed(face.axis, face.at); });
    return Closed(asked, threads);
  }

 private:
  /// A cell whose centre a thick solid holds, and the place that it stands for, in cells; none
  /// where solids fill it.
  struct Sunk {
    VecInt3D cell;
    std::optional<Vec3d> place;
  };

  bool HasDepth(const CellBox& cells) const;
  std::vector<VecInt3D> CellsBeside(std::span<const Face> closed) const;
  std::vector<Face> FacesAtFoot(std::span<const Face> closed, i32 threads);
  std::vector<Face> Closed(const std::vector<Face>& asked, i32 threads) const;
  double DistanceAt(const Vec3d& place) const;
  std::optional<Vec3d> FarthestPlace(const VecInt3D& cell) const;
  std::optional<Vec3d> PlaceOf(const VecInt3D& cell) const;
  bool LeadsThrough(const Face& face) const;
  bool IsFree(const Vec3d& from, const Vec3d& to) const;

  const EGrid<double>& mLevel;
  SolidSurfaces mSolids;
  std::vector<SharpSurface> mSheets;
  std::vector<Sunk> mSunk;  ///< in order of z, y and x
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
