#include "fluids/surfaces/surface_reconstructor.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "fluids/emission/loose_points.h"
#include "fluids/surfaces/near_blocks.h"
#include "fluids/surfaces/stray_places.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

constexpr i32 kMargin = 5;  ///< cells of the scene round the particles
constexpr double kNowhere = std::numeric_limits<double>::quiet_NaN();

bool IsFinite(const Vec3d& p) {
  return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

/// Round the places that count.
Bounds BoxOf(const std::vector<Vec3d>& places) {
  Bounds box;
  for (const Vec3d& p : places)
    if (IsFinite(p)) box.Add({p, p});
  return box;
}

/// What a surface is going to need, for the limit of memory.
class SurfaceMemory : public ScenePart {
 public:
  explicit SurfaceMemory(const SurfaceReconstructor& surface) : mSurface(surface) {}
  double Memory() const override { return mSurface.ExpectedBytes(); }

 private:
  const SurfaceReconstructor& mSurface;
};

}  // namespace

SurfaceReconstructor::SurfaceReconstructor(BaseNode* node, Scene* scene) : iObject(node, scene) {
  mParts.Add(std::make_unique<SurfaceMemory>(*this));
}

double SurfaceReconstructor::ExpectedBytes() const {
  const double held = mResult ? static_cast<double>(mResult->mCount) * sizeof(double) : 0;
  if (!Has(FLAG_ENABLED) || !Store() || Store()->IsEmpty()) return held;
  const Bounds& box = Store()->GetBounds().box;
  if (!box.IsValid()) return held;
  double samples = SamplesIn(box);
  if (IsMostlySpace(samples, Store()->Count())) {
    std::vector<Vec3d> places(Store()->Positions().begin(), Store()->Positions().end());
    LeaveOutStrays(places, GetDomain().cellSize);
    samples = SamplesIn(BoxOf(places));
  }
  return samples * sizeof(double) + double(Store()->Count()) * sizeof(PointLookup::Entry);
}

double SurfaceReconstructor::SamplesIn(const Bounds& box) const {
  double samples = 1;
  for (int a = 0; a < 3; ++a)
    samples *=
        ((box.max[a] - box.min[a]) + 2 * kMargin * Cell()) / GetDomain().cellSize * mResolution + 1;
  return samples;
}

void SurfaceReconstructor::CheckDirty() {
  if (Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!Has(FLAG_ENABLED) || IsDirty()) return;
  if (mScene->mFlags & Scene::kTimeChanged) MarkDirty(false);
}

void SurfaceReconstructor::Reset() {
  iObject::Reset();
  mConstraints.Reset();
  mFull = mFullFor = 0;
  mWarnings.clear();
  mToldStrays = false;
  mResult.reset();
  mPoints.Clear();
}

void SurfaceReconstructor::Release(bool full) {
  mResult.reset();
  mPoints.Clear();
  iObject::Release(full);
}

void SurfaceReconstructor::Persist(StateArchive& archive) {
  iObject::Persist(archive);
  mConstraints.Persist(archive, *mScene);
  archive(mFull, mFullFor);
}

double SurfaceReconstructor::Cell() const {
  const double played = mGroup && !mUsesHost ? mGroup->PlayedCell(mKind) : 0;
  return played > 0 ? played : GetDomain().cellSize;
}

double SurfaceReconstructor::Reach() const {
  const double reach = mSearch * mRadius;
  // A surface that is moved out still lies in reach.
  return (mFits ? reach : std::max(reach, mRadius + mShift)) * Cell();
}

SurfaceShape SurfaceReconstructor::Shape() const {
  const double cell = Cell();
  SurfaceShape shape;
  if (mFits) {
    shape = SurfaceShape::Fitted(mMode, Reach(), cell / std::cbrt(mPerCell));
  } else {
    shape.mode = mMode;
    shape.reach = Reach();
    shape.radius = mRadius * cell;
    shape.blobScale = cell;
  }
  shape.leastNeighbours = mLeastNeighbours;
  shape.usesMass = mUsesMass;
  shape.kernel = mKernel;
  shape.ellipsoidRadius = mEllipsoidRadius * cell;
  shape.cell = cell;
  shape.corrects = mCorrects;
  shape.correctLow = mCorrectLow;
  shape.correctHigh = mCorrectHigh;
  return shape;
}

