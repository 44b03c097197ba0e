#include "fluids/constraints/velocity_probe.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void VelocityProbe::Connect(std::span<const host::LinkTarget> targets) {
  host::ParameterHolder* object = targets.empty() ? nullptr : targets.front().object;
  mField = dynamic_cast<VectorField*>(object);
  mSolver = dynamic_cast<iFluidSolver*>(object);
}

bool VelocityProbe::Open() {
  mSurface = mSolver ? mSolver->GetFlow().mSurface : nullptr;
  if (mSurface && !mSurface->mData) mSurface = nullptr;
  const VectorField* field = mSolver ? &mSolver->GetFlow().mVelocity : mField;
  for (i32 a = 0; a < 3; ++a) {
    mGrids[a] = field ? field->GetGrid(a) : nullptr;
    if (!mGrids[a] || !mGrids[a]->mData) return false;
  }
  mCellSize = mGrids[0]->mLayout.cellSize;
  return true;
}

bool VelocityProbe::Holds(const Vec3d& p) const {
  if (!mGrids[0]->mLayout.Contains(p, false)) return false;
  return !mSurface || SampleLinear(*mSurface, mSurface->ToSamples(p)) < 0;
}

Vec3d VelocityProbe::At(const Vec3d& p) const {
  Vec3d v;
  for (i32 a = 0; a < 3; ++a) v[a] = SampleLinear(*mGrids[a], mGrids[a]->ToSamples(p));
  return v;
}

double VelocityProbe::Slope(const Vec3d& p, i32 i, i32 a) const {
  const EGrid<double>& grid = *mGrids[i];
  const Vec3d c = grid.ToSamples(p);
  Vec3d own{}, other{};
  own[i] = 0.5;
  other[a] = 1;
  if (i == a) return (SampleLinear(grid, c + own) - SampleLinear(grid, c - own)) / mCellSize;
  const Vec3d high = c + other, low = c - other;
  return (SampleLinear(grid, high + own) + SampleLinear(grid, high - own) -
          SampleLinear(grid, low + own) - SampleLinear(grid, low - own)) /
         (4 * mCellSize);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
