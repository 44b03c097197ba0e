#include "fluids/advection/path_solids.h"

#include <algorithm>

#include "fluids/advection/clear_cells.h"
#include "grids/wide_kernel.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Whether any of the faces is closed.
SULVA_WIDE_KERNEL bool IsAnyClosed(const float* open, i32 n) {
  i32 closed = 0;
  for (i32 i = 0; i < n; ++i) closed += !(open[i] > 0);
  return closed > 0;
}

}  // namespace

PathSolids::PathSolids(const AdvectionData& data)
    : mSource(data.Shape()),
      mBoundary(*data.boundary),
      mCells(mSource.mLayout.dims),
      mCellSize(mSource.mLayout.cellSize),
      mSides(data.sides) {
  const Grid<u8>* flags = data.solidCells;
  if (flags && flags->mData && flags->Dims() == mCells) mFlags = flags;
  if (mSource.mKind != kFaceX && mSource.mKind != kFaceY && mSource.mKind != kFaceZ)
    mOpen |= SolidCells::kOpenCentre;
  if (data.open && data.open->Dims() == mSource.Dims()) mFaces = data.open->mData;
}

bool PathSolids::FindSolid(i32 first, i32 y, i32 z, i32 n, bool* solid) const {
  if (mFaces) {
    const float* open = mFaces + mSource.Index(first, y, z);
    if (!IsAnyClosed(open, n)) return false;
    for (i32 i = 0; i < n; ++i) solid[i] = !(open[i] > 0);
    return true;
  }
  const bool known = mFlags && first + n <= mCells.x && y < mCells.y && z < mCells.z;
  const u8* flags = known ? mFlags->mData + mFlags->Index(first, y, z) : nullptr;
  if (known && (CommonBits(flags, n) & mOpen)) return false;
  // A face belongs to the cell below it, too.
  const u8* below = known && mSource.mKind <= kFaceZ ? flags - CellsBack() : flags;
  const Vec3d offset = OffsetOf(mSource.mKind);
  bool any = false;
  for (i32 i = 0; i < n; ++i) {
    solid[i] =
        !(known && ((flags[i] | below[i]) & mOpen)) &&
        mBoundary.IsSolid(Vec3d{double(first + i), double(y), double(z)} + offset, mSource, false);
    any |= solid[i];
  }
  return any;
}

i32 PathSolids::CellsBack() const {
  const VecInt3D up = ExtraOf(mSource.mKind);
  return mFlags->Index(up.x, up.y, up.z);
}

bool PathSolids::PushOut(RowVectors& points, i32 n, bool* moved) const {
  std::fill_n(moved, n, false);
  if (mFlags && AreClear(*mFlags, points, n, SolidCells::kNoPushOut, 0)) return false;
  bool any = false;
  i32 cell[kRowChunk];
  if (mFlags) FindCells(points, mCells, n, cell);
  for (i32 i = 0; i < n; ++i) {
    if (mFlags && ((*mFlags)[cell[i]] & SolidCells::kNoPushOut)) continue;
    Vec3d relative = points.At(i) * mCellSize;
    if (!mBoundary.PushOut(relative, true, kPushOutMargin, mSides)) continue;
    any = moved[i] = true;
    points.Set(i, relative / mCellSize);
  }
  return any;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
