#include "fluids/advection/volume_evening.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <utility>

#include "fluids/advection/clear_cells.h"
#include "grids/fixed_blocks.h"
#include "grids/make_grids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kSweeps = 12;
constexpr i32 kMostRounds = 4;
// Of the eigenvalues that a round acts on in full: the grid's highest, and one of some 16 cells.
constexpr double kHighest = 12, kLowest = 0.3;
constexpr double kSliver = 1e-12;  // volumes of gas at rest
constexpr double kEnough = 0.005;  // further rounds are for what is worse than this,
constexpr double kGains = 0.8;     // as long as they make it better

constexpr i32 kLeastLayers = 4;  // that are worth a worker
// Of the three grids, what several sweeps over some rows have in use at a time should stay in the
// memory next to a core.
constexpr i32 kTileCells = 1200;

Potential WeightOf(i32 sweep) {
  static const std::array<Potential, kSweeps> weights = [] {
    std::array<Potential, kSweeps> all{};
    for (i32 i = 0; i < kSweeps; ++i) {
      const double root = std::cos(std::numbers::pi * (2 * i + 1) / (2 * kSweeps));
      all[i] = static_cast<Potential>(2 / ((kHighest + kLowest) + (kHighest - kLowest) * root));
    }
    return all;
  }();
  return weights[sweep];
}

}  // namespace

bool VolumeEvening::Fit(const VecInt3D& dims) {
  if (mDims != dims) Release();
  mDims = dims;
  const bool isNew = !mPotential[0];
  if (!MakeGrids(dims, mPotential[0], mPotential[1])) {
    Release();
    return false;
  }
  if (isNew) Leave(0, mPotential[0]->mCount);
  mSlice = mPotential[0]->mSlice;
  return true;
}

void VolumeEvening::Release() {
  mDims = {};
  for (auto& potential : mPotential) potential.reset();
}

void VolumeEvening::Leave(i32 c, i32 n) {
  for (auto& potential : mPotential) std::fill_n(potential->mData + c, n, Potential{0});
}

/// Calls f(y, z) for the inner rows, each layer on one worker.
template <class F>
void VolumeEvening::ForEachRow(F&& f) const {
  ForEachBlock(std::max(0, mDims.z - 2), mThreads, [&](i32 layer) {
    for (i32 y = 1; y < mDims.y - 1; ++y) f(y, layer + 1);
  });
}

void VolumeEvening::Run(const u8* moves, const RowRuns& rows, const Carried& from,
                        const Carried& to, const Carried& spare, i32 threads) {
  mMoves = moves;
  mActive = &rows;
  mThreads = threads;
  MarkRows();
  Carried now = from, next = to;
  double excess = StartPotential(now.volume);
  for (i32 round = 0; round < kMostRounds && excess > (round == 0 ? kSliver : kEnough); ++round) {
    if (round > 0) StartPotential(now.volume);
    const double after = Pass(FindPotential(now.volume), now, next, spare);
    std::swap(now, next);
    if (std::exchange(excess, after) * kGains < after) break;
  }
  if (now.volume == to.volume) return;
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    for (i32 y = 0; y < mDims.y; ++y) Keep(y, z, now, to);
  });
}

void VolumeEvening::Keep(i32 y, i32 z, const Carried& from, const Carried& to) const {
  const IndexRange run = mActive->At(y, z);
  const i32 c = z * mSlice + y * mDims.x + run.first, n = run.last - run.first;
  std::copy_n(from.volume + c, n, to.volume + c);
  std::copy_n(from.content + c, n, to.content + c);
}

/// Rows are free where all of their cells take part, and all or none of those beside them, and no
/// face is closed.
void VolumeEvening::MarkRows() {
  mRows.assign(i64{mDims.y} * mDims.z, {});
  mIsWhole.assign(i64{mDims.y} * mDims.z, 1);
  ForEachRow([&](i32 y, i32 z) { FindLine(y, z, mRows[z * mDims.y + y]); });
}

