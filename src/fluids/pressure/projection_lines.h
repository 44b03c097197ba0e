// How a projection walks its cells and faces.
#pragma once
#include "fluids/pressure/projection_kernels.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Calls f(law) with `scale` over the density of faces: of the fields, or the constant one.
template <class F>
void WithDensity(const ProjectionFields& fields, double constant, double scale, F&& f) {
  const auto& density = fields.density;
  if (density[0])
    f(VariableDensity{scale, {density[0]->mData, density[1]->mData, density[2]->mData}});
  else
    f(ConstantDensity{scale / constant});
}

/// Calls f(line of cells, first, last) for the lines of a block's inner cells.
template <class F>
void ForEachCellLine(const ProjectionFields& fields, const CellBox& block, F&& f) {
  const VecInt3D cells = fields.openCell->Dims();
  const CellBox box = Clip(block, {1, 1, 1}, cells - VecInt3D{1, 1, 1});
  for (i32 z = box.min.z; z < box.max.z; ++z)
    for (i32 y = box.min.y; y < box.max.y; ++y) f(CellLine(fields, y, z), box.min.x, box.max.x);
}

/// Calls f(line of faces) for the faces below the cells of a block that have a cell on both sides,
/// with the pressures `p` by cell.
template <class F>
void ForEachFaceLine(const ProjectionFields& fields, const double* p, const CellBox& block, F&& f) {
  const VecInt3D cells = fields.openCell->Dims();
  const i32 offsets[3] = {1, cells.x, cells.x * cells.y};
  for (i32 axis = 0; axis < 3; ++axis) {
    if (cells[axis] < 3) continue;
    VecInt3D low{0, 0, 0}, high = cells - VecInt3D{1, 1, 1};
    low[axis] = 1;
    high[axis] = cells[axis];
    const CellBox box = Clip(block, low, high);
    const EGrid<double>& velocity = *fields.velocity[axis];
    const EGrid<float>& open = *fields.open[axis];
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y)
        f(FaceLine{axis, velocity.mData + velocity.Index(box.min.x, y, z),
                   open.mData + open.Index(box.min.x, y, z), p,
                   (cells.y * z + y) * cells.x + box.min.x, offsets[axis], box.max.x - box.min.x});
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
