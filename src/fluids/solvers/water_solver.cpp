#include "fluids/solvers/water_solver.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "fluids/advection/liquid_contact.h"
#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/pressure/find_full_rooms.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

// A density is known to a percent at best.
constexpr double kCorrectionTolerance = 1e-2;
constexpr double kHaste = 1.1;    // of the way of a step: the next may be longer
constexpr double kFarthest = 24;  // cells; what goes farther in a step is warned of

}  // namespace

WaterSolver::WaterSolver(BaseNode* node, Scene* scene)
    : FluidSolver(node, scene), mCorrection(scene, mFlow) {
  mFreeSurface.Rebind(nullptr, scene);
  mFreeSurface.mFlow = &mFlow;
  mFreeSurface.mBodyLedger = &mLedger;
}

// ---- set-up -----------------------------------------------------------------------------------

bool WaterSolver::ReadParameters() {
  if (!FluidSolver::ReadParameters()) return false;
  mFlip.mIsAffine = transfer == 1;
  mFlip.mGathers = gathers;
  mFlip.mKernelRadius = kernelRadius;
  mLevelSet.mMode = static_cast<SurfaceMode>(surfaceMode);
  mCorrection.mSource.mPerCell = particlesPerCell;
  mCorrection.mSource.mKeepsVolume = mLevelSet.mMode == SurfaceMode::Smooth;
  // Sweeps end by how much a pressure changes, which isn't what moves particles here.
  mCorrection.Projection().mLinearSolver = linearSolver == 1 ? 2 : linearSolver;
  mCorrection.Projection().SetAccuracy({maxIterations, kCorrectionTolerance}, modification,
                                       minDiagonalRatio);
  mLevelSet.mDensityThreshold = densityThreshold;
  mLevelSet.mCountThreshold = static_cast<u8>(countThreshold);
  return true;
}

bool WaterSolver::ResolveLinks() {
  if (!FluidSolver::ResolveLinks()) return false;
  std::vector<ParticleGroup*> own;
  for (ParticleGroup* group : groups)
    if (group->Has(FLAG_ENABLED) && std::find(own.begin(), own.end(), group) == own.end())
      own.push_back(group);
  groups = std::move(own);
  mFlip.mKernel = kernel;
  mCorrection.Projection().mDuration = projectionDuration;
  return true;
}

void WaterSolver::ClearLinks() {
  mSort.Clear();
  mSorted.clear();
  mFlip.mKernel = nullptr;
  mCorrection.Projection().mDuration = nullptr;
  FluidSolver::ClearLinks();
}

void WaterSolver::Persist(StateArchive& archive) {
  FluidSolver::Persist(archive);
  archive(mLevelSet.mRest, mRestCount, mIsRestFound, mFull);
}

void WaterSolver::Reset() {
  FluidSolver::Reset();
  ForgetRest();
  mFull.Clear();
  mCorrection.Reset();
  mSort.Clear();
  mSorted.clear();
}

void WaterSolver::Release(bool full) {
  FluidSolver::Release(full);
  mCorrection.Release(full);
  mSort.Clear();
  mSorted.clear();
  mFlow.mSurface = nullptr;
  mSurface.reset();
  mLoose.Release();
  mFull.Clear();
  mIsOnGrid = false;
}

bool WaterSolver::ApplyBounds(const Vec3d& min, const Vec3d& max) {
  if (groups.empty() && Has(FLAG_ACTIVE)) {
    Release(true);
    return Deactivate("it has no group that is switched on; name one under 'groups'");
  }
  if (!FluidSolver::ApplyBounds(min, max)) return false;
  const GridLayout& layout = *mFlow.GetLayout();
  if (!mSurface || !mSurface->mLayout.Equals(layout)) {
    mFlow.mSurface = nullptr;
    mSurface = std::make_unique<EGrid<double>>(layout, kCentre);
    if (!mSurface->mData) {
      Release(true);
      return Deactivate("its surface couldn't be allocated");
    }
    mSurface->Fill(ParticleToLevelset::kFar);
    mSort.Reset(layout);
    mSorted.clear();
  }
  mFlow.mSurface = mSurface.get();
  return true;
}

// ---- stages -----------------------------------------------------------------------------------

void WaterSolver::Sort() {
  std::vector<std::pair<const ParticleGroup*, u64>> now;
  for (const ParticleGroup* group : groups) now.emplace_back(group, group->Changes(kLiquid));
  if (now == mSorted) return;
  mSort.Build(groups, kLiquid, mScene->mThreadCount, false, Shares());
  mSorted = std::move(now);
}

bool WaterSolver::CommutesWith(const iBase& other) const {
  return dynamic_cast<const WaterSolver*>(&other) != nullptr;
}

