#include "fluids/emission/filled_volume.h"

#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

double FilledVolume::DistanceAt(const Vec3d& p) const {
  const double distance = mVolume->DistanceAtWorld(p);
  if (!mOutline) return distance;
  const EGrid<double>& grid = Grid();
  const Vec3d c = grid.mLayout.ToCells(p);
  const AxisStencil s[3] = {LinearStencil(c.x, grid.mNx), LinearStencil(c.y, grid.mNy),
                            LinearStencil(c.z, grid.mNz)};
  i32 inside = 0;
  for (i32 corner = 0; corner < 8; ++corner)
    inside += grid(s[0].index + (corner & 1), s[1].index + (corner >> 1 & 1),
                   s[2].index + (corner >> 2)) < 0;
  // Without both, triangles that enclose nothing would have a side.
  if (inside == 0 || inside == 8) return distance;
  const SharpSurface::Nearest nearest = mOutline->Find(p);
  if (nearest.triangle < 0) return distance;
  const double rounding = 1e-6 * grid.mLayout.cellSize;
  return std::abs(nearest.distance) < rounding ? 0.0 : nearest.distance;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
