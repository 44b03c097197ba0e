#include "fluids/advection/field_pieces.h"

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
/// Of the most that a field holds: what has less belongs to no cloud. What a cloud gives to such
/// cells it gets back, so they must be next to nothing.
constexpr double kLeast = 1e-9;
}  // namespace

void FieldPieces::Find(const Grid<double>& before, const Grid<double>& after, double nothing,
                       const i32* starts, const PieceBounds& bounds, i32 threads) {
  mDims = before.Dims();
  mCount = 1;
  mLayers.resize(mDims.z);
  const double most = ReduceBlocks(
      mDims.z - 2, threads, 0.0,
      [&](i32 z) {
        double largest = 0;
        const std::ptrdiff_t first = std::ptrdiff_t{1} * before.mSlice * (z + 1);
        for (i32 i = 0; i < before.mSlice; ++i)
          largest = std::max(largest, std::abs(before.mData[first + i] - nothing));
        return largest;
      },
      [](double a, double b) { return std::max(a, b); });
  ForEachBlock(mDims.z, threads, [&](i32 z) {
    mLayers[z].runs.clear();
    mLayers[z].rows.assign(mDims.y + 1, 0);
    if (z == 0 || z == mDims.z - 1 || !(most > 0)) return;
    for (i32 y = 0; y < mDims.y; ++y) {
      if (y > 0 && y < mDims.y - 1) ListRow(before, after, nothing, kLeast * most, bounds, y, z);
      mLayers[z].rows[y + 1] = static_cast<i32>(mLayers[z].runs.size());
    }
  });
  i32 count = 0;
  for (Layer& layer : mLayers) {
    layer.offset = count;
    count += static_cast<i32>(layer.runs.size());
  }
  mParent.resize(count);
  for (i32 i = 0; i < count; ++i) mParent[i] = i;
  for (i32 z = 1; z < mDims.z - 1; ++z)
    for (i32 y = 1; y < mDims.y - 1; ++y) {
      JoinRows(bounds, 1, y, z);
      JoinRows(bounds, 2, y, z);
    }
  if (std::count_if(mParent.begin(), mParent.end(),
                    [&, i = 0](i32 p) mutable { return p == i++; }) > 1) {
    ForEachBlock(mDims.z - 2, threads, [&](i32 z) { FollowPaths(starts, z + 1); });
    for (i32 z = 1; z < mDims.z - 1; ++z)
      for (const auto& [a, b] : mLayers[z].joined) Join(a, b);
  }
  NumberThem(bounds);
}

void FieldPieces::ListRow(const Grid<double>& before, const Grid<double>& after, double nothing,
                          double least, const PieceBounds& bounds, i32 y, i32 z) {
  std::vector<Run>& runs = mLayers[z].runs;
  const i32 row = before.Index(0, y, z);
  bool isOn = false;
  for (i32 x = 1; x < mDims.x - 1; ++x) {
    const i32 cell = row + x;
    const bool holds =
        std::max(std::abs(before[cell] - nothing), std::abs(after[cell] - nothing)) > least &&
        !(bounds.walls && bounds.walls->IsClosed({x, y, z}));
    const bool isParted = isOn && bounds.thin && bounds.thin->ClosesFace(0, x, y, z);
    if (holds && (!isOn || isParted)) runs.push_back({x, x, 0});
    if (holds) runs.back().last = x + 1;
    isOn = holds;
  }
}

/// Joins the runs of a row with those of the row below along y or z.
void FieldPieces::JoinRows(const PieceBounds& bounds, i32 axis, i32 y, i32 z) {
  const i32 yBelow = axis == 1 ? y - 1 : y, zBelow = axis == 1 ? z : z - 1;
  const auto [begin, end] = RunsOf(y, z);
  auto [below, belowEnd] = RunsOf(yBelow, zBelow);
  const Run *here = mLayers[z].runs.data(), *there = mLayers[zBelow].runs.data();
  for (const Run* run = begin; run != end; ++run) {
    while (below != belowEnd && below->last <= run->first) ++below;
    for (const Run* other = below; other != belowEnd && other->first < run->last; ++other) {
      bool isJoined = !bounds.thin;
      const i32 last = std::min(run->last, other->last);
      for (i32 x = std::max(run->first, other->first); x < last && !isJoined; ++x)
        isJoined = !bounds.thin->ClosesFace(axis, x, y, z);
      if (isJoined)
        Join(mLayers[z].offset + static_cast<i32>(run - here),
             mLayers[zBelow].offset + static_cast<i32>(other - there));
    }
  }
}

FieldPieces::Place FieldPieces::PlaceOf(i32 cell) const {
  const i32 x = cell % mDims.x, y = cell / mDims.x % mDims.y, z = cell / (mDims.x * mDims.y);
  const auto [begin, end] = RunsOf(y, z);
  const Run* run = std::partition_point(begin, end, [&](const Run& r) { return r.last <= x; });
  if (run == end || run->first > x) return {};
  return {mLayers[z].offset + static_cast<i32>(run - mLayers[z].runs.data()),
          cell - (x - run->first), cell + (run->last - x)};
}