std::vector<Vec3d> SurfaceReconstructor::CollectPlaces() {
  std::vector<Vec3d> places;
  const GridLayout& domain = GetDomain();
  if (mUsesHost) {
    if (mPointsObject)
      ForEachLoosePoint(*mPointsObject, domain, [&](const Vec3d& p) { places.push_back(p); });
    if (mPolygonObject)
      for (const Vec3d& p : mPolygonObject->GetGeometry().points)
        places.push_back(mPolygonObject->GlobalMatrix() * p * domain.worldToSim);
    return places;
  }
  ParticleStore& store = mGroup->Store(mKind);
  places.assign(store.Positions().begin(), store.Positions().end());
  const i32 property = mPosition == kEllipsoidCentre    ? i32{property_id::kEllipsoidCentre}
                       : mPosition == kDeformedPosition ? i32{property_id::kDeformed}
                                                        : 0;
  const PropertyColumn<Vec3d>* column = property ? store.Find<Vec3d>(property) : nullptr;
  for (i32 row = 0; row < store.Count(); ++row) {
    if (column) places[row] = column->Get(row, places[row]);
    if (!(store.Flags()[row] & PF_ALIVE)) places[row].x = kNowhere;
  }
  if (mFilters) Filter(places);
  return places;
}

std::vector<const EGrid<double>*> SurfaceReconstructor::LimitGrids() const {
  std::vector<const EGrid<double>*> grids;
  std::vector<VolumeBase*> members;
  if (mLimitVolume) mLimitVolume->CollectMembers(members);
  for (const VolumeBase* member : members)
    if (member->HasGridData()) grids.push_back(member->GetGrid());
  const EGrid<double>* field = mLimitField ? mLimitField->GetCachedGrids()[0] : nullptr;
  if (field && field->mData) grids.push_back(field);
  return grids;
}

void SurfaceReconstructor::Filter(std::vector<Vec3d>& places) {
  ParticleStore& store = mGroup->Store(mKind);
  const PropertyColumn<double>* density = store.Find<double>(property_id::kDensity);
  const std::vector<const EGrid<double>*> limits = LimitGrids();
  const double deepest = -GetDomain().cellSize;
  const bool asksDensity = mThreshold < 1;
  const auto start = [&](i32 row) {
    const Vec3d& p = places[row];
    if (!IsFinite(p)) return 0.0;
    const double own = density ? density->Get(row, 0) : 0;
    bool counts = !asksDensity || own > 1 || !(own < mThreshold);
    for (const EGrid<double>* limit : limits)
      if (counts && limit->mLayout.Contains(p, false))
        counts = !(SampleLinear(*limit, limit->ToSamples(p)) < deepest);
    u16& flags = store.Flags()[row];
    flags = static_cast<u16>(flags & ~PF_MARK);
    return counts ? 1.0 : 0.0;
  };
  const auto mark = [&](i32 row, double weight) {
    if (weight > 0) store.Flags()[row] |= PF_MARK;
  };
  mConstraints.Prepare(this);
  mConstraints.ForEachWeighed(
      {0, store.Count(), this, 0, &store}, [&](i32 row) { return places[row]; }, start, mark);
  mConstraints.Finish(this);
  for (i32 row = 0; row < store.Count(); ++row)
    if (IsFinite(places[row]) && !(store.Flags()[row] & PF_MARK)) places[row].x = kNowhere;
}

bool SurfaceReconstructor::TakeLayout(const GridLayout& layout) {
  const VecInt3D dims = layout.dims + VecInt3D{1, 1, 1};
  if (mResult && mResult->mData && mResult->Dims() == dims) {
    mResult->mLayout = layout;
    return true;
  }
  mResult.reset();
  mResult = std::make_unique<EGrid<double>>(layout, kNode);
  if (mResult->mData) return true;
  mResult.reset();
  return false;
}

bool SurfaceReconstructor::AllocateResult(std::vector<Vec3d>& places) {
  Bounds box = BoxOf(places);
  if (box.IsValid() && IsMostlySpace(SamplesIn(box), static_cast<double>(places.size()))) {
    const i64 strays = LeaveOutStrays(places, GetDomain().cellSize);
    if (strays > 0 && !std::exchange(mToldStrays, true))
      mWarnings.push_back(fmt::format(
          "{0} of its particles {1} more than 1000 cells from the others and {1} left out", strays,
          strays == 1 ? "is" : "are"));
    box = BoxOf(places);
  }
  const Vec3d &low = box.min, &high = box.max;
  if (!box.IsValid()) {
    mResult.reset();
    if (mUsesHost) return Deactivate("its object has no points");
    return Deactivate(mFilters && !mGroup->Store(mKind).IsEmpty()
                          ? "its filter leaves out all particles"
                          : kNoParticlesReason);
  }
  const GridLayout& domain = GetDomain();
  const double cell = Cell();
  VecInt3D dims;
  Vec3d origin, size;
  double count = 1;
  // Samples stand where they do whatever particles there are, and so do the blocks of them by which
  // the surface is balanced.
  const double sample = domain.cellSize / mResolution;
  const i32 side = NearBlocks::SideOf(cell, sample);
  const double margin = std::ceil(kMargin * mResolution * (cell / domain.cellSize) / side) * side;
  for (int a = 0; a < 3; ++a) {
    const double first = std::floor(low[a] / (sample * side)) * side - margin;
    const double own = std::ceil(high[a] / sample - 1e-6) + margin - first;
    count *= own + 1;
    if (!(count < 2e9)) {
      mResult.reset();
      return Deactivate("its particles lie too far apart for a grid of its cells");
    }
    dims[a] = static_cast<i32>(own);
    origin[a] = first * domain.worldCell[a] / mResolution;
    size[a] = own * domain.worldCell[a] / mResolution;
  }
  GridLayout layout;
  layout.Set(dims, size, static_cast<f32>(sample), origin);
  return TakeLayout(layout) || Deactivate("there is no memory for its grid");
}