std::vector<GroupShare> WaterSolver::Shares() const {
  const auto boxOf = [](const WaterSolver& liquid) {
    GroupShare::Box box;
    liquid.GetUserBox(box.low, box.high);
    return box;
  };
  std::vector<GroupShare> shares(groups.size(), {boxOf(*this), {}, {}});
  bool isShared = false;
  for (const auto& [id, object] : mScene->List(kListSolvers)) {
    const auto* other = dynamic_cast<const WaterSolver*>(object.get());
    if (!other || other == this || !other->Has(FLAG_ENABLED)) continue;
    // As particles choose the flow that carries them.
    const bool isBefore = other->Node()->Path() < Node()->Path();
    for (std::size_t i = 0; i < groups.size(); ++i) {
      if (std::find(other->groups.begin(), other->groups.end(), groups[i]) == other->groups.end())
        continue;
      (isBefore ? shares[i].before : shares[i].after).push_back(boxOf(*other));
      isShared = true;
    }
  }
  return isShared ? shares : std::vector<GroupShare>();
}

void WaterSolver::ForgetRest() {
  mLevelSet.mRest = 0;
  mRestCount = 0;
  mIsRestFound = false;
}

double WaterSolver::ToldRest() const {
  FilledSpace all;
  for (const ParticleGroup* group : groups) {
    const ParticleStore& store = group->Store(kLiquid);
    if (store.Count() == 0) continue;
    const FilledSpace own = store.Filled();
    if (own.particles == 0) return 0;
    all.Add(own);
  }
  const double h = mSurface->mLayout.cellSize;
  return all.volume > 0 ? h * h * h * static_cast<double>(all.particles) / all.volume : 0.0;
}

void WaterSolver::FindSurface() {
  // A part of what is too much in a cell makes room for itself in a step, and of a lack, closes.
  constexpr double kEase = 0.25;
  const double dt = mScene->mTime.stepDuration;
  mLevelSet.mCrowd = {mFlow.mDivergence.GetGridForWrite(0), dt > 0 ? kEase / dt : 0.0};
  // How many fill a cell is told by who made them. Else they tell it themselves, once by enough
  // cells, and until then whenever there is twice as much: later a flow has pressed them together
  // or torn them.
  constexpr i64 kEnough = 27;
  if (mSort.Count() == 0) ForgetRest();
  if (const double told = correctsPositions ? particlesPerCell : ToldRest(); told > 0)
    mLevelSet.mRest = told;
  else if (!mIsRestFound && mSort.Count() > 2 * i64{mRestCount}) {
    mLevelSet.mRest = 0;
    mRestCount = mSort.Count();
  }
  const Grid_VolumeFractions& fractions = mFlow.mFractions;
  mLevelSet.Run(
      mSort,
      {mFlow.mBoundary.GetLevelSet(), fractions.HasField(0, 0) ? fractions.GetRead(0, 0) : nullptr},
      *mSurface);
  mIsRestFound |= mLevelSet.mRestCells >= kEnough;
}

void WaterSolver::Evaluate(const EvaluationThreadData& data) {
  FluidSolver::Evaluate(data);
  if (!Has(FLAG_ACTIVE) || !IsDirty() || !mFlow.HasVelocity() || !mSurface) return;
  switch (mScene->mStage) {
    case kOperators:
      Sort();
      FindSurface();
      break;
    case kFluidDynamics:
      Sort();
      // The part of a particle's velocity that is finer than the lattice dies away as its finest
      // wave does.
      mFlip.mRatio = flipRatio / (1 + std::numbers::pi * std::numbers::pi * ViscousReach());
      mIsOnGrid = !Has(FLAG_CACHED) && mFlip.ToGrid(mSort, mFlow);
      if (Has(FLAG_CACHED) && reproject && !PlaysParticles()) HybridFlip::TakeFlow(mSort, mFlow);
      break;
    case kFlip:
      // The flow follows particles that are played, and they keep what was recorded.
      if (mIsOnGrid && PlaysParticles()) {
        FollowPlayed();
        mIsOnGrid = false;
      }
      if (mIsOnGrid) {
        mLedger.BookFlow(mFlow);
        mFlip.ToParticles(mSort, mFlow);
        LiquidContact::Apply(mSort, mFlow, mLedger);
      }
      mLedger.Pay(mScene->mTime.stepDuration);
      mCorrection.mSource.mEven = mLevelSet.mEven.get();
      if (mIsOnGrid && correctsPositions) mCorrection.Run(mSort, mFlow, Rounds());
      mIsOnGrid = false;
      break;
    default: break;
  }
}

