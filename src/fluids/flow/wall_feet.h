// Faces that thin walls close with the solid they stand on.
#pragma once
#include <span>
#include <vector>

#include "fluids/flow/solid_surfaces.h"
#include "fluids/volume/thin_walls.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A wall that ends on a thick solid ends within a face. Where the centre of that face lies in the
/// solid, the way from cell to cell doesn't meet the wall, and the strip between the solid and the
/// next face, which the wall closes, would stay open. Looks at what the solid leaves open of such
/// faces for ways past the wall.
class WallFeet {
 public:
  explicit WallFeet(const GridBoundary& boundary);

  /// Those beside `closed` that nothing leads through, in order of z, y, x and axis, none
  /// twice.
  /// `isClosed(axis, cell above)` tells of those that needn't be found. The result doesn't depend
  /// on `threads`.
  template <class IsClosed>
  std::vector<ThinWalls::Face> Find(std::span<const ThinWalls::Face> closed, IsClosed&& isClosed,
                                    i32 threads) {
    std::vector<Candidate> beside;
    for (const ThinWalls::Face& face : closed)
      for (i32 axis = 0; axis < 3; ++axis)
        for (const i32 step : {-1, 1}) {
          if (axis == face.axis) continue;
          const VecInt3D at = face.at + ExtraOf(axis) * step;
          if (IsInside(at) && !isClosed(face.axis, at))
            beside.push_back({{at, face.axis}, axis, step});
        }
    return Closed(std::move(beside), threads);
  }

 private:
  /// A face, and the direction in which it lies from one that is closed.
  struct Candidate {
    ThinWalls::Face face;
    i32 beside, step;
  };
  bool IsInside(const VecInt3D& cell) const;
  std::vector<ThinWalls::Face> Closed(std::vector<Candidate> beside, i32 threads);
  bool LeadsThrough(const Candidate& candidate) const;
  bool IsCrossed(const Vec3d& from, const Vec3d& to) const;

  const GridLayout& mLayout;
  SolidSurfaces mSolids;
  std::vector<SharpSurface> mWalls;  ///< those of obstacles with thin walls
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