bool SurfaceReconstructor::TakeCachedPlace(const GridLayout& layout, i32 kind) {
  if (kind != kNode) return false;
  mPoints.Clear();
  return TakeLayout(layout);
}

/// A surface that is played has the velocities of the particles that are there too, if any are.
void SurfaceReconstructor::TakePlayedPoints() {
  mPoints.Clear();
  if (!Store() || Store()->IsEmpty()) return;
  const std::vector<Vec3d> places = CollectPlaces();
  mPoints.Build(places.data(), static_cast<i32>(places.size()), Reach() / 2);
}

void SurfaceReconstructor::Prepare() {
  if (Has(FLAG_CACHED)) return TakePlayedPoints();
  if (!IsDirty()) return;
  mPoints.Clear();
  const bool hasSource = mUsesHost ? mPointsObject || mPolygonObject : mGroup != nullptr;
  if (!hasSource) {
    mResult.reset();
    return void(Deactivate(mUsesHost ? "its source is no object with points; name one"
                           : mPointsObject || mPolygonObject
                               ? "its source is an object, whose points count with 'host_particles'"
                               : "its source is no group of particles; name one"));
  }
  std::vector<Vec3d> places = CollectPlaces();
  if (!AllocateResult(places)) return;
  // Buckets of half the reach leave fewer points to look at in vain.
  mPoints.Build(places.data(), static_cast<i32>(places.size()), Reach() / 2);
  SetFlag(FLAG_ACTIVE, true);
}

SurfaceLiquid SurfaceReconstructor::Liquid() const {
  const double cell = Cell();
  SurfaceLiquid liquid{.cell = cell};
  if (mFits)
    liquid.points = &mPoints, liquid.each = cell * cell * cell / mPerCell, liquid.full = mFull;
  return liquid;
}

void SurfaceReconstructor::Evaluate(const EvaluationThreadData&) {
  if (Has(FLAG_CACHED) || !Has(FLAG_ACTIVE) || !IsDirty()) return;
  const i32 threads = mScene->mThreadCount;
  ParticleSurface surface(mPoints, Store(), Shape());
  surface.Fill(*mResult, threads);
  const double shift = mShift * Cell(), outside = surface.Outside();
  if (std::exchange(mFullFor, mPerCell) != mPerCell) mFull = 0;
  if (mSmoothing > 0) TakeFull(SmoothSurfaceOf(*mResult, outside, mSmoothing, threads, Liquid()));
  if (shift != 0)
    ForEachBlock(mResult->mNz, threads, [&](i32 z) {
      double* layer = mResult->mData + z * i64{mResult->mSlice};
      for (i32 i = 0; i < mResult->mSlice; ++i)
        if (layer[i] < outside) layer[i] -= shift;
    });
  CutOff();
}

/// What is found first stays: were it asked in every frame, drops would jump with what crowds
/// elsewhere.
void SurfaceReconstructor::TakeFull(double full) {
  if (mFull > 0 || full == 0 || !mFits) return;
  mFull = full;
  if (full == 1) return;
  mWarnings.push_back(
      fmt::format("where its liquid is full there are {:.3g} particles to a cell, and "
                  "'particles_per_cell' says {:.3g}; its surface goes by what is there",
                  full * mPerCell, mPerCell));
}

void SurfaceReconstructor::CutOff() {
  std::vector<VolumeBase*> members;
  if (mBoundary && mBoundary->Has(FLAG_ENABLED)) mBoundary->CollectMembers(members);
  for (const VolumeBase* member : members)
    if (member->Has(FLAG_ENABLED) && member->HasGridData()) CutOff(*member);
}

void SurfaceReconstructor::CutOff(const VolumeBase& boundary) {
  ForEachBlock(mResult->mNz, mScene->mThreadCount, [&](i32 z) {
    for (i32 y = 0; y < mResult->mNy; ++y)
      for (i32 x = 0; x < mResult->mNx; ++x) {
        const Vec3d p = mResult->PositionOf(x, y, z);
        double& value = (*mResult)(x, y, z);
        if (boundary.IsInBounds(p)) value = std::max(value, -boundary.DistanceAtWorld(p));
      }
  });
}

void SurfaceReconstructor::Finish() {
  if (!Has(FLAG_CACHED)) SetFlag(FLAG_ACTIVE, false);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
