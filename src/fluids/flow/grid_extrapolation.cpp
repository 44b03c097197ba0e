#include "fluids/flow/grid_extrapolation.h"

#include <algorithm>
#include <cstring>

#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Calls f(first sample, y, z, samples) for every row of inner samples, whose first x is 1.
template <class F>
void ForEachInnerRow(const EGrid<double>& grid, i32 threads, F&& f) {
  ForEachBlock(std::max(grid.mNz - 2, 0), threads, [&](i32 block) {
    for (i32 y = 1; y < grid.mNy - 1; ++y)
      f(grid.Index(1, y, block + 1), y, block + 1, grid.mNx - 2);
  });
}

/// Marks the faces of `axis` whose velocity is known.
void MarkFaces(const Flow& flow, i32 axis, const EGrid<float>& open, Grid<u8>& valid) {
  const EGrid<double>& grid = *flow.mVelocity.GetGrid(axis);
  const EGrid<double>* phi = flow.mSurface;
  if (!phi)
    return ForEachInnerRow(grid, flow.Threads(), [&](i32 row, i32, i32, i32 n) {
      for (i32 x = 0; x < n; ++x) valid[row + x] = open[row + x] > 0;
    });
  const VecInt3D below = ExtraOf(axis);
  if (!phi->mData || phi->Dims() + below != grid.Dims()) return;
  ForEachInnerRow(grid, flow.Threads(), [&](i32 row, i32 y, i32 z, i32 n) {
    for (i32 x = 0; x < n; ++x)
      valid[row + x] = open[row + x] > 0 && ((*phi)(x + 1, y, z) < 0 ||
                                             (*phi)(x + 1 - below.x, y - below.y, z - below.z) < 0);
  });
}

}  // namespace

bool GridExtrapolation::Flags::Fit(const EGrid<double>& target) {
  for (auto* grid : {&valid, &known}) {
    if (*grid && (*grid)->mKind == target.mKind && (*grid)->Dims() == target.Dims())
      (*grid)->Fill(0);
    else
      *grid = std::make_unique<Grid<u8>>(target.Dims(), target.mKind);
    if (!(*grid)->mData) return false;
  }
  return true;
}

void GridExtrapolation::Release() {
  for (Flags& flags : mFaces) flags = {};
  mField = {};
}

void GridExtrapolation::ExtendVelocity(Flow& flow, i32 rounds, bool byChange) {
  if (rounds <= 0 || !flow.HasVelocity()) return;
  for (i32 axis = 0; axis < 3; ++axis)
    if (!mFaces[axis].Fit(*flow.mVelocity.GetGrid(axis))) return Release();
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>& grid = *flow.mVelocity.GetGridForWrite(axis);
    const EGrid<float>* open = flow.GetOpenFaces(axis);
    if (!open) continue;
    MarkFaces(flow, axis, *open, *mFaces[axis].valid);
    const EGrid<double>* solids = flow.mSurface ? nullptr : flow.mBoundary.GetLevelSet();
    if (solids && solids->Dims() != grid.mLayout.dims + VecInt3D{1, 1, 1}) solids = nullptr;
    const EGrid<double>* before = byChange ? flow.mVelocity.mPrevious[axis].get() : nullptr;
    if (before && before->Dims() != grid.Dims()) before = nullptr;
    Extend(grid, mFaces[axis], solids, before ? before->mData : nullptr, rounds, flow.Threads());
  }
}

void GridExtrapolation::ExtendField(EGrid<double>& field, double initial, i32 rounds, i32 threads) {
  if (rounds <= 0) return;
  if (!field.mData || !mField.Fit(field)) return Release();
  Grid<u8>& valid = *mField.valid;
  ForEachInnerRow(field, threads, [&](i32 row, i32, i32, i32 n) {
    for (i32 x = 0; x < n; ++x) valid[row + x] = field[row + x] > initial;
  });
  Extend(field, mField, nullptr, nullptr, rounds, threads);
}

namespace {

/// Puts the mean change of the neighbours that had a velocity before on top of a face's own.
void AddChange(EGrid<double>& grid, const double* before, const u8* known,
               const i32 (&neighbours)[6], i32 face) {
  double sum = 0;
  i32 count = 0;
  for (const i32 step : neighbours)
    if (known[face + step] && before[face + step] != 0)
      sum += grid[face + step] - before[face + step], ++count;
  if (count > 0) grid[face] = before[face] + sum / count;
}

}  // namespace

void GridExtrapolation::Extend(EGrid<double>& grid, Flags& flags, const EGrid<double>* solids,
                               const double* before, i32 rounds, i32 threads) const {
  Grid<u8>& valid = *flags.valid;
  const u8* known = flags.known->mData;
  const double deepest = -2.0 * grid.mLayout.cellSize;
  const i32 neighbours[6] = {1, grid.mNx, grid.mSlice, -1, -grid.mNx, -grid.mSlice};
  // By the four nodes of the face: a cell would lie on one side of it.
  const i32 u = solids ? (grid.mKind == kFaceX ? solids->mNx : 1) : 0;
  const i32 v = solids ? (grid.mKind == kFaceZ ? solids->mNx : solids->mSlice) : 0;
  const auto isDeep = [&](i32 x, i32 y, i32 z) {
    const double* n = solids->mData + solids->Index(x, y, z);
    return 0.25 * ((n[0] + n[u]) + (n[v] + n[u + v])) < deepest;
  };
  for (i32 round = 0; round < rounds; ++round) {
    std::copy_n(valid.mData, valid.mCount, flags.known->mData);
    ForEachInnerRow(grid, threads, [&](i32 row, i32 y, i32 z, i32 n) {
      // Most rows are known all along.
      const u8 *first = known + row, *last = first + n;
      const auto next = [&](const u8* from) {
        return static_cast<const u8*>(std::memchr(from, 0, last - from));
      };
      for (const u8* at = next(first); at; at = next(at + 1)) {
        const i32 x = static_cast<i32>(at - first), face = row + x;
        if (solids && isDeep(x + 1, y, z)) continue;
        double sum = 0;
        i32 count = 0;
        for (const i32 step : neighbours)
          if (known[face + step]) sum += grid[face + step], ++count;
        if (count == 0) continue;
        grid[face] = sum == 0 ? 0.0 : sum / count;
        if (before && before[face] != 0) AddChange(grid, before, known, neighbours, face);
        valid[face] = 1;
      }
    });
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
