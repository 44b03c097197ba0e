// Which cells of a grid no solid can touch.
#pragma once
#include <memory>

#include "fluids/volume/solid_hair.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A byte of flags per cell, from the eight nodes of the solid level set round it. Lets kernels
/// over many points skip solid tests and push-outs where they can't do anything, with the same
/// result. The outermost layer has no flags: points there may be moved into the domain.
class SolidCells {
 public:
  enum Flag : u8 {
    kNoSolidSample = 1,  ///< no point in the cell is solid
    kNoPushOut = 2,      ///< no point in the cell is moved by a push-out
    kOpenCentre = 4,     ///< the centre isn't solid
  };

  SolidCells() = default;
  /// `levelSet` stands on nodes; the result doesn't depend on `threads`.
  void Build(const EGrid<double>& levelSet, i32 threads);
  void Release() { mFlags.reset(); }
  /// A cell is open, whatever the level set tells.
  void Open(const VecInt3D& cell) {
    if (mFlags) (*mFlags)(cell.x, cell.y, cell.z) |= kOpenCentre | kNoPushOut;
  }
  /// Null before the first `Build`.
  const Grid<u8>* Get() const { return mFlags.get(); }

 private:
  std::unique_ptr<Grid<u8>> mFlags;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