FluidSolver::Room WaterSolver::Ways() const {
  Vec3d low{}, high{};
  constexpr i64 kRows = 4096;
  for (const ParticleGroup* group : groups) {
    const ParticleStore& store = group->Store(kLiquid);
    const std::span<const Vec3d> velocities = store.Velocities();
    const std::span<const u16> flags = store.Flags();
    const i32 rows = store.Count();
    const Room fastest = ReduceBlocks(
        static_cast<i32>((rows + kRows - 1) / kRows), mScene->mThreadCount, Room{},
        [&](i32 block) {
          Room found;
          const i64 first = block * kRows, last = std::min<i64>(first + kRows, rows);
          for (i64 i = first; i < last; ++i) {
            if (!(flags[i] & PF_ALIVE)) continue;
            found.low = Min(found.low, velocities[i]);
            found.high = Max(found.high, velocities[i]);
          }
          return found;
        },
        [](const Room& a, const Room& b) {
          return Room{Min(a.low, b.low), Max(a.high, b.high)};
        });
    low = Min(low, fastest.low);
    high = Max(high, fastest.high);
  }
  const double cells = kHaste * mScene->mTime.stepDuration / GetDomain().cellSize;
  // 0 where a velocity isn't a number.
  const auto way = [&](double speed) { return std::min(std::max(0.0, speed * cells), kFarthest); };
  Room ways;
  for (int a = 0; a < 3; ++a) ways.low[a] = way(-low[a]), ways.high[a] = way(high[a]);
  return ways;
}

FluidSolver::Room WaterSolver::RoomAhead() const {
  // Particles move behind this, through velocities of the step before, which end at the sides that
  // it had: a way ahead of where they stand now, and as far again.
  Room room = Ways();
  for (int a = 0; a < 3; ++a) {
    room.low[a] = std::ceil(2 * room.low[a]) + 1;
    room.high[a] = std::ceil(2 * room.high[a]) + 1;
  }
  return room;
}

bool WaterSolver::PlaysParticles() const {
  return std::any_of(groups.begin(), groups.end(),
                     [](const ParticleGroup* group) { return group->IsCached(kLiquid); });
}

void WaterSolver::FollowPlayed() {
  if (!mFlip.ToGrid(mSort, mFlow)) return;
  mExtrapolation.ExtendVelocity(mFlow, Rounds(), true);
  mLoose.Take(mFlow);
  mConstrain.Run(mFlow);
  mFlow.SetWallVelocities(1.0);
  mLoose.Put(mFlow);
}

i32 WaterSolver::Rounds() const {
  if (extrapolationRounds <= 0) return extrapolationRounds;
  // Particles stand up to two faces beyond the cells that a smooth surface holds.
  constexpr i32 kBeyond = 2;
  const bool isSmooth = mLevelSet.mMode == SurfaceMode::Smooth;
  const Room ways = Ways();
  double farthest = 0;
  for (int a = 0; a < 3; ++a) farthest = std::max({farthest, ways.low[a], ways.high[a]});
  return std::max(extrapolationRounds, static_cast<i32>(std::ceil(farthest)) + 1) +
         (isSmooth ? kBeyond : 0);
}

void WaterSolver::FindInflows() {
  mInflows.Clear();
  std::vector<const ObjectParticleGridEmitter*> sources;
  for (const auto& [id, object] : mScene->List(kListEmitters)) {
    const auto* emitter = dynamic_cast<const ObjectParticleGridEmitter*>(object.get());
    if (emitter && emitter->Feeds(*this)) sources.push_back(emitter);
  }
  // Names, not the order of the file, decide between two that hold a cell.
  std::sort(sources.begin(), sources.end(),
            [](const iBase* a, const iBase* b) { return a->Node()->Path() < b->Node()->Path(); });
  for (const ObjectParticleGridEmitter* source : sources)
    mInflows.Add(source->CellsIn(*mFlow.GetLayout()), source->InflowVelocity(),
                 source->HasStopped());
}

void WaterSolver::FindFull() {
  const Grid_VolumeFractions& fractions = mFlow.mFractions;
  FindFullRooms(mFreeSurface.Regions(), mSort, *fractions.GetRead(0, 0), mLevelSet.mRest, mFull);
  mInflows.MarkFull(mFull, *mFlow.GetLayout());
}

void WaterSolver::OpenLedger() {
  mLedger.Close();
  if (!mIsOnGrid || PlaysParticles() || mFreeSurface.mDensityChannel || !(mLevelSet.mRest > 0))
    return;
  const double h = mSurface->mLayout.cellSize, density = mFreeSurface.mDensity;
  mLedger.Open({mSort, density * h * h * h / mLevelSet.mRest}, mFlow, density);
}

bool WaterSolver::SolvePressure() {
  OpenLedger();
  mConstrain.Run(mFlow);
  mFlow.SetWallVelocities(1.0);
  FindInflows();
  mInflows.Close(mFlow);
  const bool isFound = mFreeSurface.Project();
  mInflows.Open(mFlow);
  isFound ? FindFull() : mFull.Clear();
  ContinueVelocity();
  mFreeSurface.RestoreSurface();
  mFlow.mDivergence.Reset();
  return true;
}

void WaterSolver::ContinueVelocity() {
  const bool byChange = mFlip.mIsAffine || flipRatio > 0;
  mExtrapolation.ExtendVelocity(mFlow, Rounds(), mIsOnGrid && byChange);
  mInflows.Hold(mFlow);
  mLoose.Take(mFlow);
  mConstrain.Run(mFlow);
  mFlow.SetWallVelocities(mFlow.mWallSlip);
  mLoose.Put(mFlow);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