/// Notes pairs of runs between which paths lead that no faces join.
void FieldPieces::FollowPaths(const i32* starts, i32 z) {
  Layer& layer = mLayers[z];
  layer.joined.clear();
  const i32 toHighest = 1 + mDims.x + mDims.x * mDims.y;
  for (i32 y = 1; y < mDims.y - 1; ++y)
    for (i32 r = layer.rows[y]; r < layer.rows[y + 1]; ++r) {
      const i32 row = (z * mDims.y + y) * mDims.x, own = layer.offset + r;
      // Paths of neighbours start in the same runs, so that few have to be looked up.
      Place known[2];
      for (i32 cell = row + layer.runs[r].first; cell < row + layer.runs[r].last; ++cell)
        for (const i32 high : {0, 1}) {
          const i32 start = starts[cell] + high * toHighest;
          if (start >= known[high].first && start < known[high].last) continue;
          known[high] = PlaceOf(start);
          if (known[high].run >= 0 && known[high].run != own)
            layer.joined.emplace_back(own, known[high].run);
        }
    }
}

/// Whether nothing closed lies between a cell and an open side within reach of it.
bool FieldPieces::SeesOpenSide(const PieceBounds& bounds, const VecInt3D& cell) const {
  for (i32 a = 0; a < 3; ++a)
    for (const i32 step : {-1, 1}) {
      if (!(bounds.openSides & (step < 0 ? kLowWall : kHighWall)[a])) continue;
      const i32 outside = step < 0 ? 0 : mDims[a] - 1;
      if (std::abs(outside - cell[a]) > bounds.reach[a] + 1) continue;
      VecInt3D at = cell;
      bool isFree = true;
      while (isFree && at[a] != outside) {
        VecInt3D face = at;
        if (step > 0) ++face[a];
        at[a] += step;
        isFree = !(bounds.thin && bounds.thin->ClosesFace(a, face.x, face.y, face.z)) &&
                 (at[a] == outside || !(bounds.walls && bounds.walls->IsClosed(at)));
      }
      if (isFree) return true;
    }
  return false;
}

/// Whether something may enter or leave a run otherwise than from the cells round it.
bool FieldPieces::IsOpen(const PieceBounds& bounds, const Run& run, i32 y, i32 z) const {
  const auto isNear = [&](i32 a, i32 at) {
    const i32 near = bounds.reach[a] + 1;
    return ((bounds.openSides & kLowWall[a]) && at <= near) ||
           ((bounds.openSides & kHighWall[a]) && at >= mDims[a] - 1 - near);
  };
  const bool isAllNear = isNear(1, y) || isNear(2, z);
  for (i32 x = run.first; x < run.last; ++x)
    if ((isAllNear || isNear(0, x)) && SeesOpenSide(bounds, {x, y, z})) return true;
  return std::any_of(bounds.stirred.begin(), bounds.stirred.end(), [&](const CellBox& box) {
    return y >= box.min.y && y < box.max.y && z >= box.min.z && z < box.max.z &&
           run.first < box.max.x && run.last > box.min.x;
  });
}

void FieldPieces::NumberThem(const PieceBounds& bounds) {
  const i32 count = static_cast<i32>(mParent.size());
  std::vector<i32> numbers(count, -1);
  const auto forEachRun = [&](auto&& f) {
    for (i32 z = 1; z < mDims.z - 1; ++z)
      for (i32 y = 1; y < mDims.y - 1; ++y)
        for (i32 r = mLayers[z].rows[y]; r < mLayers[z].rows[y + 1]; ++r)
          f(mLayers[z].runs[r], mLayers[z].offset + r, y, z);
  };
  forEachRun([&](const Run& run, i32 index, i32 y, i32 z) {
    i32& number = numbers[RootOf(index)];
    if (number < 0 && IsOpen(bounds, run, y, z)) number = 0;
  });
  // A cloud that is all there is shares its total with what is thin round it.
  i32 clouds = 0;
  for (i32 i = 0; i < count; ++i) clouds += RootOf(i) == i;
  if (clouds == 1) numbers[RootOf(0)] = 0;
  forEachRun([&](Run& run, i32 index, i32, i32) {
    i32& number = numbers[RootOf(index)];
    if (number < 0) number = mCount++;
    run.piece = number;
  });
}

i32 FieldPieces::RootOf(i32 run) {
  while (mParent[run] != run) run = mParent[run] = mParent[mParent[run]];
  return run;
}

void FieldPieces::Join(i32 a, i32 b) {
  a = RootOf(a);
  b = RootOf(b);
  // The first run stands for its cloud.
  if (a < b)
    mParent[b] = a;
  else
    mParent[a] = b;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