void VolumeEvening::FindLine(i32 y, i32 z, Row& row) const {
  const IndexRange run = mActive->Inner(y, z);
  if (run.IsEmpty()) return;
  row.c = z * mSlice + y * mDims.x + run.first;
  row.n = run.last - run.first;
  row.isFirst = run.first == 1;
  row.isLast = run.last == mDims.x - 1;
  const u8* moves = mMoves + row.c;
  const auto doNone = [&](const u8* m) { return !(UnitedBits(m, row.n) & 1); };
  // Bits of closed faces stand beside that of taking part.
  const auto doAll = [&](const u8* m) {
    return (CommonBits(m, row.n) & 1) && UnitedBits(m, row.n) == 1;
  };
  row.kind = doNone(moves) ? kNone : doAll(moves) ? kFree : kMixed;
  if (row.kind != kFree) return;
  const i32 off[4] = {-mDims.x, mDims.x, -mSlice, mSlice};
  for (int k = 0; k < 4; ++k) {
    row.beside.off[k] = off[k];
    if (doAll(moves + off[k])) continue;
    row.beside.off[k] = 0;
    if (!doNone(moves + off[k])) row.kind = kMixed;
  }
}

/// The first sweep starts from a potential of nothing. Returns how far volumes are from one.
double VolumeEvening::StartPotential(const double* volume) {
  const Potential first = WeightOf(0);
  return MaxBlocks(mDims.z, 1, mThreads, [&](i64 z, i64) {
    double most = 0;
    for (i32 y = 0; y < mDims.y; ++y) {
      const Row& row = RowAt(y, static_cast<i32>(z));
      if (row.n == 0) continue;
      Potential* p = mPotential[0]->mData + row.c;
      StartRow(volume + row.c, mMoves + row.c, first, row.n, p);
      ContinueBeyond(row, p);
      const ValueRange range = RangeOfPotential(p, row.n);
      most = std::max({most, -range.least, range.most});
    }
    return most / first;
  });
}

const Potential* VolumeEvening::FindPotential(const double* volume) {
  const i32 layers = std::max(0, mDims.z - 2);
  const i32 workers = std::clamp(layers / kLeastLayers, 1, std::max(mThreads, 1));
  // What the workers can do on their own until their layers have run out.
  const i32 most = workers == 1 ? kSweeps : layers / workers / 2 + 1;
  for (i32 first = 1; first < kSweeps; first += most)
    RunSweeps(volume, first, std::min(most, kSweeps - first), workers);
  return mPotential[(kSweeps - 1) % 2]->mData;
}

/// Several sweeps, each of which needs what the one before left in a cell's neighbours. A slab of
/// layers goes through all of them while it is at hand, with one layer less at each seam from sweep
/// to sweep; what is missing there follows when the slabs on both sides are done.
void VolumeEvening::RunSweeps(const double* volume, i32 first, i32 count, i32 workers) {
  ForEachBlock(workers, mThreads,
               [&](i32 slab) { SweepSlab(volume, first, count, slab, workers); });
  ForEachBlock(workers - 1, mThreads, [&](i32 seam) {
    const i32 z0 = PartOf(seam, workers, 1, mDims.z - 1).last;
    for (i32 s = 1; s < count; ++s)
      for (i32 z = z0 - s; z < z0 + s; ++z)
        for (i32 y = 1; y < mDims.y - 1; ++y) Relax(y, z, volume, first + s);
  });
}

/// Sweep s works a layer behind sweep s - 1, and in a band of rows that lies a row lower.
void VolumeEvening::SweepSlab(const double* volume, i32 first, i32 count, i32 slab, i32 slabs) {
  const IndexRange layers = PartOf(slab, slabs, 1, mDims.z - 1);
  const i32 band = std::max(4, kTileCells / mDims.x), rows = mDims.y - 1;
  for (i32 low = 1; low < rows + count - 1; low += band)
    for (i32 front = layers.first; front < layers.last + count - 1; ++front)
      for (i32 s = 0; s < count; ++s) {
        const i32 z = front - s;
        if (z < layers.first + (slab > 0 ? s : 0)) break;
        if (z >= layers.last - (slab < slabs - 1 ? s : 0)) continue;
        const i32 end = std::min(low + band - s, rows);
        for (i32 y = std::max(1, low - s); y < end; ++y) Relax(y, z, volume, first + s);
      }
}

