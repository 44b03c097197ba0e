#include "fluids/flow/scalar_walls.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <utility>

#include "fluids/volume/sharp_surface.h"
#include "fluids/volume/solid_hair.h"
#include "fluids/volume/thin_walls.h"
#include "fluids/volume/volume_base.h"
#include "framework/state_archive.h"
#include "grids/fixed_blocks.h"
#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Bits of the 27 cells round a cell that share a face, an edge or a corner with it.
constexpr std::array<u32, 3> kTouching = [] {
  std::array<u32, 3> masks{};
  for (int i = 0; i < 27; ++i) {
    const int away = (i % 3 != 1) + (i / 3 % 3 != 1) + (i / 9 != 1);
    if (away > 0) masks[away - 1] |= 1u << i;
  }
  return masks;
}();

bool IsOutermost(const VecInt3D& cell, const VecInt3D& n) {
  for (int a = 0; a < 3; ++a)
    if (cell[a] == 0 || cell[a] == n[a] - 1) return true;
  return false;
}

bool IsBehindWall(const VecInt3D& cell, const VecInt3D& n, u8 walls) {
  for (int a = 0; a < 3; ++a)
    if ((cell[a] == 0 && (walls & kLowWall[a])) || (cell[a] == n[a] - 1 && (walls & kHighWall[a])))
      return true;
  return false;
}

}  // namespace

void ScalarWalls::Release() {
  mState.reset();
  mBefore.reset();
  mLeft.clear();
  mLayers.clear();
}

void ScalarWalls::Persist(StateArchive& archive) { archive(mState); }

bool ScalarWalls::Fits(const Grid<double>& field) const {
  return mState && mState->Dims() == field.Dims() && OffsetOf(field.mKind) == OffsetOf(kCentre);
}

VecInt3D ScalarWalls::CellAt(i32 index) const {
  return {index % mState->mNx, index / mState->mNx % mState->mNy, index / mState->mSlice};
}

bool ScalarWalls::WasThere(const VecInt3D& cell, bool& wasClosed) const {
  wasClosed = false;
  if (!mBefore) return false;
  const VecInt3D c = cell + mState->mLayout.originCell - mBefore->mLayout.originCell;
  // The outermost layer knows walls that may stand elsewhere now.
  for (int a = 0; a < 3; ++a)
    if (c[a] < 1 || c[a] > mBefore->Dims()[a] - 2) return false;
  wasClosed = (*mBefore)(c.x, c.y, c.z) == kClosed;
  return true;
}

void ScalarWalls::Build(const GridBoundary& boundary, const Grid<u8>* flags, const ThinFaces& thin,
                        i32 threads) {
  const EGrid<double>* level = boundary.GetLevelSet();
  if (!level || !level->mData) return Release();
  std::swap(mState, mBefore);
  const VecInt3D n = level->mLayout.dims;
  if (!mState || !mState->mLayout.Equals(level->mLayout))
    mState = std::make_unique<EGrid<u8>>(level->mLayout, kCentre);
  if (!mState->mData) return Release();
  mThreads = threads;
  mBoundary = &boundary;
  mThin = thin.HasAny() ? &thin : nullptr;
  mLayers.resize(n.z);
  if (flags && (flags->Dims() != n || !flags->mData)) flags = nullptr;
  const auto mark = [&] {
    ForEachBlock(n.z, threads, [&](i32 z) {
      for (i32 y = 0; y < n.y; ++y) MarkRow(boundary, flags, thin, y, z);
    });
  };
  mIsFirst = !mBefore;
  mark();
  const std::vector<GridBoundary::Mover> movers = boundary.Movers();
  if (mIsFirst && !movers.empty()) {
    MarkStart(boundary, movers);
    mark();
  }
  MarkPassed(movers);
  ListLeft();
  ForEachBlock(n.z, threads, [&](i32 z) {
    Layer& layer = mLayers[z];
    layer.beside.clear();
    layer.closed.clear();
    layer.outside.clear();
    for (i32 y = 0; y < n.y; ++y) ListRow(y, z, layer);
  });
}

