#include "fluids/operators/open_links.h"

#include <algorithm>

#include "fluids/flow/cells_between.h"
#include "fluids/flow/flow_cells.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool OpenLinks::Build(const EGrid<double>& field, const std::vector<FlowBounds>& flows,
                      i32 threads) {
  const VecInt3D n = field.Dims();
  if (!mBits || mBits->Dims() != n) mBits = std::make_unique<Grid<u8>>(n, field.mKind);
  if (!mBits->mData) return Release(), false;
  for (auto& rows : mRows) rows.assign(std::size_t{1} * n.y * n.z, kNone);

  std::vector<const FlowBounds*> bounds;
  for (const FlowBounds& flow : flows)
    if (OffsetOf(field.mKind) == OffsetOf(kCentre) && AreOnOneLattice(field.mLayout, flow.layout))
      bounds.push_back(&flow);
  ForEachBlock(n.z, threads, [&](i32 z) {
    u8* layer = mBits->mData + std::ptrdiff_t{1} * mBits->mSlice * z;
    std::fill_n(layer, mBits->mSlice, u8{0});
    if (z == 0 || z == n.z - 1) return;
    if (bounds.empty()) OpenAll(z);
    for (const FlowBounds* flow : bounds)
      OpenIn(*flow, CellsBetween(flow->layout, field.mLayout), z);
    SumUp(z);
  });
  return true;
}

void OpenLinks::OpenAll(i32 z) {
  const VecInt3D last = mBits->Dims() - VecInt3D{2, 2, 2};
  for (i32 y = 1; y <= last.y; ++y)
    for (i32 x = 1; x <= last.x; ++x)
      (*mBits)(x, y, z) = static_cast<u8>((x < last.x) | (y < last.y) << 1 | (z < last.z) << 2);
}

void OpenLinks::OpenIn(const FlowBounds& flow, const VecInt3D& offset, i32 z) {
  const VecInt3D last = mBits->Dims() - VecInt3D{2, 2, 2};
  const VecInt3D end = flow.layout.dims - VecInt3D{1, 1, 1};
  const ThinFaces* thin = flow.thin.HasAny() ? &flow.thin : nullptr;
  const auto isOpen = [&](const VecInt3D& c) {
    return c.x > 0 && c.y > 0 && c.z > 0 && c.x < end.x && c.y < end.y && c.z < end.z &&
           !flow.cells.IsClosed(c);
  };
  for (i32 y = 1; y <= last.y; ++y)
    for (i32 x = 1; x <= last.x; ++x) {
      const VecInt3D at{x, y, z}, cell = at + offset;
      if (!isOpen(cell)) continue;
      for (i32 axis = 0; axis < 3; ++axis) {
        if (at[axis] == last[axis]) continue;
        VecInt3D next = cell;
        ++next[axis];
        if (isOpen(next) && !(thin && thin->ClosesFace(axis, next.x, next.y, next.z)))
          (*mBits)(x, y, z) |= static_cast<u8>(1 << axis);
      }
    }
}

void OpenLinks::SumUp(i32 z) {
  const VecInt3D n = mBits->Dims();
  for (i32 y = 1; y < n.y - 1; ++y) {
    const u8* row = mBits->mData + mBits->Index(0, y, z);
    u8 common = 7, any = 0;
    for (i32 x = 1; x < n.x - 1; ++x) {
      common &= row[x];
      any |= row[x];
    }
    for (i32 axis = 1; axis < 3; ++axis)
      mRows[axis - 1][std::size_t{1} * z * n.y + y] = common >> axis & 1 ? kAll
                                                      : any >> axis & 1  ? kSome
                                                                         : kNone;
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
