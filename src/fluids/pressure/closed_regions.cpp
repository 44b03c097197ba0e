#include "fluids/pressure/closed_regions.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fluids/pressure/projection_kernels.h"
#include "grids/fixed_blocks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Of what is evened out in a region: the error of its sum, and what a cell's share is exact to.
constexpr double kSumError = 1e-14, kEven = 1e-12;

bool IsEven(const Region& region) {
  return region.isClosed && region.balance != 0 &&
         region.rest <= kEven * std::fabs(region.Squeeze());
}

/// The end of the runs of the line of run `i`.
i32 LineEnd(const std::vector<RegionRun>& runs, i32 i, i32 end) {
  const i32 y = runs[i].y;
  while (i < end && runs[i].y == y) ++i;
  return i;
}

/// Any cell [first, last) of a line of a liquid has an open face towards air.
bool MeetsAir(const CellLine& line, i32 first, i32 last, i32 ny, i32 nz) {
  const double* phi = line.phi;
  for (i32 x = first; x < last; ++x)
    if ((line.ox[x] > 0 && !(phi[x - 1] < 0)) || (line.ox[x + 1] > 0 && !(phi[x + 1] < 0)) ||
        (line.oy0[x] > 0 && !(phi[x - ny] < 0)) || (line.oy1[x] > 0 && !(phi[x + ny] < 0)) ||
        (line.oz0[x] > 0 && !(phi[x - nz] < 0)) || (line.oz1[x] > 0 && !(phi[x + nz] < 0)))
      return true;
  return false;
}

/// Any of the faces [first, last) is open.
bool AnyOpen(const float* faces, i32 first, i32 last) {
  return std::any_of(faces + first, faces + last, [](float open) { return open > 0; });
}

}  // namespace

void ClosedRegions::FindRuns(const ProjectionFields& fields, i32 z,
                             std::vector<RegionRun>& runs) const {
  runs.clear();
  const VecInt3D n = mCells;
  for (i32 y = 1; y < n.y - 1; ++y) {
    const CellLine line(fields, y, z);
    for (i32 x = 1; x < n.x - 1;) {
      if (!line.HasRow(x)) {
        ++x;
        continue;
      }
      RegionRun run{.y = y, .first = x, .last = x + 1};
      while (run.last < n.x - 1 && line.ox[run.last] > 0 && line.HasRow(run.last)) ++run.last;
      x = run.last;
      const bool leads = (run.first == 1 && line.ox[1] > 0) ||
                         (run.last == n.x - 1 && line.ox[n.x - 1] > 0) ||
                         (y == 1 && AnyOpen(line.oy0, run.first, run.last)) ||
                         (y == n.y - 2 && AnyOpen(line.oy1, run.first, run.last)) ||
                         (z == 1 && AnyOpen(line.oz0, run.first, run.last)) ||
                         (z == n.z - 2 && AnyOpen(line.oz1, run.first, run.last)) ||
                         (line.phi && MeetsAir(line, run.first, run.last, n.x, n.x * n.y));
      run.isClosed = !leads;
      runs.push_back(run);
    }
  }
}

i32 ClosedRegions::Root(i32 run) {
  while (mRuns[run].region != run) {
    mRuns[run].region = mRuns[mRuns[run].region].region;
    run = mRuns[run].region;
  }
  return run;
}

void ClosedRegions::JoinLines(const float* faces, i32 a, i32 aEnd, i32 b, i32 bEnd) {
  while (a < aEnd && b < bEnd) {
    const i32 first = std::max(mRuns[a].first, mRuns[b].first);
    const i32 last = std::min(mRuns[a].last, mRuns[b].last);
    if (first < last) {
      const i32 one = Root(a), other = Root(b);
      // The lower index leads, so that the outcome doesn't depend on the order.
      if (one != other && AnyOpen(faces, first, last))
        mRuns[std::max(one, other)].region = std::min(one, other);
    }
    mRuns[a].last < mRuns[b].last ? ++a : ++b;
  }
}

void ClosedRegions::JoinInLayer(const ProjectionFields& fields, i32 z) {
  const i32 end = mLayers[z + 1];
  for (i32 a = mLayers[z]; a < end;) {
    const i32 b = LineEnd(mRuns, a, end);
    if (b < end && mRuns[b].y == mRuns[a].y + 1)
      JoinLines(CellLine(fields, mRuns[a].y, z).oy1, a, b, b, LineEnd(mRuns, b, end));
    a = b;
  }
}

void ClosedRegions::JoinToNextLayer(const ProjectionFields& fields, i32 z) {
  const i32 aLast = mLayers[z + 1], bLast = mLayers[z + 2];
  for (i32 a = mLayers[z], b = aLast; a < aLast && b < bLast;) {
    if (mRuns[a].y != mRuns[b].y) {
      mRuns[a].y < mRuns[b].y ? ++a : ++b;
      continue;
    }
    const i32 aEnd = LineEnd(mRuns, a, aLast), bEnd = LineEnd(mRuns, b, bLast);
    JoinLines(CellLine(fields, mRuns[a].y, z).oz1, a, aEnd, b, bEnd);
    a = aEnd;
    b = bEnd;
  }
}

