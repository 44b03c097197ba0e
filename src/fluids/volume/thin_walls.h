// Parts of a mesh that are too thin for distances at nodes.
#pragma once
#include <vector>

#include "fluids/volume/sharp_surface.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What a mesh closes where it is thinner than two cells. Distances at nodes show such a wall as
/// more or less open, or not at all, as it happens to lie between the nodes. Here a face between
/// two cells is closed when a thin part's surface crosses the way from one cell's centre to the
/// other's: a way from cell to cell through faces that are left can't pass a wall without a hole,
/// however thin it is and however it stands. Of a mesh that moves the faces between cells whose
/// centres lie inside of such a part are closed too: its closed faces push. A sheet of triangles
/// that enclose nothing closes all faces that it crosses so. Indices are of the volume's own cells
/// and faces.
class ThinWalls {
 public:
  struct Face {
    VecInt3D at;  ///< the cell above it
    i32 axis;
    friend bool operator==(const Face&, const Face&) = default;
  };

  /// A face whose way runs along the rim of a wall, with the sides on which the wall crosses it:
  /// bit j of the four diagonals beside the way, above it along the next axis where j has bit 0,
  /// along the one after that where it has bit 1.
  struct Rim {
    Face face;
    u8 sides;
  };
  static constexpr u8 kAllSides = 15;

  enum Kind { kSolid, kSheet };

  /// Finds all; the result doesn't depend on `threads`.
  void Find(SharpSurface surface, Kind kind, bool moves, i32 threads);
  void Clear();

  /// In order of z, y, x and axis, each once, those at rims too.
  const std::vector<Face>& Faces() const { return mFaces; }
  /// Those of them that close only where something else does the rest, in the same order.
  const std::vector<Rim>& Rims() const { return mRims; }
  bool Closes(const VecInt3D& at, i32 axis) const;
  /// The sides on which the surface crosses a way: none, all, or those of a rim.
  u8 SidesAt(const VecInt3D& at, i32 axis) const;
  /// Cells beside such faces whose centre lies in the solid.
  const std::vector<VecInt3D>& Filled() const { return mFilled; }

 private:
  class Crossings;
  void FindFilled(const SharpSurface& surface, bool moves);
  template <class Exists>
  void CloseInside(const SharpSurface& surface, Exists&& exists);
  void TakeFaces();
  void AddInside(const Face& face);
  static void SortFaces(std::vector<Face>& faces);

  std::vector<Face> mFaces;
  std::vector<Rim> mRims;
  std::vector<Face> mInside;  ///< faces that no surface crosses
  std::vector<VecInt3D> mFilled;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
