#include "fluids/forces/velocity_grid_emitter.h"

#include <algorithm>

#include "grids/work_data.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool VelocityGridEmitter::Prepare(Flow& flow) {
  mReady = false;
  mScratch = {};
  if (mForces.empty() || !flow.GetLayout()) return false;
  for (Force* force : mForces)
    if (force->Has(FLAG_ENABLED)) force->PrepareFor(flow);
  for (i32 axis = 0; axis < 3; ++axis) {
    mScratch[axis] = flow.mScratch.Get(axis, flow.GetLayout()->dims, kCentre);
    if (!mScratch[axis]) return false;
  }
  return mReady = true;
}

bool VelocityGridEmitter::ActsAnywhere() const {
  return mReady && std::any_of(mForces.begin(), mForces.end(), [](const Force* force) {
           return force->ActsAnywhere() && force->Has(FLAG_ENABLED) && force->Has(FLAG_ACTIVE);
         });
}

void VelocityGridEmitter::FindChanges(std::span<const Vec3d> places, const Vec3d& simToWorld,
                                      u32 worker, std::span<Vec3d> changes) const {
  std::fill(changes.begin(), changes.end(), Vec3d{});
  for (Force* force : mForces) {
    if (!force->ActsAnywhere() || !force->Has(FLAG_ENABLED)) continue;
    for (std::size_t i = 0; i < places.size(); ++i) {
      ForceSample sample;
      sample.worker = worker;
      sample.position = places[i];
      sample.hostPosition = places[i] * simToWorld;
      sample.force = changes[i];
      force->Evaluate(sample);
      changes[i] = sample.force;
    }
  }
}

void VelocityGridEmitter::Finish() {
  for (Force* force : mForces)
    if (force->Has(FLAG_ENABLED)) force->Finish();
  mReady = false;
}

void VelocityGridEmitter::Run(Flow& flow) {
  if (!mReady) return;
  for (i32 axis = 0; axis < 3; ++axis)
    if (!flow.GetOpenFaces(axis)) return;
  const i32 layers = flow.GetLayout()->dims.z;
  // Alignments and constraints keep something for each worker.
  ForEachShare(flow.Threads(), nullptr, [&](const EvaluationThreadData& share) {
    const IndexRange own = share.ItemsOf(0, layers);
    std::vector<u8> open(flow.GetLayout()->dims.x);
    for (i32 z = own.first; z < own.last && !flow.IsCancelled(); ++z)
      SumForces(flow, z, static_cast<u32>(share.index), open.data());
  });
  ForEachBlock(layers, flow.Threads(), [&](i32 z) { CarryToFaces(flow, z); });
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

void VelocityGridEmitter::ZeroBorder(i32 z) {
  for (Grid<double>* grid : mScratch)
    for (i32 y = 0; y < grid->mNy; ++y) {
      double* row = grid->mData + grid->Index(0, y, z);
      if (z == 0 || z == grid->mNz - 1 || y == 0 || y == grid->mNy - 1)
        std::fill_n(row, grid->mNx, 0.0);
      else
        row[0] = row[grid->mNx - 1] = 0;
    }
}

void VelocityGridEmitter::SumForces(const Flow& flow, i32 z, u32 worker, u8* isOpen) {
  const EGrid<float>* open[3];
  for (i32 axis = 0; axis < 3; ++axis) open[axis] = flow.GetOpenFaces(axis);
  const GridLayout& layout = *flow.GetLayout();
  const VecInt3D low{1, 1, 1}, high = layout.dims - low;
  ZeroBorder(z);
  if (z < low.z || z >= high.z || low.x >= high.x) return;

  ForceRow row;
  row.worker = worker;
  row.count = high.x - low.x;
  row.step = layout.simCell.x;
  row.simToWorld = layout.simToWorld;
  row.open = isOpen;
  for (i32 y = low.y; y < high.y; ++y) {
    row.cell = {low.x, y, z};
    row.position = layout.simOrigin + Vec3d{low.x + 0.5, y + 0.5, z + 0.5} * layout.simCell;
    row.cellIndex = mScratch[0]->Index(low.x, y, z);
    const float *lowFaces[3], *highFaces[3];
    for (i32 axis = 0; axis < 3; ++axis) {
      const i32 ahead[3] = {1, open[axis]->mNx, open[axis]->mSlice};
      row.faceIndex[axis] = open[axis]->Index(low.x, y, z);
      row.fraction[axis] = lowFaces[axis] = open[axis]->mData + row.faceIndex[axis];
      highFaces[axis] = lowFaces[axis] + ahead[axis];
      row.force[axis] = mScratch[axis]->mData + row.cellIndex;
      std::fill_n(row.force[axis], row.count, 0.0);
    }
    const i32 openCells = FindOpenCells(lowFaces, highFaces, row.count, isOpen);
    if (openCells == 0) continue;
    for (Force* force : mForces)
      if (force->Has(FLAG_ENABLED) && force->Has(FLAG_ACTIVE)) force->EvaluateRow(row);
    if (openCells == row.count) continue;
    for (i32 axis = 0; axis < 3; ++axis)
      for (i32 x = 0; x < row.count; ++x)
        if (!isOpen[x]) row.force[axis][x] = 0;
  }
}

void VelocityGridEmitter::CarryToFaces(Flow& flow, i32 z) {
  const VecInt3D n = flow.GetLayout()->dims;
  const i32 back[3] = {1, n.x, flow.GetLayout()->slice};
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>* velocity = flow.mVelocity.GetGridForWrite(axis);
    const EGrid<float>* open = flow.GetOpenFaces(axis);
    const Grid<double>& scratch = *mScratch[axis];
    // Faces with an inner cell on one side at least.
    VecInt3D high = n - VecInt3D{1, 1, 1};
    high[axis] = n[axis];
    const CellBox box = Clip({{0, 0, z}, {n.x, n.y, z + 1}}, {1, 1, 1}, high);
    if (box.IsEmpty()) continue;
    for (i32 y = box.min.y; y < box.max.y; ++y) {
      double* v = velocity->mData + velocity->Index(0, y, z);
      const float* f = open->mData + open->Index(0, y, z);
      const double* above = scratch.mData + scratch.Index(0, y, z);
      const double* below = above - back[axis];
      const i32 place = axis == 1 ? y : z;
      // No force is known outside: there the inner cell's acts alone.
      if (axis > 0 && place == 1) below = above;
      if (axis > 0 && place == n[axis] - 1) above = below;
      AddToFaces(below, above, f, v, 1, high.x);
      if (axis > 0) continue;
      v[1] += f[1] > 0 ? 0.5 * above[1] : 0.0;
      v[n.x - 1] += f[n.x - 1] > 0 ? 0.5 * below[n.x - 1] : 0.0;
    }
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
