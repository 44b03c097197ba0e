#include "fluids/flow/side_outflow.h"

#include <algorithm>

#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

double FindSideOutflow(const Flow& flow, const Grid<double>& field,
                       const ScalarWalls::Values& values) {
  const VecInt3D n = field.Dims();
  const i32 steps[3] = {1, field.mNx, field.mSlice};
  const double perCell = flow.StepDuration() / flow.GetLayout()->cellSize;
  const double nothing = values.nothing > -kUnbounded ? values.nothing : 0.0;
  double left = 0;
  for (int axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true}) {
      if (flow.mBoundary.mWalls & (high ? kHighWall : kLowWall)[axis]) continue;
      const EGrid<double>& velocity =
          flow.mHasMoved ? *flow.mVelocity.mPrevious[axis] : *flow.mVelocity.GetGrid(axis);
      const EGrid<float>* open = flow.GetOpenFaces(axis);
      CellBox side{{1, 1, 1}, n - VecInt3D{1, 1, 1}};
      (high ? side.min : side.max)[axis] = high ? n[axis] - 2 : 2;
      const VecInt3D up = high ? ExtraOf(axis) : VecInt3D{};
      const i32 inwards = high ? -steps[axis] : steps[axis];
      ForEachCell(side, [&](i32 x, i32 y, i32 z) {
        const i32 face = velocity.Index(x + up.x, y + up.y, z + up.z);
        const double cells = (high ? velocity[face] : -velocity[face]) * perCell *
                             (open ? double{(*open)[face]} : 1.0);
        if (cells < 0) left += cells * (values.outside - nothing);
        i32 c = field.Index(x, y, z);
        for (i32 i = 0; i < n[axis] - 2 && cells > i; ++i, c += inwards)
          left += std::min(cells - i, 1.0) * (field[c] - nothing);
      });
    }
  return left;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
