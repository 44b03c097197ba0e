#include "fluids/volume/volume_base.h"

#include "fluids/mesh/mesh.h"
#include "fluids/volume/sharp_surface.h"
#include "framework/scene.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void iVolume::ExpandBounds(Vec3d& min, Vec3d& max) {
  min = Min(min, mBoxMin);
  max = Max(max, mBoxMax);
  if (Has(FLAG_CACHED) && mHasSecondBox) {
    min = Min(min, mSecondBox.simOrigin);
    max = Max(max, mSecondBox.simMax);
  }
}

void VolumeBase::GetCategories(u32& mask) const {
  iVolume::GetCategories(mask);
  if (mHasTag) mask |= kCategoryActiveVolume;
}

bool VolumeBase::ReadParameters() {
  if (!iVolume::ReadParameters()) return false;
  mPadding = {mPaddingCells, mPaddingCells, mPaddingCells};
  SetFlag(FLAG_AFFECTS_BOUNDS, mWidensBounds);
  return true;
}

bool VolumeBase::AfterLinks() {
  mHasTag = Node() && Node()->Tag(host::kObstacleTag);
  if (mMesh) mMesh->SetTagOwner(mHasTag ? Node() : nullptr);
  return true;
}

void VolumeBase::ClearLinks() {
  mMesh = nullptr;
  iVolume::ClearLinks();
}

bool VolumeBase::IsDirty() const {
  return Has(FLAG_DIRTY) &&
         (!mTime || mTime->substep < 2 || Has(FLAG_MOVED) || (mMesh && mMesh->IsGliding()));
}

void VolumeBase::Release(bool full) {
  mGrid.reset();
  MarkGridChanged();
  mFractions.Release();
  mCells = {};
  ClearBox();
  iVolume::Release(full);
}

// The distances are measured anew; a solver asks which volumes are obstacles before it is known.
void VolumeBase::Persist(StateArchive& archive) {
  iVolume::Persist(archive);
  archive(mHasTag, mCells, mExtent, mBoxMin, mBoxMax, mCentre, mOrigin, mCellSize,
          mMaximumDistance);
}

void VolumeBase::UpdateBounds() {
  mCells = {};
  const double size = static_cast<f32>(mCellSize);
  const Vec3d pad = mPadding * mCellSize;
  mBoxMin -= pad;
  mBoxMax += pad;
  VecInt3D cells{};
  for (int a = 0; a < 3; ++a) {
    mBoxMin[a] = std::floor(mBoxMin[a] / size) * size;
    mBoxMax[a] = std::ceil(mBoxMax[a] / size) * size;
    // A flat mesh without padding can lie in a plane of nodes.
    if (mBoxMin[a] == mBoxMax[a]) mBoxMax[a] += size;
    const double count = (mBoxMax[a] - mBoxMin[a]) / size;
    if (!(count > 0.5 && count < 1e9)) return;
    cells[a] = TruncateNudged(count);
  }
  mCells = cells;
  const Vec3d metric = GetDomain().worldCell;
  mExtent = ToReal(mCells) * metric;
  mOrigin = (mBoxMin / size) * metric;
}

bool VolumeBase::AllocateGrid() {
  MarkGridChanged();
  const VecInt3D dims = mCells + VecInt3D{1, 1, 1};
  if (mCells == VecInt3D{}) {
    mGrid.reset();
    ClearBox();
    return Deactivate("its box is empty or too large for its cell size");
  }
  const f32 cellSize = static_cast<f32>(mCellSize);
  if (HasGridData() && mGrid->Dims() == dims) {
    mGrid->mLayout.Set(mCells, mExtent, cellSize, mOrigin);
  } else {
    mGrid.reset();
    mGrid = std::make_unique<EGrid<double>>(dims, mExtent, cellSize, kNode, mOrigin);
  }
  if (!mGrid->mData) {
    mGrid.reset();
    ClearBox();
    return Deactivate("there is no memory for its grid");
  }
  mGrid->Fill(kHuge);
  mGrid->mRangeMin = -mCellSize;
  mGrid->mRangeMax = mCellSize;
  SetFlag(FLAG_ACTIVE, true);
  return true;
}

// ---- content ----------------------------------------------------------------------------------

const Grid_VolumeFractions* VolumeBase::GetFractions(u32 kinds, FractionMethod method) {
  if (!HasGridData()) return nullptr;
  if (mHasFractions && mFractions.mKinds == kinds && mFractions.mMethod == method)
    return &mFractions;
  mHasFractions = false;
  mFractions.mSource = {mGrid.get(), nullptr};
  mFractions.mKinds = kinds;
  mFractions.mMethod = method;
  if (!mFractions.Measure(mScene ? mScene->mThreadCount : 1)) return nullptr;
  mHasFractions = true;
  return &mFractions;
}

