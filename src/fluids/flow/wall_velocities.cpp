#include "fluids/flow/wall_velocities.h"

#include "fluids/flow/grid_boundary.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Calls f(outer, inner) for every pair of samples of the two layers at a side.
template <class F>
void ForEachAtSide(EGrid<double>& g, i32 axis, bool high, const VecInt3D& low, const VecInt3D& top,
                   F&& f) {
  const i32 stride[3] = {1, g.mNx, g.mSlice};
  const i32 p = axis == 0 ? 1 : 0, q = axis == 2 ? 1 : 2;
  const i32 outer = high ? g.Dims()[axis] - 1 : 0;
  const i32 inward = high ? -stride[axis] : stride[axis];
  for (i32 j = low[q]; j < top[q]; ++j) {
    double* sample = g.mData + outer * stride[axis] + j * stride[q] + low[p] * stride[p];
    for (i32 i = low[p]; i < top[p]; ++i, sample += stride[p]) f(sample[0], sample[inward]);
  }
}

void SetNormal(EGrid<double>& g, i32 axis, bool high, bool wall) {
  ForEachAtSide(g, axis, high, {}, g.Dims(), [&](double& outer, double& inner) {
    if (wall) inner = 0;
    outer = inner;
  });
}

void SetTangent(EGrid<double>& g, i32 axis, bool high, double factor) {
  ForEachAtSide(g, axis, high, {}, g.Dims(),
                [&](double& outer, double& inner) { outer = factor * inner; });
}

void SetSides(const StaggeredGrids& velocity, u8 walls, double factor, bool withNormal) {
  for (i32 component = 0; component < 3; ++component) {
    EGrid<double>* g = velocity[component];
    if (!g || !g->mData || g->mNx < 2 || g->mNy < 2 || g->mNz < 2) continue;
    for (const bool high : {false, true})
      for (i32 axis = 0; axis < 3; ++axis) {
        const bool wall = walls & (high ? kHighWall : kLowWall)[axis];
        if (axis != component) {
          if (wall) SetTangent(*g, axis, high, factor);
        } else if (withNormal) {
          SetNormal(*g, axis, high, wall);
        }
      }
  }
}

}  // namespace

void SetWallVelocities(const StaggeredGrids& velocity, u8 walls, double factor) {
  SetSides(velocity, walls, factor, true);
}

void SetWallTangents(const StaggeredGrids& velocity, u8 walls, double factor) {
  SetSides(velocity, walls, factor, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
