#include "fluids/advection/volume_evening.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <utility>

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
  if (!MakeGrids(dims, mPotential[0], mPotential[1])) {
    Release();
    return false;
  }
  mSlice = mPotential[0]->mSlice;
  return true;
}

void VolumeEvening::Release() {
  mDims = {};
  for (auto& potential : mPotential) potential.reset();
}

/// Calls f(y, z) for the inner rows, each layer on one worker.
template <class F>
void VolumeEvening::ForEachRow(F&& f) const {
  ForEachBlock(std::max(0, mDims.z - 2), mThreads, [&](i32 layer) {
    for (i32 y = 1; y < mDims.y - 1; ++y) f(y, layer + 1);
  });
}

void VolumeEvening::Run(const u8* moves, const Carried& from, const Carried& to,
                        const Carried& spare, i32 threads) {
  mMoves = moves;
  mThreads = threads;
  Carried now = from, next = to;
  double excess = StartPotential(now.volume);
  if (excess > kSliver) MarkRows();
  for (i32 round = 0; round < kMostRounds && excess > (round == 0 ? kSliver : kEnough); ++round) {
    if (round > 0) StartPotential(now.volume);
    const double after = Pass(FindPotential(now.volume), now, next, spare);
    std::swap(now, next);
    if (std::exchange(excess, after) * kGains < after) break;
  }
  if (now.volume == to.volume) return;
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    std::copy_n(now.volume + z * mSlice, mSlice, to.volume + z * mSlice);
    std::copy_n(now.content + z * mSlice, mSlice, to.content + z * mSlice);
  });
}

/// Rows are free where all of their cells take part, and all or none of each row beside, and no
/// face is closed.
void VolumeEvening::MarkRows() {
  mRows.assign(mDims.y * mDims.z, {});
  ForEachRow([&](i32 y, i32 z) {
    const u8* moves = mMoves + FirstOf(y, z);
    const i32 n = mDims.x - 2;
    const auto parts = std::count_if(moves, moves + n, [](u8 m) { return m & 1; });
    const bool isWhole = std::count(moves, moves + n, u8{1}) == n;  // no face is closed either
    mRows[z * mDims.y + y].kind = parts == 0 ? kNone : isWhole ? kFree : kMixed;
  });
  // Kinds are read beside, where others change: what isn't free by its neighbours is told by them.
  std::vector<u8> kinds(mRows.size());
  for (std::size_t i = 0; i < mRows.size(); ++i) kinds[i] = mRows[i].kind;
  ForEachRow([&](i32 y, i32 z) {
    const i32 row = z * mDims.y + y;
    const i32 rows[4] = {row - 1, row + 1, row - mDims.y, row + mDims.y};
    const i32 off[4] = {-mDims.x, mDims.x, -mSlice, mSlice};
    if (kinds[row] != kFree) return;
    for (int k = 0; k < 4; ++k) {
      if (kinds[rows[k]] == kMixed) mRows[row].kind = kMixed;
      mRows[row].beside.off[k] = kinds[rows[k]] == kFree ? off[k] : 0;
    }
  });
}

/// The first sweep starts from a potential of nothing. Returns how far volumes are from one.
double VolumeEvening::StartPotential(const double* volume) {
  const Potential first = WeightOf(0);
  return MaxBlocks(mDims.z, 1, mThreads, [&](i64 z, i64) {
    const i64 c = z * mSlice;
    Potential* p = mPotential[0]->mData + c;
    for (i32 i = 0; i < mSlice; ++i) p[i] = first * ((volume[c + i] - 1) * (mMoves[c + i] & 1));
    for (i32 y = 0; y < mDims.y; ++y) {
      p[y * mDims.x] = p[y * mDims.x + 1];
      p[(y + 1) * mDims.x - 1] = p[(y + 1) * mDims.x - 2];
    }
    const ValueRange range = RangeOf(p, mSlice);
    return std::max(-range.least, range.most) / first;
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
  const Row& row = mRows[z * mDims.y + y];
  const i32 c = FirstOf(y, z), cells = mDims.x - 2;
  const Potential *from = mPotential[(sweep + 1) % 2]->mData, weight = WeightOf(sweep);
  Potential* out = mPotential[sweep % 2]->mData + c;
  if (row.kind == kFree)
    RelaxFreePotential(row.beside, volume + c, from + c, cells, weight, out);
  else if (row.kind == kNone)
    std::fill_n(out, cells, Potential{0});
  else
    RelaxPotential(LineAt(c), volume + c, from + c, weight, out);
  out[-1] = out[0];
  out[cells] = out[cells - 1];
}

/// Lets the flows of a potential pass; returns how far volumes are from one then. `spare` keeps
/// what each cell gives.
double VolumeEvening::Pass(const Potential* potential, const Carried& from, const Carried& to,
                           const Carried& spare) {
  double *share = spare.volume, *strength = spare.content;
  const i32 cells = mDims.x - 2;
  ForEachRow([&](i32 y, i32 z) {
    const i32 c = FirstOf(y, z);
    const Row& row = mRows[z * mDims.y + y];
    if (row.kind == kFree)
      LimitFreeFlows(row.beside, potential + c, from.volume + c, from.content + c, cells, share + c,
                     strength + c);
    else
      LimitFlows(LineAt(c), potential + c, from.volume + c, from.content + c, share + c,
                 strength + c);
  });
  return MaxBlocks(mDims.z, 1, mThreads, [&](i64 z, i64) {
    double most = 0;
    for (i32 y = 0; y < mDims.y; ++y) {
      const Row& row = mRows[z * mDims.y + y];
      const i32 c = FirstOf(y, static_cast<i32>(z));
      if (row.kind == kNone) {
        std::copy_n(from.volume + c - 1, mDims.x, to.volume + c - 1);
        std::copy_n(from.content + c - 1, mDims.x, to.content + c - 1);
        continue;
      }
      for (const i32 end : {c - 1, c + cells}) {
        to.volume[end] = from.volume[end];
        to.content[end] = from.content[end];
      }
      const PassedLine line{potential + c,    share + c,     strength + c,  from.volume + c,
                            from.content + c, to.volume + c, to.content + c};
      if (row.kind == kFree) {
        PassFreeFlows(row.beside, line, cells);
        const ValueRange range = RangeOf(to.volume + c, cells);
        most = std::max({most, range.most - 1, 1 - range.least});
      } else {
        PassFlows(LineAt(c), line);
        most = std::max(most, MostExcess(LineAt(c), to.volume + c));
      }
    }
    return most;
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
