#include "fluids/advection/volume_evening.h"

#include <algorithm>
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

Potential WeightOf(i32 sweep) {
  const double root = std::cos(std::numbers::pi * (2 * sweep + 1) / (2 * kSweeps));
  return static_cast<Potential>(2 / ((kHighest + kLowest) + (kHighest - kLowest) * root));
}

}  // namespace

bool VolumeEvening::Fit(const VecInt3D& dims) {
  if (mDims != dims) Release();
  mDims = dims;
  if (!MakeGrids(dims, mExcess, mPotential[0], mPotential[1], mShare, mStrength)) {
    Release();
    return false;
  }
  mSlice = mShare->mSlice;
  return true;
}

void VolumeEvening::Release() {
  mDims = {};
  mExcess.reset();
  for (auto& potential : mPotential) potential.reset();
  mShare.reset();
  mStrength.reset();
}

/// Calls f(y, z) for the inner rows, each layer on one worker.
template <class F>
void VolumeEvening::ForEachRow(F&& f) const {
  ForEachBlock(std::max(0, mDims.z - 2), mThreads, [&](i32 layer) {
    for (i32 y = 1; y < mDims.y - 1; ++y) f(y, layer + 1);
  });
}

void VolumeEvening::Run(const u8* moves, const Carried& field, const Carried& spare, i32 threads) {
  mMoves = moves;
  mThreads = threads;
  MarkRows();
  double excess = FindExcess(field.volume);
  for (i32 round = 0; round < kMostRounds && excess > (round == 0 ? kSliver : kEnough); ++round) {
    Pass(FindPotential(), field, spare);
    const double before = std::exchange(excess, FindExcess(field.volume));
    if (excess > kGains * before) break;
  }
}

void VolumeEvening::MarkRows() {
  mRows.assign(mDims.y * mDims.z, kNone);
  ForEachRow([&](i32 y, i32 z) {
    const u8* moves = mMoves + mShare->Index(1, y, z);
    const i32 n = mDims.x - 2;
    const auto parts = std::count_if(moves, moves + n, [](u8 m) { return m & 1; });
    const bool isWhole = std::count(moves, moves + n, u8{1}) == n;  // no face is closed either
    mRows[z * mDims.y + y] = parts == 0 ? kNone : isWhole ? kAll : kMixed;
  });
}

double VolumeEvening::FindExcess(const double* volume) {
  const double most = MaxBlocks(mDims.z, 1, mThreads, [&](i64 z, i64) {
    double layer = 0;
    for (i64 c = z * mSlice; c < (z + 1) * mSlice; ++c) {
      const auto excess = static_cast<Potential>((volume[c] - 1) * (mMoves[c] & 1));
      (*mExcess)[c] = excess;
      layer = std::max(layer, std::fabs(excess));
    }
    return static_cast<double>(layer);
  });
  return most;
}

const Potential* VolumeEvening::FindPotential() {
  // The first sweep starts from a potential of nothing.
  const Potential first = WeightOf(0);
  ForEachBlock(mDims.z, mThreads, [&](i32 z) {
    Potential* p = mPotential[0]->mData + z * mSlice;
    const Potential* excess = mExcess->mData + z * mSlice;
    for (i32 i = 0; i < mSlice; ++i) p[i] = first * excess[i];
    for (i32 y = 0; y < mDims.y; ++y, p += mDims.x) {
      p[0] = p[1];
      p[mDims.x - 1] = p[mDims.x - 2];
    }
  });
  for (i32 sweep = 1; sweep < kSweeps; ++sweep) {
    const Potential* from = mPotential[(sweep + 1) % 2]->mData;
    Potential *to = mPotential[sweep % 2]->mData, weight = WeightOf(sweep);
    ForEachRow([&](i32 y, i32 z) { RelaxRow(y, z, from, weight, to); });
  }
  return mPotential[(kSweeps - 1) % 2]->mData;
}

void VolumeEvening::RelaxRow(i32 y, i32 z, const Potential* from, Potential weight,
                             Potential* to) const {
  const i32 row = z * mDims.y + y, c = row * mDims.x + 1, cells = mDims.x - 2;
  const i32 rows[4] = {row - 1, row + 1, row - mDims.y, row + mDims.y};
  const i32 beside[4] = {-mDims.x, mDims.x, -mSlice, mSlice};
  bool isFree = mRows[row] == kAll;
  PotentialRows p{.own = from + c, .beside = {}};
  for (int k = 0; k < 4; ++k) {
    isFree = isFree && mRows[rows[k]] != kMixed;
    p.beside[k] = p.own + (mRows[rows[k]] == kAll ? beside[k] : 0);
  }
  Potential* out = to + c;
  if (isFree)
    RelaxFreePotential(p, mExcess->mData + c, cells, weight, out);
  else if (mRows[row] == kNone)
    std::fill_n(out, cells, Potential{0});
  else
    RelaxPotential(LineAt(c), mExcess->mData + c, from + c, weight, out);
  out[-1] = out[0];
  out[cells] = out[cells - 1];
}

void VolumeEvening::Pass(const Potential* potential, const Carried& field, const Carried& spare) {
  double *share = mShare->mData, *strength = mStrength->mData;
  ForEachRow([&](i32 y, i32 z) {
    const i32 c = mShare->Index(1, y, z);
    LimitFlows(LineAt(c), potential + c, field.volume + c, field.content + c, share + c,
               strength + c);
  });
  ForEachRow([&](i32 y, i32 z) {
    const i32 c = mShare->Index(1, y, z);
    PassFlows(LineAt(c), potential + c, share + c, strength + c, field.volume + c,
              field.content + c, spare.volume + c, spare.content + c);
  });
  ForEachRow([&](i32 y, i32 z) {
    const i32 c = mShare->Index(1, y, z), n = mDims.x - 2;
    std::copy_n(spare.volume + c, n, field.volume + c);
    std::copy_n(spare.content + c, n, field.content + c);
  });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
