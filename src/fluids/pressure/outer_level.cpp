#include "fluids/pressure/outer_level.h"

#include <algorithm>
#include <utility>

#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// What mirrored halves of a solve differ by grows with the flow from step to step.
constexpr double kTolerance = 1e-9;
constexpr i32 kMostIterations = 300;
constexpr double kModification = 0.97, kLeastRatio = 0.25;  // of the preconditioner

}  // namespace

// On so few cells, of such different sizes, multigrid cycles take six times as long.
OuterLevel::OuterLevel() { mLinearSolver = 0; }

void OuterLevel::Reset() {
  Grid_Incompressibility::Reset();
  mLattice = {};
  mHasWind = false;
}

void OuterLevel::Release(bool full) {
  Grid_Incompressibility::Release(full);
  if (!full) return;
  mLattice = {};
  for (i32 axis = 0; axis < 3; ++axis)
    mVelocity[axis].reset(), mOpen[axis].reset(), mOutside[axis].reset();
  mVolume.reset();
  mMixture = {};
  mHasWind = false;
}

void OuterLevel::Persist(StateArchive& archive) {
  archive(mLattice, mVelocity[0], mVelocity[1], mVelocity[2], mHasWind, mWarned);
}

void OuterLevel::SetBox(const VecInt3D& low, const VecInt3D& high, u8 walls, u8 freeSides) {
  mLow = low, mHigh = high;
  mWalls = walls, mFree = freeSides;
}

bool OuterLevel::Allocate() {
  const VecInt3D n = mLattice.Dims();
  GridLayout layout;
  layout.Set(n, ToReal(n), mFlow->GetLayout()->cellSize, {});
  const auto fit = [&](auto& grid, i32 kind) {
    using Grid = typename std::decay_t<decltype(grid)>::element_type;
    if (grid && grid->mLayout.Equals(layout)) return true;
    grid = std::make_unique<Grid>(layout, kind);
    if (!grid->mData) grid.reset();
    return grid != nullptr;
  };
  bool complete = fit(mVolume, kCentre);
  for (i32 axis = 0; axis < 3; ++axis)
    complete = complete && fit(mVelocity[axis], axis) && fit(mOpen[axis], axis) &&
               fit(mOutside[axis], axis);
  if (!complete) mLattice = {};
  return complete;
}

// ---- the gas outside --------------------------------------------------------------------------

Vec3d OuterLevel::Wind() const {
  Vec3d wind;
  if (!HasFlow() || !mHasWind) return wind;
  const VecInt3D n = mLattice.Dims();
  for (i32 axis = 0; axis < 3; ++axis) {
    double volume = 0, sum = 0;
    ForEachCell({{1, 1, 1}, n + ExtraOf(axis) - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      const VecInt3D face{x, y, z};
      bool isFar = false;
      for (i32 a = 0; a < 3; ++a)
        isFar |= face[a] == 1 || face[a] == n[a] + (a == axis ? 1 : 0) - 2;
      if (!isFar || mLattice.IsInnerFace(axis, face)) return;
      const double size = mLattice.AreaOf(axis, face) * mLattice[axis].DistanceAt(face[axis]);
      volume += size;
      sum += size * (*mVelocity[axis])(x, y, z);
    });
    if (volume > 0) wind[axis] = sum / volume;
  }
  return wind;
}

void OuterLevel::BeginStep() {
  SetAccuracy({kMostIterations, kTolerance}, kModification, kLeastRatio);
  const GridLayout& layout = *mFlow->GetLayout();
  OuterLattice lattice(layout, mLow, mHigh);
  const bool isNew =
      !(lattice == mLattice) || !mVelocity[2] || mVelocity[2]->mLayout.cellSize != layout.cellSize;
  const Vec3d wind = isNew ? Wind() : Vec3d{};
  mLattice = std::move(lattice);
  if (mLattice.IsEmpty() || !Allocate()) return Release(true);
  if (isNew)
    for (i32 axis = 0; axis < 3; ++axis) mVelocity[axis]->Fill(wind[axis]);
  MeasureOpen();
  if (!isNew) return;
  mWithoutInner = true;
  ProjectAll();
  mWithoutInner = false;
  Average(false);
  ContinueVelocity();
  WriteSides();
}

// ---- projection -------------------------------------------------------------------------------

bool OuterLevel::GatherFields(ProjectionFields& fields) {
  for (i32 axis = 0; axis < 3; ++axis) {
    fields.velocity[axis] = mVelocity[axis].get();
    fields.open[axis] = (mWithoutInner ? mOutside : mOpen)[axis].get();
  }
  fields.openCell = mVolume.get();
  fields.density = {};
  if (!mWithoutInner && mMixture[2])
    fields.density = {mMixture[0].get(), mMixture[1].get(), mMixture[2].get()};
  fields.dt = mTime->stepDuration;
  return fields.dt > 0;
}