void ScalarWalls::MarkRow(const GridBoundary& boundary, const Grid<u8>* flags,
                          const ThinFaces& thin, i32 y, i32 z) {
  const VecInt3D n = mState->Dims();
  u8* row = mState->mData + mState->Index(0, y, z);
  const u8* known = flags ? flags->mData + flags->Index(0, y, z) : nullptr;
  const bool isInner = y > 0 && z > 0 && y < n.y - 1 && z < n.z - 1;
  const bool stays =
      isInner && known && !thin.HasAny() && mBefore && mBefore->mLayout.Equals(mState->mLayout);
  const double hair = kSolidHair * mState->mLayout.cellSize;
  const u8* before = stays ? mBefore->mData + mBefore->Index(0, y, z) : nullptr;
  for (i32 x = 0; x < n.x; ++x) {
    // Most cells were open and are: they are settled without another look.
    if (stays && x > 0 && x < n.x - 1 && before[x] == kOpen &&
        (known[x] & SolidCells::kOpenCentre)) {
      row[x] = kOpen;
      continue;
    }
    const VecInt3D cell{x, y, z};
    const auto isClosed = [&] {
      if (IsOutermost(cell, n)) return IsBehindWall(cell, n, boundary.mWalls);
      if (thin.HasAny() && thin.IsFilled(cell)) return true;
      return !(known && (known[x] & SolidCells::kOpenCentre)) &&
             !(boundary.SampleIndex(ToReal(cell) + Vec3d{0.5, 0.5, 0.5}) > hair);
    };
    bool wasClosed = false;
    row[x] = isClosed() ? kClosed : WasThere(cell, wasClosed) && wasClosed ? kLeft : kOpen;
  }
}

/// What was closed before the first step: the same but for the way that solids go in it.
void ScalarWalls::MarkStart(const GridBoundary& boundary,
                            const std::vector<GridBoundary::Mover>& movers) {
  mBefore = std::make_unique<EGrid<u8>>(mState->mLayout, kCentre);
  if (!mBefore->mData) return mBefore.reset();
  std::copy_n(mState->mData, mState->mCount, mBefore->mData);
  for (const GridBoundary::Mover& mover : movers)
    ForEachBlock(mover.reach.max.z - mover.reach.min.z, mThreads, [&](i32 layer) {
      CellBox box = mover.reach;
      box.min.z += layer;
      box.max.z = box.min.z + 1;
      ForEachCell(box, [&](i32 x, i32 y, i32 z) {
        double sum = 0;
        for (i32 k = 0; k < 8; ++k)
          sum += boundary.DistanceBefore(VecInt3D{x, y, z} + VecInt3D{k & 1, k >> 1 & 1, k >> 2});
        (*mBefore)(x, y, z) = sum > 8 * kSolidHair * mState->mLayout.cellSize ? kOpen : kClosed;
      });
    });
}

/// Cells on the other side of a thin wall than before: such a wall has covered and left them.
void ScalarWalls::MarkPassed(const std::vector<GridBoundary::Mover>& movers) {
  mPassed.clear();
  if (!mThin) return;
  for (const GridBoundary::Mover& mover : movers) {
    const auto* const obstacle = mover.obstacle;
    const double farthest = mover.travel + mState->mLayout.cellSize;
    const ThinWalls* walls = obstacle->GetThinWalls();
    if (!walls || walls->Faces().empty()) continue;
    // No step before tells what lay in the wall from the start.
    std::optional<SharpSurface> start =
        mIsFirst ? obstacle->GetSharpSurface() : std::optional<SharpSurface>();
    if (start) start->LinkTriangles();
    const auto hasLeft = [&](const Vec3d& p, const Vec3d& motion) {
      const double hair = kSolidHair * mState->mLayout.cellSize;
      return start && start->Find(p).distance > hair && start->Find(p + motion).distance < hair;
    };
    ForEachCell(mover.reach, [&](i32 x, i32 y, i32 z) {
      u8& state = (*mState)(x, y, z);
      const Vec3d p = mState->PositionOf(x, y, z);
      if (state == kLeft || !obstacle->IsInBounds(p)) return;
      const double distance = obstacle->DistanceAtWorld(p);
      // Beside the walls of the container a cell can be closed that isn't in this one.
      if (std::abs(distance) > farthest || (state == kClosed && !(distance > 0))) return;
      const Vec3d motion = obstacle->SurfaceVelocityAt(p);
      if (!obstacle->HasPassed(p, motion) && !hasLeft(p, motion)) return;
      if (state == kOpen) state = kLeft;
      mPassed.push_back({mState->Index(x, y, z), motion});
    });
  }
  std::sort(mPassed.begin(), mPassed.end(),
            [](const Passed& a, const Passed& b) { return a.cell < b.cell; });
}

/// Puts the cells that solids left into an order in which each finds neighbours that are known.
void ScalarWalls::ListLeft() {
  mLeft.clear();
  std::vector<i32> left;
  const u8 *all = mState->mData, *end = all + mState->mCount;
  const auto next = [&](const u8* from) {
    return static_cast<const u8*>(std::memchr(from, kLeft, end - from));
  };
  for (const u8* c = next(all); c; c = next(c + 1)) left.push_back(static_cast<i32>(c - all));
  while (!left.empty()) {
    std::vector<i32> rest;
    const std::size_t first = mLeft.size();
    for (const i32 c : left) {
      if (const u32 open = ReachableOf(OpenRound(c), c))
        mLeft.push_back({c, open});
      else
        rest.push_back(c);
    }
    for (std::size_t i = first; i < mLeft.size(); ++i) (*mState)[mLeft[i].cell] = kOpen;
    if (rest.size() == left.size()) {
      for (const i32 c : rest) (*mState)[c] = kOpen;  // nothing to continue: it stays empty
      return;
    }
    left.swap(rest);
  }
}