void VolumeEvening::Relax(i32 y, i32 z, const double* volume, i32 sweep) {
  const Row& row = RowAt(y, z);
  if (row.n == 0) return;
  const Potential *from = mPotential[(sweep + 1) % 2]->mData + row.c, weight = WeightOf(sweep);
  Potential* out = mPotential[sweep % 2]->mData + row.c;
  if (row.kind == kFree)
    RelaxFreePotential(row.beside, volume + row.c, from, row.n, weight, out);
  else if (row.kind == kNone)
    std::fill_n(out, row.n, Potential{0});
  else
    RelaxPotential(LineOf(row), volume + row.c, from, weight, out);
  ContinueBeyond(row, out);
}

/// What each cell of a layer gives, which `spare` keeps.
void VolumeEvening::LimitLayer(i32 z, const Potential* potential, const Carried& from,
                               const Carried& spare) {
  for (i32 y = 1; y < mDims.y - 1; ++y) {
    const Row& row = RowAt(y, z);
    const i32 c = row.c;
    if (row.n == 0) continue;
    if (row.kind == kFree)
      LimitFreeFlows(row.beside, potential + c, from.volume + c, from.content + c, row.n,
                     spare.volume + c, spare.content + c);
    else
      LimitFlows(LineOf(row), potential + c, from.volume + c, from.content + c, spare.volume + c,
                 spare.content + c);
    mIsWhole[i64{z} * mDims.y + y] = RangeOf(spare.volume + c, row.n).least == 1 ? 1 : 0;
  }
}

double VolumeEvening::PassLayer(i32 z, const Potential* potential, const Carried& from,
                                const Carried& to, const Carried& spare) const {
  double most = 0;
  for (i32 y = 0; y < mDims.y; ++y) {
    const Row& row = RowAt(y, z);
    if (row.kind == kNone)
      Keep(y, z, from, to);
    else
      most = std::max(most, PassRow(row, potential, from, to, spare));
  }
  return most;
}

/// Lets the flows of a potential pass; returns how far volumes are from one then. A slab of layers
/// limits the next layer while what a layer gives is at hand; those that its neighbours ask for
/// come first.
double VolumeEvening::Pass(const Potential* potential, const Carried& from, const Carried& to,
                           const Carried& spare) {
  const i32 slabs = std::clamp(mDims.z / kLeastLayers, 1, std::max(mThreads, 1));
  const auto layersOf = [&](i32 slab) { return PartOf(slab, slabs, 0, mDims.z); };
  ForEachBlock(slabs, mThreads, [&](i32 slab) {
    const IndexRange part = layersOf(slab);
    LimitLayer(part.first, potential, from, spare);
    if (part.last - 1 > part.first) LimitLayer(part.last - 1, potential, from, spare);
  });
  return ReduceBlocks(
      slabs, mThreads, 0.0,
      [&](i32 slab) {
        const IndexRange part = layersOf(slab);
        double most = 0;
        for (i32 z = part.first; z < part.last; ++z) {
          if (z + 1 < part.last - 1) LimitLayer(z + 1, potential, from, spare);
          most = std::max(most, PassLayer(z, potential, from, to, spare));
        }
        return most;
      },
      [](double a, double b) { return std::max(a, b); });
}

double VolumeEvening::PassRow(const Row& row, const Potential* potential, const Carried& from,
                              const Carried& to, const Carried& spare) const {
  const i32 c = row.c, n = row.n;
  const auto keep = [&](i32 end) {
    to.volume[end] = from.volume[end];
    to.content[end] = from.content[end];
  };
  if (row.isFirst) keep(c - 1);
  if (row.isLast) keep(c + n);
  const PassedLine line{potential + c,    spare.volume + c, spare.content + c, from.volume + c,
                        from.content + c, to.volume + c,    to.content + c};
  if (row.kind == kFree) {
    bool areWhole = true;
    const i32 layer = row.c / mSlice, y = row.c % mSlice / mDims.x, own = layer * mDims.y + y;
    for (const i32 at : {own, own - 1, own + 1, own - mDims.y, own + mDims.y})
      areWhole &= mIsWhole[at] != 0;
    PassFreeFlows(row.beside, line, n, areWhole);
    const ValueRange range = RangeOf(to.volume + c, n);
    return std::max(range.most - 1, 1 - range.least);
  }
  PassFlows(LineOf(row), line);
  return MostExcess(LineOf(row), to.volume + c);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