/// With velocities times distances and areas over distances the cells count as cubes.
bool OuterLevel::ProjectAll() {
  const auto scale = [&](bool back) {
    const VecInt3D n = mLattice.Dims();
    for (i32 axis = 0; axis < 3; ++axis) {
      VecInt3D low{}, high = mVelocity[axis]->Dims();
      low[axis] = 1, high[axis] = n[axis];
      ForEachBlock(high.z - low.z, Threads(), [&](i32 layer) {
        CellBox box{low, high};
        box.min.z += layer;
        box.max.z = box.min.z + 1;
        ForEachCell(box, [&](i32 x, i32 y, i32 z) {
          const double distance = mLattice[axis].DistanceAt(VecInt3D{x, y, z}[axis]);
          (*mVelocity[axis])(x, y, z) *= back ? 1 / distance : distance;
        });
      });
    }
  };
  scale(false);
  TakeOutUniform();
  const bool done = Project();
  scale(true);
  mReports.clear();
  return done;
}

void OuterLevel::BuildSystem(const CellBox& block) {
  Grid_Incompressibility::BuildSystem(block);
  const i32 z = block.min.z;
  if (mWithoutInner) return AddInflow(z);
  AddInner(z);
}

/// The inner cells have to bring about what the fine ones have to.
void OuterLevel::AddInner(i32 z) {
  const VecInt3D inner = mLattice.InnerDims(), n = mLattice.Dims();
  const std::span<double> rhs = Used().GetRhs();
  if (z >= mLattice[2].first && z < mLattice[2].last)
    for (i32 j = 0; j < inner.y; ++j)
      std::copy_n(mInner.data() + i64{inner.x} * (inner.y * (z - mLattice[2].first) + j), inner.x,
                  rhs.data() + (n.y * z + mLattice[1].first + j) * n.x + mLattice[0].first);
  for (const auto& [cell, value] : mGiven)
    if (cell / (n.x * n.y) == z) rhs[cell] += value;
  const double* diagonal = Used().GetMatrix().Diagonal();
  for (i32 c = n.x * n.y * z; c < n.x * n.y * (z + 1); ++c)
    if (diagonal[c] == 0) rhs[c] = 0;
}

/// What passes the sides of the container enters the cells beside it.
void OuterLevel::AddInflow(i32 z) {
  const VecInt3D n = mLattice.Dims();
  const double inverseCell = 1.0 / mFlow->GetLayout()->cellSize;
  const std::span<double> rhs = Used().GetRhs();
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true}) {
      CellBox cells;
      for (i32 a = 0; a < 3; ++a) cells.min[a] = mLattice[a].first, cells.max[a] = mLattice[a].last;
      cells.min[axis] = high ? mLattice[axis].last : mLattice[axis].first - 1;
      cells.max[axis] = cells.min[axis] + 1;
      if (cells.min[axis] < 1 || cells.min[axis] >= n[axis] - 1) continue;
      if (z < cells.min.z || z >= cells.max.z) continue;
      cells.min.z = z, cells.max.z = z + 1;
      const VecInt3D up = high ? VecInt3D{} : ExtraOf(axis);
      ForEachCell(cells, [&](i32 x, i32 y, i32) {
        const i32 face = mVelocity[axis]->Index(x + up.x, y + up.y, z + up.z);
        const double flow = (*mOpen[axis])[face] * (*mVelocity[axis])[face] * inverseCell;
        rhs[(n.y * z + y) * n.x + x] += high ? flow : -flow;
      });
    }
}

void OuterLevel::EndStep() {
  if (!IsCut()) return;
  Average(false);
  ContinueVelocity();
  WriteSides();
}

void OuterLevel::ContinueVelocity() {
  for (const auto& velocity : mVelocity)
    for (i32 axis = 0; axis < 3; ++axis)
      for (const bool high : {false, true}) {
        EGrid<double>& v = *velocity;
        CellBox box{{0, 0, 0}, v.Dims()};
        box.min[axis] = high ? box.max[axis] - 1 : 0;
        box.max[axis] = box.min[axis] + 1;
        const VecInt3D inward = high ? -ExtraOf(axis) : ExtraOf(axis);
        ForEachCell(box, [&](i32 x, i32 y, i32 z) {
          v(x, y, z) = v(x + inward.x, y + inward.y, z + inward.z);
        });
      }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
