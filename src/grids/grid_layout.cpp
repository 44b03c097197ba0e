#include "grids/grid_layout.h"

#include <cmath>

namespace MELDO_GLOBAL {

void GridLayout::Set(const VecInt3D& newDims, const Vec3d& newWorldSize, f32 newCellSize,
                     const Vec3d& newWorldOrigin) {
  cellSize = newCellSize;
  inverseCell = static_cast<f32>(1.0 / static_cast<double>(cellSize));
  worldSize = newWorldSize;
  dims = newDims;
  const Vec3d n = ToReal(dims);
  simSize = n * static_cast<double>(cellSize);
  count = CountOf(dims);
  slice = CountOf({dims.x, dims.y, 1});
  worldCell = worldSize / n;
  simToWorld = worldSize / simSize;
  worldToCell = n / worldSize;
  simToCell = n / simSize;
  worldToSim = simSize / worldSize;
  simCell = simSize / n;
  halfCell = cellSize * 0.5f;
  worldHalfCell = worldCell * 0.5;
  SetOrigin(newWorldOrigin);
}

void GridLayout::SetOrigin(const Vec3d& newWorldOrigin) {
  worldOrigin = newWorldOrigin;
  simOrigin = worldOrigin * worldToSim;
  originCell = TruncateNudged(simOrigin * simToCell);
  worldMax = worldSize + worldOrigin;
  simMax = simSize + simOrigin;
  maxCell = TruncateNudged(simMax * simToCell);
}

bool GridLayout::Equals(const GridLayout& other) const {
  return dims == other.dims && worldSize == other.worldSize && cellSize == other.cellSize &&
         worldOrigin == other.worldOrigin;
}

bool GridLayout::Contains(const Vec3d& p, bool withMargin) const {
  const double margin = withMargin ? cellSize : 0.0;
  for (int a = 0; a < 3; ++a)
    if (!(simOrigin[a] + margin <= p[a] && p[a] < simMax[a] - margin)) return false;
  return true;
}

void GridLayout::GetCellBox(double cell, Vec3d& min, Vec3d& max) const {
  for (int a = 0; a < 3; ++a) {
    min[a] = std::floor(simOrigin[a] / cell + 1e-6) * cell;
    max[a] = std::ceil(simMax[a] / cell - 1e-6) * cell;
  }
}

bool GridLayout::CellOf(const Vec3d& p, bool excludeBorder, VecInt3D& cell) const {
  cell = TruncateNudged(ToCells(p));
  const i32 border = excludeBorder ? 1 : 0;
  for (int a = 0; a < 3; ++a)
    if (cell[a] < border || cell[a] >= dims[a] - border) return false;
  return true;
}

}  // namespace MELDO_GLOBAL