void ClosedRegions::NumberRegions() {
  mRegions.clear();
  for (i32 z = 0; z < mCells.z; ++z)
    for (i32 i = mLayers[z]; i < mLayers[z + 1]; ++i) {
      RegionRun& run = mRuns[i];
      // A root comes before all that joined it, and then holds the number of its region.
      if (run.region == i) {
        run.region = static_cast<i32>(mRegions.size());
        mRegions.push_back({.first = {run.first, run.y, z}});
      } else {
        run.region = mRuns[run.region].region;
      }
      Region& region = mRegions[run.region];
      region.isClosed &= run.isClosed;
      region.cells += run.last - run.first;
    }
}

void ClosedRegions::Find(const ProjectionFields& fields, const VecInt3D& cells, i32 threads) {
  mCells = cells;
  mRuns.clear();
  mRegions.clear();
  mFound.resize(std::max(0, cells.z));
  mLayers.assign(std::max(0, cells.z) + 1, 0);
  if (cells.x < 3 || cells.y < 3 || cells.z < 3) return;
  ForEachBlock(cells.z - 2, threads, [&](i32 b) { FindRuns(fields, b + 1, mFound[b + 1]); });
  mFound.front().clear();
  mFound.back().clear();
  for (i32 z = 0; z < cells.z; ++z) {
    mLayers[z + 1] = mLayers[z] + static_cast<i32>(mFound[z].size());
    mRuns.insert(mRuns.end(), mFound[z].begin(), mFound[z].end());
  }
  for (std::size_t i = 0; i < mRuns.size(); ++i) mRuns[i].region = static_cast<i32>(i);
  ForEachBlock(cells.z - 2, threads, [&](i32 b) { JoinInLayer(fields, b + 1); });
  for (i32 z = 1; z + 2 < cells.z; ++z) JoinToNextLayer(fields, z);
  // Every run names its root, so that numbers can take the place of roots in one go.
  for (std::size_t i = 0; i < mRuns.size(); ++i) mRuns[i].region = Root(static_cast<i32>(i));
  NumberRegions();
}

i32 ClosedRegions::RegionAt(i32 cell) const {
  const i32 x = cell % mCells.x, y = cell / mCells.x % mCells.y, z = cell / (mCells.x * mCells.y);
  const auto runs = Runs(z);
  auto run = std::upper_bound(runs.begin(), runs.end(), std::pair(y, x),
                              [](const std::pair<i32, i32>& at, const RegionRun& r) {
                                return at < std::pair(r.y, r.first);
                              });
  if (run == runs.begin()) return -1;
  --run;
  return run->y == y && x < run->last ? run->region : -1;
}

/// Calls f(run, line of cells) for the runs of closed regions.
template <class F>
void ClosedRegions::ForEachClosedRun(const ProjectionFields& fields, i32 threads, F&& f) {
  ForEachBlock(mCells.z, threads, [&](i32 z) {
    for (i32 i = mLayers[z]; i < mLayers[z + 1]; ++i)
      if (Of(mRuns[i]).isClosed) f(mRuns[i], CellLine(fields, mRuns[i].y, z));
  });
}

void ClosedRegions::Balance(const ProjectionFields& fields, std::span<double> rhs, i32 threads) {
  mNoise = 0;
  if (std::none_of(mRegions.begin(), mRegions.end(), [](const Region& r) { return r.isClosed; }))
    return;
  ForEachClosedRun(fields, threads, [&](RegionRun& run, const CellLine& line) {
    for (i32 x = run.first; x < run.last; ++x) {
      run.volume += line.openCell[x];
      run.balance += rhs[line.cell + x];
    }
  });
  for (const RegionRun& run : mRuns) {
    mRegions[run.region].volume += run.volume;
    mRegions[run.region].balance += run.balance;
  }
  ForEachClosedRun(fields, threads, [&](RegionRun& run, const CellLine& line) {
    const Region& region = Of(run);
    if (region.balance == 0) return;
    for (i32 x = run.first; x < run.last; ++x) {
      double& b = rhs[line.cell + x];
      b += Shift(region, line.openCell[x]);
      run.rest = std::max(run.rest, std::fabs(b));
    }
  });
  for (const RegionRun& run : mRuns)
    mRegions[run.region].rest = std::max(mRegions[run.region].rest, run.rest);
  bool anyEven = false;
  for (const Region& region : mRegions) {
    if (!region.isClosed || region.balance == 0) continue;
    mNoise = std::max(mNoise, kSumError * std::fabs(region.Squeeze()));
    anyEven |= IsEven(region);
  }
  if (!anyEven) return;
  ForEachClosedRun(fields, threads, [&](RegionRun& run, const CellLine& line) {
    if (IsEven(Of(run))) std::fill_n(rhs.begin() + line.cell + run.first, run.last - run.first, 0);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
