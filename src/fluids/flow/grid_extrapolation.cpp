#include "fluids/flow/grid_extrapolation.h"

#include "fluids/solvers/fluid_solver.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

GridExtrapolation::GridExtrapolation(const GridExtrapolation& other)
    : iObject(other), mAxis(other.mAxis), mRounds(other.mRounds), mLiquid(other.mLiquid) {}

bool GridExtrapolation::ReadParameters(void* context) {
  mLiquid = false;
  if (!iObject::ReadParameters(context)) return false;
  mRounds = mInterface.GetLong(1018);
  return true;
}

void GridExtrapolation::ClearLinks() {
  mScalarChannel = nullptr;
  mVectorChannel = nullptr;
  iObject::ClearLinks();
}

void GridExtrapolation::Reset() {
  if (!mValid[mAxis] || !mPrevious[mAxis]) return;
  const Grid<u8>& valid = *mValid[mAxis];
  Grid<u8>& previous = *mPrevious[mAxis];
  std::copy_n(valid.mData, valid.mCount, previous.mData);
  previous.mActiveMin = valid.mActiveMin;
  previous.mActiveMax = valid.mActiveMax;
}

void GridExtrapolation::Release(bool full) {
  if (full) iObject::Release(true);
  for (auto& grid : mValid) grid.reset();
  for (auto& grid : mPrevious) grid.reset();
}

EGrid<double>* GridExtrapolation::Target(i32 slot) const {
  if (slot < 3) return mSolver ? mSolver->mVelocity.GetGridForWrite(slot) : nullptr;
  if (mVectorChannel) return mVectorChannel->GetGridForWrite(mComponent);
  return mScalarChannel ? mScalarChannel->GetGridForWrite(0) : nullptr;
}

bool GridExtrapolation::NextPass() {
  if (mPass == 1) {
    ++mRound;
    Reset();
    if (mRound <= mRounds) return true;
  }
  ++mPass;
  if (mPass == 1) {
    if (mRounds != 0) {
      Reset();
      mRound = 1;
    } else {
      mPass = 2;
    }
  }
  if (mPass < 2) return true;
  mPass = -1;
  return false;
}

void GridExtrapolation::Prepare(void*) {
  const bool hasSource = mAxis == 3 ? mScalarChannel || mVectorChannel : mSolver != nullptr;
  if (!hasSource || mRounds <= 0) return SetFlag(FLAG_ACTIVE, false);
  if (mPass == 0) {
    const auto fit = [](std::unique_ptr<Grid<u8>>& grid, const EGrid<double>& target) {
      if (grid && grid->mKind == target.mKind && grid->Dims() == target.Dims())
        grid->Fill(0);
      else
        grid = std::make_unique<Grid<u8>>(target.Dims(), target.mKind);
      return grid->mData != nullptr;
    };
    const i32 first = mAxis == 3 ? 3 : 0, last = mAxis == 3 ? 3 : 2;
    for (i32 slot = first; slot <= last; ++slot) {
      const EGrid<double>* target = Target(slot);
      if (!target) return SetFlag(FLAG_ACTIVE, false);
      if (!fit(mValid[slot], *target) || !fit(mPrevious[slot], *target)) {
        Release(false);
        return SetFlag(FLAG_ACTIVE, false);
      }
    }
  }
  SetFlag(FLAG_ACTIVE, true);
}

CellBox GridExtrapolation::ShareOf(const EGrid<double>& grid,
                                   const EvaluationThreadData& data) const {
  VecInt3D extra = ExtraOf(grid.mKind);
  // The extra layer in z belongs to the last slab, so that no face has two owners.
  if (!data.isLast) extra.z = 0;
  return Clip({data.min, data.max + extra}, {1, 1, 1}, grid.Dims() - VecInt3D{1, 1, 1});
}

void GridExtrapolation::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE) || !mValid[mAxis]) return;
  EGrid<double>* grid = Target(mAxis);
  if (!grid || !grid->mData || grid->Dims() != mValid[mAxis]->Dims()) return;
  const CellBox box = ShareOf(*grid, data);
  if (mPass == 0) Mark(*grid, box);
  if (mPass == 1) Extend(*grid, box);
}

void GridExtrapolation::Mark(const EGrid<double>& grid, const CellBox& box) {
  Grid<u8>& valid = *mValid[mAxis];
  const auto forEachRow = [&](auto&& row) {
    for (i32 z = box.min.z; z < box.max.z; ++z)
      for (i32 y = box.min.y; y < box.max.y; ++y) row(grid.Index(0, y, z), y, z);
  };
  if (mAxis == 3) {
    const double initial =
        mVectorChannel ? mVectorChannel->mInitial[mComponent] : mScalarChannel->mInitial;
    return forEachRow([&](i32 row, i32, i32) {
      for (i32 x = box.min.x; x < box.max.x; ++x) valid[row + x] = grid[row + x] > initial;
    });
  }
  const EGrid<float>* open = mSolver->GetOpenFaces(mAxis);
  if (!open) return;
  if (!mLiquid)
    return forEachRow([&](i32 row, i32, i32) {
      for (i32 x = box.min.x; x < box.max.x; ++x) valid[row + x] = (*open)[row + x] > 0;
    });
  const EGrid<double>* phi = mSolver->GetSurfaceLevelSet();
  if (!phi || !phi->mData || phi->Dims() + ExtraOf(mAxis) != grid.Dims()) return;
  const VecInt3D below = ExtraOf(mAxis);
  forEachRow([&](i32 row, i32 y, i32 z) {
    for (i32 x = box.min.x; x < box.max.x; ++x)
      valid[row + x] = (*open)[row + x] > 0 &&
                       ((*phi)(x, y, z) < 0 || (*phi)(x - below.x, y - below.y, z - below.z) < 0);
  });
}

void GridExtrapolation::Extend(EGrid<double>& grid, const CellBox& box) {
  Grid<u8>& valid = *mValid[mAxis];
  const u8* known = mPrevious[mAxis]->mData;
  const EGrid<double>* levelSet =
      mAxis < 3 && !mLiquid ? mSolver->mBoundary.GetLevelSet() : nullptr;
  if (levelSet && levelSet->Dims() != grid.mLayout.dims + VecInt3D{1, 1, 1}) levelSet = nullptr;
  const double deepest = -2.0 * grid.mLayout.cellSize;
  const i32 neighbours[6] = {1, grid.mNx, grid.mSlice, -1, -grid.mNx, -grid.mSlice};
  const auto isDeep = [&](i32 x, i32 y, i32 z) {
    const double* n = levelSet->mData + levelSet->Index(x, y, z);
    const i32 ny = levelSet->mNx, nz = levelSet->mSlice;
    const double sum = ((n[0] + n[1]) + (n[ny] + n[ny + 1])) +
                       ((n[nz] + n[nz + 1]) + (n[nz + ny] + n[nz + ny + 1]));
    return 0.125 * sum < deepest;
  };
  ForEachCell(box, [&](int x, int y, int z) {
    const i32 face = grid.Index(x, y, z);
    if (known[face] || (levelSet && isDeep(x, y, z))) return;
    double sum = 0;
    i32 count = 0;
    for (const i32 step : neighbours)
      if (known[face + step]) sum += grid[face + step], ++count;
    if (count == 0) return;
    grid[face] = sum == 0 ? 0.0 : sum / count;
    valid[face] = 1;
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
