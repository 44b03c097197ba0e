#include "fluids/forces/velocity_grid_emitter.h"

#include "fluids/solvers/fluid_solver.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

VelocityGridEmitter::VelocityGridEmitter(const VelocityGridEmitter& other) : iObject(other) {}

bool VelocityGridEmitter::ResolveLinks() {
  if (!iObject::ResolveLinks() || !mScene) return false;
  constexpr i32 gridSide = 6;  // bit of kCategoryGrid
  std::vector<iBase*> found;
  mScene->CollectObjects(mInterface.GetInExclude(1008), found, kListForces, kBitAny, kTypeAny,
                         gridSide, true);
  mForces.clear();
  for (iBase* object : found)
    if (auto* force = dynamic_cast<Force*>(object)) mForces.push_back(force);
  return true;
}

void VelocityGridEmitter::ClearLinks() {
  mForces.clear();
  iObject::ClearLinks();
}

void VelocityGridEmitter::CheckDirty() {
  if ((mScene->mFlags & Scene::kTimeChanged) && mTime->IsUnderWay()) {
    if (!IsDirty()) MarkDirty(false);
  } else {
    SetFlag(FLAG_DIRTY | FLAG_DIRTY_HARD, false);
  }
}

void VelocityGridEmitter::Release(bool full) {
  if (full) iObject::Release(true);
  mScratch = {};
}

void VelocityGridEmitter::Prepare(void*) {
  SetFlag(FLAG_ACTIVE, false);
  if (!mSolver || !mSolver->Has(FLAG_ACTIVE) || mForces.empty() || !mSolver->GetLayout()) return;
  for (Force* force : mForces) {
    if (!force->Has(FLAG_ENABLED)) continue;
    force->Attach(&mSolver->mVelocity, &mSolver->mBoundary);
    force->Prepare(this);
  }
  for (i32 axis = 0; axis < 3; ++axis) {
    mScratch[axis] = mSolver->mScratch.Get(axis, mSolver->GetLayout()->dims, kCentre);
    if (!mScratch[axis]) return Release(false);
  }
  SetFlag(FLAG_ACTIVE, true);
}

void VelocityGridEmitter::Finish() {
  for (Force* force : mForces)
    if (force->Has(FLAG_ENABLED)) force->Finish();
  Release(false);
}

void VelocityGridEmitter::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE)) return;
  for (i32 axis = 0; axis < 3; ++axis)
    if (!mSolver->GetOpenFaces(axis)) return;
  if (mPass == 0) SumForces(data);
  if (mPass == 1) CarryToFaces(data);
}

namespace {

/// Marks the cells of a row that have an open face; returns their number.
i32 FindOpenCells(const float* const low[3], const float* const high[3], i32 n, u8* out) {
  i32 open = 0;
  for (i32 x = 0; x < n; ++x) {
    out[x] = (low[0][x] > 0) | (low[1][x] > 0) | (low[2][x] > 0) | (high[0][x] > 0) |
             (high[1][x] > 0) | (high[2][x] > 0);
    open += out[x];
  }
  return open;
}

/// Gives every open face the mean force of its two cells, however small its opening is: a part of
/// it would not balance the pressure, which acts on the whole.
void AddToFaces(const double* below, const double* above, const float* open, double* __restrict v,
                i32 first, i32 last) {
  for (i32 x = first; x < last; ++x) v[x] += open[x] > 0 ? 0.5 * (below[x] + above[x]) : 0.0;
}

}  // namespace

void VelocityGridEmitter::ZeroBorder(const CellBox& box) {
  for (Grid<double>* grid : mScratch)
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) {
        double* row = grid->mData + grid->Index(0, y, z);
        if (z == 0 || z == grid->mNz - 1 || y == 0 || y == grid->mNy - 1)
          std::fill_n(row, grid->mNx, 0.0);
        else
          row[0] = row[grid->mNx - 1] = 0;
      }
}

void VelocityGridEmitter::SumForces(const EvaluationThreadData& data) {
  const EGrid<float>* open[3];
  for (i32 axis = 0; axis < 3; ++axis) open[axis] = mSolver->GetOpenFaces(axis);
  const GridLayout& layout = *mSolver->GetLayout();
  const CellBox box = Clip(data.Box(), {1, 1, 1}, layout.dims - VecInt3D{1, 1, 1});
  ZeroBorder(data.Box());
  if (box.IsEmpty()) return;

  ForceRow row;
  row.worker = data.index;
  row.count = box.max.x - box.min.x;
  row.step = layout.simCell.x;
  row.simToWorld = layout.simToWorld;
  std::vector<u8> isOpen(row.count);
  row.open = isOpen.data();
  for (i32 z = box.min.z; z < box.max.z; ++z) {
    if (data.TestBreak()) return;
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      row.cell = {box.min.x, y, z};
      row.position = layout.simOrigin + Vec3d{box.min.x + 0.5, y + 0.5, z + 0.5} * layout.simCell;
      row.cellIndex = mScratch[0]->Index(box.min.x, y, z);
      const float *low[3], *high[3];
      for (i32 axis = 0; axis < 3; ++axis) {
        const i32 ahead[3] = {1, open[axis]->mNx, open[axis]->mSlice};
        row.faceIndex[axis] = open[axis]->Index(box.min.x, y, z);
        row.fraction[axis] = low[axis] = open[axis]->mData + row.faceIndex[axis];
        high[axis] = low[axis] + ahead[axis];
        row.force[axis] = mScratch[axis]->mData + row.cellIndex;
        std::fill_n(row.force[axis], row.count, 0.0);
      }
      const i32 openCells = FindOpenCells(low, high, row.count, isOpen.data());
      if (openCells == 0) continue;
      for (Force* force : mForces)
        if (force->Has(FLAG_ENABLED) && force->Has(FLAG_ACTIVE)) force->EvaluateRow(row);
      if (openCells == row.count) continue;
      for (i32 axis = 0; axis < 3; ++axis)
        for (i32 x = 0; x < row.count; ++x)
          if (!isOpen[x]) row.force[axis][x] = 0;
    }
  }
}

void VelocityGridEmitter::CarryToFaces(const EvaluationThreadData& data) {
  const GridLayout& layout = *mSolver->GetLayout();
  const VecInt3D n = layout.dims;
  const i32 back[3] = {1, n.x, layout.slice};
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>* velocity = mSolver->mVelocity.GetGridForWrite(axis);
    const EGrid<float>* open = mSolver->GetOpenFaces(axis);
    const Grid<double>& scratch = *mScratch[axis];
    // Faces with an inner cell on one side at least.
    VecInt3D high = n - VecInt3D{1, 1, 1};
    high[axis] = n[axis];
    const CellBox box = Clip(data.Box(), {1, 1, 1}, high);
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) {
        double* v = velocity->mData + velocity->Index(0, y, z);
        const float* f = open->mData + open->Index(0, y, z);
        const double* above = scratch.mData + scratch.Index(0, y, z);
        const double* below = above - back[axis];
        const i32 place = axis == 1 ? y : z;
        // No force is known outside: there the inner cell's acts alone.
        if (axis > 0 && place == 1) below = above;
        if (axis > 0 && place == n[axis] - 1) above = below;
        AddToFaces(below, above, f, v, box.min.x, box.max.x);
        if (axis == 0 && box.min.x == 1) v[1] += f[1] > 0 ? 0.5 * above[1] : 0.0;
        if (axis == 0 && box.max.x == n.x)
          v[n.x - 1] += f[n.x - 1] > 0 ? 0.5 * below[n.x - 1] : 0.0;
      }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
