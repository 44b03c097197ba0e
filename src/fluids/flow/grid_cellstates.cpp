#include "fluids/flow/grid_cellstates.h"

#include "fluids/solvers/fluid_solver.h"
#include "grids/for_each_cell.h"
#include "grids/sampling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr double kBandCells = 3;
}

void Grid_Cellstates::Reset() {
  for (auto& states : mStates) {
    if (!states) continue;
    states->Fill(kFaceFixed);
    states->mActiveMin = {0, 0, 0};
    states->mActiveMax = states->Dims() - VecInt3D{1, 1, 1};
  }
}

void Grid_Cellstates::Release(bool full) {
  for (auto& states : mStates) states.reset();
  if (full) iObject::Release(true);
}

void Grid_Cellstates::Prepare(void*) {
  Release(false);
  if (!mSolver || !mSolver->mBoundary.GetLevelSet())
    return void(Deactivate("its solver has no solid level set"));
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>* velocity = mSolver->mVelocity.GetGrid(axis);
    if (!velocity) return void(Deactivate("its solver has no velocity"));
    mStates[axis] = std::make_unique<Grid<u8>>(velocity->Dims(), velocity->mKind);
    if (mStates[axis]->mData) continue;
    Release(false);
    return void(Deactivate("there is no memory for its grids"));
  }
  Reset();
  SetFlag(FLAG_ACTIVE, true);
}

void Grid_Cellstates::Finish() {
  Release(false);
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

void Grid_Cellstates::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  const bool hasSurface = mSolver->GetSurfaceLevelSetRead() != nullptr;
  for (i32 axis = 0; axis < 3; ++axis) {
    // The border stays fixed, as `Prepare` left it.
    VecInt3D top = mStates[axis]->Dims() - VecInt3D{1, 1, 1};
    top[axis] -= 1;
    const CellBox inner = Clip(data.Box(), {1, 1, 1}, top);
    for (i32 z = inner.min.z; z < inner.max.z; ++z)
      for (i32 y = inner.min.y; y < inner.max.y; ++y) {
        FillRow(axis, y, z, inner.min.x, inner.max.x);
        if (hasSurface) MarkFarFaces(axis, y, z, inner.min.x, inner.max.x);
      }
  }
}

void Grid_Cellstates::FillRow(i32 axis, i32 y, i32 z, i32 first, i32 last) {
  const EGrid<float>* open = mSolver->GetOpenFaces(axis);
  if (!open) return;
  const EGrid<double>& solid = *mSolver->mBoundary.GetLevelSet();
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

void Grid_Cellstates::MarkFarFaces(i32 axis, i32 y, i32 z, i32 first, i32 last) {
  const EGrid<double>& surface = *mSolver->GetSurfaceLevelSetRead();
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
