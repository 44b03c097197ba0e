// Faces of a flow that walls close which are too thin for its distances.
#pragma once
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_fractions.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class GridBoundary;
class ThinRims;

/// The faces and cells of a flow's grid that the thin walls of its obstacles close. What the eight
/// samples round a point tell of both sides of such a wall has to be told apart: a path stops at a
/// closed face, and a sample takes part only if a way through open faces leads to it.
class ThinFaces {
 public:
  enum Bit : u8 { kLowX = 1, kLowY = 2, kLowZ = 4, kFilled = 8 };
  using Face = ThinWalls::Face;
  enum Range { kInner, kOutermostToo };
  enum Cells { kWithoutFilled, kFilledToo };

  /// Gathers the thin walls of all enabled obstacles in the grid of a boundary's level set. The
  /// result doesn't depend on `threads`.
  void Build(const GridBoundary& boundary, i32 threads);
  void Release() {
    mBits.reset();
    mFaces.clear();
    mRims.clear();
  }
  /// There are some; without them nothing else may be asked.
  bool HasAny() const { return mBits != nullptr; }

  /// All of them, in the grid.
  std::span<const Face> Faces() const { return mFaces; }
  /// The bits of all cells.
  const u8* Bits() const { return mBits->mData; }
  /// Closes the faces in the open fractions of a flow, at rims in part.
  void Close(Grid_VolumeFractions& fractions) const;
  bool ClosesFace(i32 axis, i32 x, i32 y, i32 z) const {
    return x < mBits->mNx && y < mBits->mNy && z < mBits->mNz && ((*mBits)(x, y, z) >> axis & 1);
  }
  /// The cell's centre lies in a thin wall.
  bool IsFilled(const VecInt3D& cell) const { return (*mBits)(cell.x, cell.y, cell.z) & kFilled; }

  /// The end of a straight way, or where it meets a closed face, just before it; in cells. What
  /// cells hold can't come out of filled ones. Gas can: the open faces of a cell that is filled by
  /// its centre lead through it.
  Vec3d Stop(const Vec3d& from, const Vec3d& to, Cells cells = kWithoutFilled) const;
  /// Which of the eight cells round `p` (cells) can be reached from the one that holds `p`, staying
  /// among them: bit z + 2 y + 4 x of the offset from the lowest. All of them where no closed face
  /// lies between, else of the outermost layer those only that are asked for: what continues there
  /// may be that of the other side.
  u8 Reach(const Vec3d& p, Range range = kInner) const;
  /// The same of the eight faces of an axis round `p`: those count that a straight way from `p`
  /// leads to, and closed ones, which have the velocity of their wall.
  u8 ReachFaces(const Vec3d& p, i32 axis) const;

 private:
  void Add(const ThinRims& rims);
  void AddFeet(const GridBoundary& boundary, i32 threads);
  Vec3d StopBetween(const Vec3d& from, const Vec3d& to, Cells cells) const;

  std::unique_ptr<Grid<u8>> mBits;  ///< by cell
  std::vector<Face> mFaces;
  std::vector<std::pair<Face, double>> mRims;  ///< and what is open of them at most
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