/// The nearest of the cells round one that are open: with a common face if there are such, else
/// with an edge, else with a corner.
u32 ScalarWalls::OpenRound(i32 cell) const {
  const VecInt3D at = CellAt(cell), n = mState->Dims();
  u32 open = 0;
  for (i32 i = 0; i < 27; ++i) {
    const VecInt3D c = at + VecInt3D{i % 3 - 1, i / 3 % 3 - 1, i / 9 - 1};
    if (c.x < 0 || c.y < 0 || c.z < 0 || c.x >= n.x || c.y >= n.y || c.z >= n.z) continue;
    if ((*mState)(c.x, c.y, c.z) == kOpen) open |= 1u << i;
  }
  for (const u32 touching : kTouching)
    if (open & touching) return open & touching;
  return 0;
}

/// Those of the cells round one that no thin wall parts from it.
u32 ScalarWalls::ReachableOf(u32 open, i32 cell) const {
  if (!mThin) return open;
  const VecInt3D at = CellAt(cell);
  for (u32 rest = open; rest != 0; rest &= rest - 1) {
    const i32 i = std::countr_zero(rest);
    if (IsParted(at, at + VecInt3D{i % 3 - 1, i / 3 % 3 - 1, i / 9 - 1})) open &= ~(1u << i);
  }
  return open;
}

void ScalarWalls::ListRow(i32 y, i32 z, Layer& layer) const {
  const VecInt3D n = mState->Dims();
  const i32 first = mState->Index(0, y, z);
  const u8* state = mState->mData + first;
  const bool isInner = y > 0 && z > 0 && y < n.y - 1 && z < n.z - 1;
  for (i32 x = 0; x < n.x; ++x) {
    if (state[x] != kClosed && isInner && x > 0 && x < n.x - 1) continue;
    const bool isOutermost = IsOutermost({x, y, z}, n);
    if (state[x] != kClosed) {
      if (isOutermost) layer.outside.push_back(first + x);
      continue;
    }
    if (const u32 open = OpenRound(first + x)) layer.beside.push_back({first + x, open});
    if (isOutermost) continue;
    if (!layer.closed.empty() && layer.closed.back().last == first + x)
      ++layer.closed.back().last;
    else
      layer.closed.push_back({first + x, first + x + 1});
  }
}

void ScalarWalls::FillOne(const Beside& b, Grid<double>& field) const {
  double sum = 0;
  for (u32 rest = b.open; rest != 0; rest &= rest - 1) {
    const i32 i = std::countr_zero(rest);
    sum += field[b.cell + (i / 9 - 1) * field.mSlice + (i / 3 % 3 - 1) * field.mNx + i % 3 - 1];
  }
  field[b.cell] = sum / std::popcount(b.open);
}

double ScalarWalls::Fill(const Values& values, bool all, Grid<double>& field) const {
  const auto forEachLayer = [&](auto&& f) {
    ForEachBlock(static_cast<i32>(mLayers.size()), mThreads, [&](i32 z) { f(mLayers[z]); });
  };
  FillOutside(values, field);
  double put = 0;
  for (const Beside& b : mLeft) {
    if (all) break;
    const double before = field[b.cell];
    FillOne(b, field);
    put += field[b.cell] - before;
  }
  forEachLayer([&](const Layer& layer) {
    for (const Beside& b : layer.beside)
      if (all || !(field[b.cell] > values.nothing)) FillOne(b, field);
  });
  return put;
}

void ScalarWalls::FillOutside(const Values& values, Grid<double>& field) const {
  ForEachBlock(static_cast<i32>(mLayers.size()), mThreads, [&](i32 z) {
    for (const i32 cell : mLayers[z].outside) field[cell] = values.outside;
  });
}

void ScalarWalls::Clear(const Values& values, Grid<double>& field) const {
  ForEachBlock(static_cast<i32>(mLayers.size()), mThreads, [&](i32 z) {
    for (const Run& run : mLayers[z].closed)
      std::fill(field.mData + run.first, field.mData + run.last, values.nothing);
  });
  FillOutside(values, field);
  ForEachBlock(static_cast<i32>(mLayers.size()), mThreads, [&](i32 z) {
    for (const Beside& b : mLayers[z].beside)
      if (IsOutermost(CellAt(b.cell), mState->Dims())) FillOne(b, field);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
