#include "fluids/pressure/bound_fluid.h"

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kSurrounded = 0.02;  // of the areas, what those of a whole body may add up to

/// The sums over the faces of a body along an axis, in faces.
struct FaceSums {
  double net = 0, all = 0, wet = 0;
  double volume = 0;  ///< faces times simulation units
  double moving = 0, velocity = 0;
};

bool IsAir(const ProjectionFields& fields, const VecInt3D& cell) {
  return fields.surface && !((*fields.surface)(cell.x, cell.y, cell.z) < 0);
}

}  // namespace

BoundFluid FindBoundFluid(const ProjectionFields& fields, std::span<const BodyRow> rows,
                          const MovingBody& body, double volume) {
  const GridLayout& layout = fields.velocity[0]->mLayout;
  FaceSums sums[3];
  BoundFluid bound;
  for (const BodyRow& row : rows) {
    const VecInt3D cell{row.cell % layout.dims.x, row.cell / layout.dims.x % layout.dims.y,
                        row.cell / (layout.dims.x * layout.dims.y)};
    const Vec3d away =
        layout.simOrigin + (ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) * layout.simCell - body.centre;
    for (int slope = 0; slope < 3; ++slope) {
      bound.turn[slope] += row.moment * away[slope];
      for (int a = 0; a < 3; ++a)
        if (a != slope) bound.push[slope][a] += row.area[a] * away[slope];
    }
    for (int a = 0; a < 3; ++a) {
      FaceSums& sum = sums[a];
      const double area = row.area[a], size = std::fabs(area);
      sum.net += area;
      sum.all += size;
      sum.volume += area * away[a];
      VecInt3D beyond = cell, face = cell;
      beyond[a] += area > 0 ? 1 : -1;
      if (IsAir(fields, cell)) continue;
      // A surface less than a cell off would come and go.
      if (!IsAir(fields, beyond)) sum.wet += size;
      face[a] += area > 0;  // the face across from the body
      if (!((*fields.open[a])(face.x, face.y, face.z) > 0)) continue;
      sum.moving += size;
      sum.velocity += size * (*fields.velocity[a])(face.x, face.y, face.z);
    }
  }
  const double face = layout.cellSize * static_cast<double>(layout.cellSize);
  double wet = 1;
  for (const FaceSums& sum : sums) wet = std::min(wet, sum.all > 0 ? sum.wet / sum.all : 0);
  const double share = std::max(0.0, 2 * wet - 1);
  bool isSurrounded = true;
  for (int a = 0; a < 3; ++a) {
    const FaceSums& sum = sums[a];
    if (!(sum.moving > 0) || std::fabs(sum.net) > kSurrounded * sum.all) {
      isSurrounded = false;
      continue;
    }
    bound.volume[a] = (sum.volume * face - volume) * share;
    bound.velocity[a] = sum.velocity / sum.moving;
  }
  for (int slope = 0; slope < 3; ++slope) {
    bound.push[slope] *= isSurrounded ? face * share : 0;
    bound.turn[slope] *= isSurrounded ? face * share : 0;
  }
  return bound;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
