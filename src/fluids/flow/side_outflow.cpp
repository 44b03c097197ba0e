#include "fluids/flow/side_outflow.h"

#include <algorithm>
#include <cmath>

#include "fluids/fields/trace_path.h"
#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kLooksPerCell = 2;  // along the way that air goes in a step
constexpr i32 kLeastLooks = 2, kMostLooks = 64;

/// One of the sides, and what is beside it.
struct Side {
  i32 axis;
  bool isHigh;
  StaggeredVelocity velocity;
  const EGrid<float>* open;
  const Grid<double>& field;
  double perCell;  ///< cells in a step, per speed
  double nothing, outside;

  /// What passes the face at the side of an inner cell: what lies on the path that ends there.
  double Outflow(const VecInt3D& cell) const {
    const EGrid<double>& normal = velocity.Component(axis);
    const VecInt3D at = isHigh ? cell + ExtraOf(axis) : cell;
    const i32 face = normal.Index(at.x, at.y, at.z);
    const double way = (isHigh ? normal[face] : -normal[face]) * perCell;
    const double part = open ? double{(*open)[face]} : 1.0;
    if (way <= 0) return way * part * (outside - nothing);
    if (part == 0 || IsEmpty(cell, way)) return 0;
    Vec3d p = ToReal(at) + Vec3d{0.5, 0.5, 0.5};
    p[axis] -= 0.5;
    return way * part * MeanBefore(p, way);
  }

 private:
  /// Neither the cells that lie straight inwards nor those beside them hold anything.
  bool IsEmpty(const VecInt3D& cell, double way) const {
    const VecInt3D n = field.Dims(), one{1, 1, 1};
    CellBox box{cell - one, cell + one + one};
    const i32 reach = static_cast<i32>(std::ceil(std::min(way, 1.0 * n[axis]))) + 1;
    (isHigh ? box.min : box.max)[axis] += isHigh ? 1 - reach : reach - 1;
    bool isEmpty = true;
    ForEachCell(Clip(box, one, n - one),
                [&](i32 x, i32 y, i32 z) { isEmpty &= field(x, y, z) == nothing; });
    return isEmpty;
  }
  /// The mean of the field along the path of a step that ends at `p`.
  double MeanBefore(Vec3d p, double way) const {
    const i32 looks = std::clamp(static_cast<i32>(std::ceil(std::min(way * kLooksPerCell, 1e6))),
                                 kLeastLooks, kMostLooks);
    const VecInt3D n = field.Dims();
    double sum = 0;
    for (i32 i = 0; i < looks; ++i) {
      p = TracePath<1>(velocity, p, velocity.At(p), -perCell * (i == 0 ? 0.5 : 1) / looks);
      AxisStencil at[3];
      // What the outermost layer holds is no part of the field.
      for (i32 a = 0; a < 3; ++a)
        at[a] = LinearStencil(std::clamp(p[a], 1.5, n[a] - 1.5) - 0.5, n[a]);
      sum += SampleCorners(field, at[0], at[1], at[2]) - nothing;
    }
    return sum / looks;
  }
};

}  // namespace

double FindSideOutflow(const Flow& flow, const Grid<double>& field,
                       const ScalarWalls::Values& values) {
  const VecInt3D n = field.Dims();
  const auto component = [&](i32 axis) -> const EGrid<double>& {
    return flow.mHasMoved ? *flow.mVelocity.mPrevious[axis] : *flow.mVelocity.GetGrid(axis);
  };
  double left = 0;
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool isHigh : {false, true}) {
      if (flow.mBoundary.mWalls & (isHigh ? kHighWall : kLowWall)[axis]) continue;
      const double nothing = values.nothing > -kUnbounded ? values.nothing : 0.0;
      const Side side{axis,
                      isHigh,
                      {component(0), component(1), component(2)},
                      flow.GetOpenFaces(axis),
                      field,
                      flow.StepDuration() / flow.GetLayout()->cellSize,
                      nothing,
                      values.outside};
      CellBox box{{1, 1, 1}, n - VecInt3D{1, 1, 1}};
      (isHigh ? box.min : box.max)[axis] = isHigh ? n[axis] - 2 : 2;
      const i32 along = axis == 2 ? 1 : 2;
      left += ReduceBlocks(
          std::max(0, n[along] - 2), flow.Threads(), 0.0,
          [&](i32 row) {
            CellBox own = box;
            own.min[along] = row + 1;
            own.max[along] = row + 2;
            double sum = 0;
            ForEachCell(own, [&](i32 x, i32 y, i32 z) { sum += side.Outflow({x, y, z}); });
            return sum;
          },
          [](double a, double b) { return a + b; });
    }
  return left;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