double VolumeBase::VoxelVolume() const {
  if (!HasGridData() || mGrid->mNz < 4) return 0;
  const EGrid<double>& grid = *mGrid;
  const i64 cells = ReduceBlocks(
      grid.mNz - 3, mScene ? mScene->mThreadCount : 1, i64{0},
      [&](i32 block) {
        i64 inside = 0;
        for (i32 y = 1; y < grid.mNy - 2; ++y) {
          const double* a = grid.mData + grid.Index(0, y, block + 1);
          const double *b = a + grid.mNx, *c = a + grid.mSlice, *d = b + grid.mSlice;
          for (i32 x = 1; x < grid.mNx - 2; ++x) {
            const double sum =
                a[x] + a[x + 1] + b[x] + b[x + 1] + c[x] + c[x + 1] + d[x] + d[x + 1];
            inside += !(static_cast<f32>(0.125 * sum) > 0);
          }
        }
        return inside;
      },
      [](i64 sum, i64 part) { return sum + part; });
  const double size = grid.mLayout.cellSize;
  return static_cast<double>(cells) * (size * size * size);
}

Vec3d VolumeBase::SurfaceVelocityAt(const Vec3d& p) const {
  Vec3d velocity;
  if (mMesh) mMesh->GetVelocityAt(velocity, p);
  return velocity;
}

std::optional<SharpSurface> VolumeBase::GetSharpSurface() const { return {}; }

std::optional<SharpSurface> VolumeBase::GetOutline() const { return {}; }

std::optional<SharpSurface> VolumeBase::GetWallSurface() const { return {}; }

bool VolumeBase::TakeCachedPlace(const GridLayout& layout, i32 kind) {
  if (kind != kNode) return false;
  mSecondBox = layout;
  return mHasSecondBox = true;
}

bool VolumeBase::AllocateCachedGrid() {
  mBoxMin = mSecondBox.simOrigin;
  mBoxMax = mSecondBox.simMax;
  mCentre = mBoxMin + (mBoxMax - mBoxMin) * 0.5;
  mCells = mSecondBox.dims;
  mExtent = mSecondBox.worldSize;
  mOrigin = mSecondBox.worldOrigin;
  mCellSize = mSecondBox.cellSize;
  return AllocateGrid();
}

// ---- point operations -------------------------------------------------------------------------

bool VolumeBase::IsInsideRelative(const Vec3d& p, f32 offset) const {
  return mGrid && !(static_cast<f32>(DistanceAtRelative(p) - offset) >= 0);
}

bool VolumeBase::IsInsideWorld(const Vec3d& p, f32 offset) const {
  return mGrid && !(static_cast<f32>(DistanceAtWorld(p) - offset) >= 0);
}

double VolumeBase::DepthRelative(const Vec3d& p) const {
  return std::abs(DistanceAtRelative(p)) / mMaximumDistance;
}

double VolumeBase::DepthWorld(const Vec3d& p) const {
  return std::abs(DistanceAtWorld(p)) / mMaximumDistance;
}

bool VolumeBase::PushOut(Vec3d& position, bool isWorld, double margin) const {
  if (!mGrid) return false;
  const Vec3d origin = isWorld ? mGrid->mLayout.simOrigin : Vec3d{};
  const Vec3d relative = position - origin;
  const double d = DistanceAtRelative(relative);
  if (static_cast<f32>(d) >= 0) return false;
  const Vec3d normal = Normalised(GradientAtRelative(relative));
  position = relative - normal * (mCellSize * margin + d) + origin;
  return true;
}

bool VolumeBase::PushOutGrid(Vec3d& position, Vec3d& gridPosition, Vec3d& normal,
                             double margin) const {
  if (!mGrid) return false;
  const double d = DistanceAtWorld(position);
  if (static_cast<f32>(d) >= 0) return false;
  normal = Normalised(GradientAtWorld(position));
  position -= normal * (mCellSize * margin + d);
  gridPosition = position * mGrid->mLayout.simToCell - ToReal(mGrid->mLayout.originCell);
  return true;
}

bool VolumeBase::ClosestSurface(const Vec3d& position, SurfaceRecord& record, double offset) const {
  record = {};
  record.point = position;
  if (!mGrid) return false;
  record.distance = DistanceAtWorld(position) - offset;
  if (static_cast<f32>(record.distance) >= 0) return false;
  record.inside = true;
  record.normal = Normalised(GradientAtWorld(position));
  record.point = position - record.normal * record.distance;
  return true;
}

Vec3d VolumeBase::GradientAtGrid(const Vec3d& c) const {
  return mGrid ? SampleGradient(*mGrid, c, mGrid->mLayout.cellSize) : Vec3d{};
}

Vec3d VolumeBase::GradientAtRelative(const Vec3d& p) const {
  return mGrid ? GradientAtGrid(p * mGrid->mLayout.simToCell) : Vec3d{};
}

Vec3d VolumeBase::GradientAtWorld(const Vec3d& p) const {
  return mGrid ? GradientAtGrid(mGrid->mLayout.ToCells(p)) : Vec3d{};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
