#include "fluids/flow/flow.h"

#include <algorithm>
#include <cmath>

#include "fluids/flow/wall_velocities.h"
#include "fluids/volume/volume_base.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// The largest magnitude; eight lanes, so that the loop runs at the speed of memory.
double LargestMagnitude(const double* values, i64 count) {
  double most[8] = {};
  i64 i = 0;
  for (; i + 8 <= count; i += 8)
    for (int lane = 0; lane < 8; ++lane) {
      const double v = std::abs(values[i + lane]);
      most[lane] = v > most[lane] ? v : most[lane];
    }
  for (; i < count; ++i) most[0] = std::max(most[0], std::abs(values[i]));
  return *std::max_element(most, most + 8);
}

}  // namespace

Flow::Flow(Scene* scene) : mScene(scene) {
  mVelocity.Rebind(nullptr, scene);
  mVelocity.SetUnbounded();
  mDivergence.Rebind(nullptr, scene);
  mDivergence.SetUnbounded();
  mFractions.mMethod = FractionMethod::Analytic;
  mFractions.mInvert = true;
  mFractions.mKinds = kFractionCell | kFractionFaces;
  mFractions.mLeast = kLeastOpening;
}

const GridLayout* Flow::GetLayout() const {
  const EGrid<double>* u = mVelocity.GetGrid(0);
  return u ? &u->mLayout : nullptr;
}

bool Flow::HasVelocity() const {
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>* g = mVelocity.GetGrid(axis);
    if (!g || !g->mData) return false;
  }
  return true;
}

const EGrid<float>* Flow::GetOpenFaces(i32 axis) const {
  if (!mFractions.HasField(axis, 1)) return nullptr;
  const EGrid<float>* open = mFractions.GetRead(axis, 1);
  const EGrid<double>* velocity = mVelocity.GetGrid(axis);
  return open && open->mData && velocity && open->Dims() == velocity->Dims() ? open : nullptr;
}

bool Flow::ContainsPoint(const Vec3d& world) const {
  const GridLayout* layout = GetLayout();
  if (!layout) return false;
  for (int a = 0; a < 3; ++a)
    if (!(world[a] > layout->simOrigin[a] + layout->cellSize &&
          world[a] < layout->simMax[a] - layout->cellSize))
      return false;
  return true;
}

const char* Flow::Fit(const Vec3d& min, const Vec3d& max, bool isCached) {
  const GridLayout before = GetLayout() ? *GetLayout() : mScene->mDomain;
  mVelocity.SetFlag(FLAG_CACHED, isCached);
  if (!mVelocity.ApplyBounds(min, max)) return "its velocity grids couldn't be allocated";
  const bool hasSolids = isCached || (mBoundary.GetLevelSet() && mDivergence.GetGrid(0));
  if (hasSolids && GetLayout() && GetLayout()->Equals(before)) return nullptr;
  mAlike = 0;
  if (!mBoundary.Fit(mScene->mDomain, min, max)) return "its solid level set couldn't be allocated";
  if (isCached) {
    mDivergence.Release(true);
    return nullptr;
  }
  const bool fresh = !mDivergence.GetGrid(0);
  mDivergence.mKind = kCentre;
  mDivergence.ApplyBounds(min, max);
  if (fresh) mDivergence.Reset();
  return nullptr;
}

/// The first step with other solids finds what they have left, and the second one that nothing was
/// left: from then on there is nothing new.
bool Flow::AreSolidsBuilt() {
  constexpr i32 kSettled = 2;
  const auto isThere = [](const VolumeBase* obstacle) { return obstacle->Has(FLAG_ENABLED); };
  const EGrid<double>* levelSet = mBoundary.GetLevelSet();
  if (!levelSet || std::any_of(mBoundary.mObstacles.begin(), mBoundary.mObstacles.end(), isThere)) {
    mAlike = 0;
    return false;
  }
  if (mWalls != mBoundary.mWalls || !mWallLayout.Equals(levelSet->mLayout)) mAlike = 0;
  mWalls = mBoundary.mWalls;
  mWallLayout = levelSet->mLayout;
  return mAlike++ >= kSettled;
}

void Flow::BuildSolids() {
  if (AreSolidsBuilt()) return;
  const EGrid<double>* levelSet = mBoundary.GetLevelSet();
  if (levelSet) mBoundary.Build(Threads());
  mFractions.mSource = {levelSet, GetLayout()};
  mFractions.Measure(Threads());
  mThinFaces.Release();
  if (!levelSet) {
    mNarrowGaps.Release();
    mSolidCells.Release();
    return mWallCells.Release();
  }
  mNarrowGaps.Build(mBoundary, Threads());
  mNarrowGaps.Open(mFractions);
  mThinFaces.Build(mBoundary, Threads());
  if (mThinFaces.HasAny()) mThinFaces.Close(mFractions);
  mBoundary.ComputeActiveBox(Threads());
  mSolidCells.Build(*levelSet, Threads());
  mNarrowGaps.Mark(mSolidCells);
  mWallCells.Build(mBoundary, mSolidCells.Get(), mThinFaces, Threads());
}

double Flow::ObstacleTravel() const {
  return mBoundary.ObstacleTravel() / mScene->mDomain.cellSize;
}

void Flow::SetWallVelocities(double factor) {
  MELDO_SULVA::SetWallVelocities(
      {mVelocity.GetGridForWrite(0), mVelocity.GetGridForWrite(1), mVelocity.GetGridForWrite(2)},
      mBoundary.mWalls, factor);
}

double Flow::MeasureMaxSpeedSq() const {
  double sum = 0;
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>& g = *mVelocity.GetGrid(axis);
    const double top = MaxBlocks(g.mCount, 1 << 16, Threads(), [&](i64 first, i64 last) {
      return LargestMagnitude(g.mData + first, last - first);
    });
    sum += top * top;
  }
  return std::max(sum, 1e-8);
}

void Flow::Reset() {
  mAlike = 0;
  mVelocity.Reset();
  mBoundary.Reset();
  mDivergence.Reset();
  mFractions.Reset();
  mWallCells.Release();
  mNarrowGaps = {};
}

void Flow::Release(bool full) {
  mAlike = 0;
  mVelocity.Release(full);
  if (full) mBoundary.Release();
  mDivergence.Release(full);
  mFractions.Release();
  mThinFaces.Release();
  if (full) mNarrowGaps.Release();
  mSolidCells.Release();
  if (full) mWallCells.Release();
  mScratch.Release();
}

void Flow::Persist(StateArchive& archive) {
  mAlike = 0;
  mVelocity.Persist(archive);
  mDivergence.Persist(archive);
  mBoundary.Persist(archive);
  mWallCells.Persist(archive);
  mNarrowGaps.Persist(archive);
}

i32 Flow::Threads() const { return mScene->mThreadCount; }

double Flow::StepDuration() const { return mScene->mTime.stepDuration; }

bool Flow::IsCancelled() const { return mScene->IsCancelled(); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
