#include "fluids/flow/grid_cellstates.h"

#include "grids/fixed_blocks.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr double kBandCells = 3;
}

void Grid_Cellstates::Release() {
  for (auto& states : mStates) states.reset();
}

bool Grid_Cellstates::Allocate(const Flow& flow) {
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>* velocity = flow.mVelocity.GetGrid(axis);
    if (!velocity) return false;
    mStates[axis] = std::make_unique<Grid<u8>>(velocity->Dims(), velocity->mKind);
    if (!mStates[axis]->mData) return false;
    mStates[axis]->Fill(kFaceFixed);
  }
  return true;
}

bool Grid_Cellstates::Build(const Flow& flow) {
  Release();
  if (!flow.mBoundary.GetLevelSet() || !Allocate(flow)) {
    Release();
    return false;
  }
  ForEachBlock(flow.GetLayout()->dims.z, flow.Threads(), [&](i32 z) {
    for (i32 axis = 0; axis < 3; ++axis) {
      // The border stays fixed.
      VecInt3D top = mStates[axis]->Dims() - VecInt3D{1, 1, 1};
      top[axis] -= 1;
      if (z < 1 || z >= top.z) continue;
      for (i32 y = 1; y < top.y; ++y) {
        FillRow(flow, axis, y, z, 1, top.x);
        if (flow.mSurface) MarkFarFaces(*flow.mSurface, axis, y, z, 1, top.x);
      }
    }
  });
  return true;
}

void Grid_Cellstates::FillRow(const Flow& flow, i32 axis, i32 y, i32 z, i32 first, i32 last) {
  const EGrid<float>* open = flow.GetOpenFaces(axis);
  if (!open) return;
  const EGrid<double>& solid = *flow.mBoundary.GetLevelSet();
  const i32 step[3] = {1, solid.mNx, solid.mSlice};
  const i32 u = step[axis == 0 ? 1 : 0], v = step[axis == 2 ? 1 : 2];
  Grid<u8>& states = *mStates[axis];
  const i32 row = states.Index(0, y, z);
  const float* __restrict fraction = open->mData + row;
  const double* __restrict node = solid.mData + solid.Index(0, y, z);
  u8* __restrict out = states.mData + row;
  for (i32 x = first; x < last; ++x) {
    const double sum = (node[x] + node[x + u]) + (node[x + v] + node[x + u + v]);
    out[x] = fraction[x] != 0 && sum > 0 ? kFaceSolved : kFaceFixed;
  }
}

void Grid_Cellstates::MarkFarFaces(const EGrid<double>& surface, i32 axis, i32 y, i32 z, i32 first,
                                   i32 last) {
  const double band = kBandCells * surface.mLayout.cellSize;
  const Vec3d shift = OffsetOf(axis) - OffsetOf(surface.mKind);
  Grid<u8>& states = *mStates[axis];
  u8* out = states.mData + states.Index(0, y, z);
  for (i32 x = first; x < last; ++x)
    if (out[x] == kFaceSolved &&
        !(SampleLinear(surface, x + shift.x, y + shift.y, z + shift.z) < band))
      out[x] = kFaceOutOfBand;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
