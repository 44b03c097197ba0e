#include "fluids/flow/inflows.h"

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kStep = 0.5, kStencil = 1.5;  // cells along the way of new water, and beyond it

VecInt3D PlaceIn(const VecInt3D& cells, i32 index) {
  return {index % cells.x, index / cells.x % cells.y, index / (cells.x * cells.y)};
}
bool IsInner(const VecInt3D& at, const VecInt3D& cells) {
  for (int a = 0; a < 3; ++a)
    if (at[a] < 1 || at[a] > cells[a] - 2) return false;
  return true;
}

}  // namespace

void Inflows::Clear() {
  mSources.clear();
  mFaces.clear();
}

void Inflows::Add(std::vector<i32> cells, const Vec3d& velocity, bool hasStopped) {
  if (!cells.empty()) mSources.push_back({std::move(cells), velocity, hasStopped, false, {}});
}

void Inflows::Begin(Flow& flow, const std::vector<i32>& cells, const Vec3d& velocity,
                    double duration) {
  const GridLayout* layout = flow.GetLayout();
  if (!layout || !flow.HasVelocity()) return;
  const Vec3d way = velocity * (duration / layout->cellSize);
  const i32 steps = static_cast<i32>(std::ceil((Length(way) + kStencil) / kStep));
  const Vec3d step = Normalised(way) * kStep;
  const auto shift = [&](i32 k) {
    VecInt3D by;
    for (int a = 0; a < 3; ++a) by[a] = static_cast<i32>(std::lround(step[a] * k));
    return by;
  };
  for (const i32 cell : cells)
    if (!IsInner(PlaceIn(layout->dims, cell) + shift(steps), layout->dims)) return;
  for (i32 k = steps; k >= 0; --k)
    for (const i32 cell : cells)
      FillCell(flow, PlaceIn(layout->dims, cell) + shift(k), velocity, k == 0);
}

/// What water or a wall beyond the source has stays.
void Inflows::FillCell(Flow& flow, const VecInt3D& at, const Vec3d& velocity, bool isSource) {
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>& grid = *flow.mVelocity.GetGridForWrite(axis);
    const EGrid<float>* open = flow.GetOpenFaces(axis);
    for (const VecInt3D& face : {at, at + ExtraOf(axis)}) {
      const i32 index = grid.Index(face.x, face.y, face.z);
      if (open && !((*open)[index] > 0)) continue;
      if (isSource || grid[index] == 0) grid[index] = velocity[axis];
    }
  }
}

void Inflows::CloseCell(Flow& flow, i32 cell, Source& own) {
  const GridLayout& layout = *flow.GetLayout();
  const VecInt3D at = PlaceIn(layout.dims, cell);
  if (!IsInner(at, layout.dims)) return;
  const EGrid<double>* phi = flow.mSurface;
  EGrid<double>* source = flow.mDivergence.GetGridForWrite(0);
  const EGrid<float>& openCell = *flow.mFractions.GetRead(0, 0);
  const Vec3d velocity = own.hasStopped ? Vec3d{} : own.velocity;
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<float>& open = *flow.mFractions.GetWrite(axis, 1);
    for (const i32 side : {0, 1}) {
      const VecInt3D face = at + ExtraOf(axis) * side;
      const VecInt3D next = side ? face : at - ExtraOf(axis);
      const i32 index = open.Index(face.x, face.y, face.z);
      if (!(open[index] > 0)) continue;
      const i32 beside = phi->Index(next.x, next.y, next.z);
      const bool isOutlet = (side ? own.velocity[axis] : -own.velocity[axis]) > 0;
      if (isOutlet && !mIsHeld[beside] && openCell[beside] > 0) own.outlets.push_back(beside);
      const double out = side ? velocity[axis] : -velocity[axis];
      const bool meetsLiquid = !mIsHeld[beside] && (*phi)[beside] < 0;
      if (meetsLiquid && out > 0 && openCell[beside] > 0)
        (*source)[beside] += open[index] * out / (layout.cellSize * openCell[beside]);
      mFaces.push_back({axis, index, open[index], meetsLiquid && out < 0 ? 0 : velocity[axis]});
      open[index] = 0;
    }
  }
}

void Inflows::Close(Flow& flow) {
  mFaces.clear();
  const GridLayout* layout = flow.GetLayout();
  if (IsEmpty() || !layout || !flow.mSurface || !flow.mFractions.HasField(0, 0)) return;
  const EGrid<double>* source = flow.mDivergence.GetGrid(0);
  if (!source || source->Dims() != layout->dims || flow.mSurface->Dims() != layout->dims) return;
  for (i32 axis = 0; axis < 3; ++axis)
    if (!flow.GetOpenFaces(axis)) return;
  mIsHeld.assign(layout->count, 0);
  for (Source& own : mSources) {
    own.isShared = std::any_of(own.cells.begin(), own.cells.end(),
                               [&](i32 cell) { return mIsHeld[cell] != 0; });
    for (const i32 cell : own.cells) mIsHeld[cell] = 1;
  }
  for (Source& own : mSources) {
    own.outlets.clear();
    for (const i32 cell : own.cells) CloseCell(flow, cell, own);
  }
}

void Inflows::Open(Flow& flow) const {
  for (const Face& face : mFaces) (*flow.mFractions.GetWrite(face.axis, 1))[face.index] = face.open;
  Hold(flow);
}

void Inflows::MarkFull(FullRooms& full, const GridLayout& layout) const {
  if (mFaces.empty()) return;
  for (const Source& own : mSources) {
    if (own.outlets.empty() ? own.isShared : !full.HoldAll(own.outlets)) continue;
    if (full.IsEmpty() && !full.Begin(layout)) return;
    for (const i32 cell : own.cells) full.Mark(cell, FullRooms::kSource);
  }
}

void Inflows::Hold(Flow& flow) const {
  for (const Face& face : mFaces)
    (*flow.mVelocity.GetGridForWrite(face.axis))[face.index] = face.velocity;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
