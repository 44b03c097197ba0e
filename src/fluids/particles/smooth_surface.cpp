#include "fluids/particles/smooth_surface.h"

#include <cmath>

#include "fluids/levelset/eikonal_sweeper.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// Of a spline; where less is open, particles count as if it were that.
constexpr double kLeastOpen = 0.1;
/// Of a cell: an excess, or a lack, that an even lattice of particles has too, and the largest that
/// is told beyond it.
constexpr double kNoise = 0.005, kSurfaceNoise = 0.05, kMostCrowd = 0.5;
/// The excess that a cell whose surroundings are cut all through, as in the corners of a box, may
/// tell by mistake: what is open of them isn't known any better.
constexpr double kCutNoise = 0.75;
/// Depths of a cell, in cells. What is full by four fifths has a surface that can be told.
constexpr double kResolved = 0.42;
/// Cells of a film count whole: what a part of one holds isn't known beside a solid, and each error
/// is a slope of the surface that holds the film, or drives it.
constexpr double kFilmDepth = 0.5;
/// A surface as near to the middle of a cell passes just above it: all along an even one.
constexpr double kRounding = 1e-6;
/// Of a cell that holds stray particles beside a liquid: its pressure is next to nothing, and it
/// keeps its volume. Bare cells lie as far outside.
constexpr double kThinDepth = 0.05;

/// What is told of an excess over full `depth` cells below the surface. Beside it a cell that isn't
/// full may have its lack from there, and what chance crowds isn't made up for elsewhere. Nor is it
/// beside a solid, where depth is 0.
double CrowdOf(double excess, i32 depth, double cut) {
  // Beside a whole wall what is at the surface tells as little as elsewhere.
  if (depth < 1 && !(cut > 0)) return 0;
  if (depth < 1) return std::clamp(excess - 2 * kSurfaceNoise - kCutNoise * cut, 0.0, kMostCrowd);
  if (depth < 2) return std::clamp(excess - kSurfaceNoise, 0.0, kMostCrowd);
  const double told = std::clamp(std::abs(excess) - kNoise, 0.0, kMostCrowd);
  return excess < 0 ? -told : told;
}

}  // namespace

SmoothSurface::SmoothSurface(const ParticleSort& sort, const EGrid<float>* open, EGrid<double>& phi)
    : mFilling(sort, open, phi), mPhi(phi), mStates(phi.Dims(), CellFilling::kMarkKind) {}

double SmoothSurface::DepthOf(double share) {
  if (!(share > 0)) return -kReach;
  if (share >= 1) return kReach;
  if (share < CellFilling::kSide) return std::cbrt(6 * share) - kReach;
  if (share > 1 - CellFilling::kSide) return kReach - std::cbrt(6 * (1 - share));
  // t (3/4 - t^2 / 3) = share - 1/2, by Newton's steps.
  const double rise = share - 0.5;
  double t = rise / 0.75;
  for (i32 k = 0; k < 3; ++k) t -= (t * (0.75 - t * t / 3) - rise) / (0.75 - t * t);
  return t;
}

void SmoothSurface::FindDepths(const Crowd& crowd) {
  const double h = mPhi.mLayout.cellSize, rest = mRest.particles;
  const bool tells = crowd.grid && crowd.grid->mData && crowd.grid->Dims() == mPhi.Dims();
  ForEachBlock(mPhi.mNz, host::ThreadCount(), [&](i32 z) {
    CellFilling::Surroundings line;
    for (i32 y = 0; y < mPhi.mNy; ++y) {
      mFilling.Find(y, z, line);
      for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i) {
        const bool isCut = line.least[x] < CellFilling::kWhole;
        const bool isTold = tells && (line.depth[x] > 0 || isCut) && mFilling.HasOpening(i);
        CellFilling::Opening opening;
        // What holds nothing, and what is full with less, is the same with any share.
        if (line.least[x] < 1 && mPhi[i] > 0 && (isTold || mPhi[i] < rest))
          opening = mFilling.OpenAbout({x, y, z}, i);
        const double filled = mPhi[i] / (rest * std::max(opening.share, kLeastOpen));
        const bool isGap =
            filled < 1 - kNoise && line.depth[x] > 1 && mFilling.IsUnderLid({x, y, z}, rest);
        if (isTold && !isGap)
          (*crowd.grid)[i] += crowd.rate * CrowdOf(filled - 1, line.depth[x], opening.cut);
        const double depth = DepthOf(filled);
        mPhi[i] = -h * (std::abs(depth) < kRounding ? kRounding : depth);
      }
    }
  });
}

void SmoothSurface::FindFilms() {
  CellFilling::ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i)
      mStates[i] = IsFilm({x, y, z}, i) ? kFilm : kAir;
  });
  const double depth = kFilmDepth * mPhi.mLayout.cellSize;
  CellFilling::ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i)
      if (mStates[i] == kFilm) mPhi[i] = -depth;
  });
}

void SmoothSurface::EnterWalls() {
  if (mFilling.IsAllOpen()) return;
  const double film = kFilmDepth * mPhi.mLayout.cellSize;
  CellFilling::ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i) {
      if (mFilling.IsMostlyOpen(i) || mStates[i] == kFilm) continue;
      if (IsBesideFilm({x, y, z}, i)) {
        mPhi[i] = -film;
        continue;
      }
      // Of the neighbours across a face, else across an edge, else across a corner.
      double sums[4] = {};
      i32 counts[4] = {};
      const CellBox about = Clip({{x - 1, y - 1, z - 1}, {x + 2, y + 2, z + 2}}, {}, mPhi.Dims());
      ForEachCell(about, [&](i32 i1, i32 j1, i32 k1) {
        const i32 next = mPhi.Index(i1, j1, k1);
        if (!mFilling.IsMostlyOpen(next)) return;
        const i32 way = std::abs(i1 - x) + std::abs(j1 - y) + std::abs(k1 - z);
        sums[way] += mPhi[next];
        ++counts[way];
      });
      for (i32 way = 1; way < 4; ++way)
        if (counts[way] > 0) {
          mPhi[i] = sums[way] / counts[way];
          break;
        }
    }
  });
}

bool SmoothSurface::IsFilm(const VecInt3D& at, i32 i) const {
  if (!mFilling.Holds(i) || !mFilling.HasOpening(i)) return false;
  const double resolved = -kResolved * mPhi.mLayout.cellSize;
  const VecInt3D one{1, 1, 1}, two{2, 2, 2};
  const CellBox about = Clip({at - one, at + two}, {}, mPhi.Dims());
  for (i32 z = about.min.z; z < about.max.z; ++z)
    for (i32 y = about.min.y; y < about.max.y; ++y)
      for (i32 x = about.min.x; x < about.max.x; ++x) {
        const i32 near = mPhi.Index(x, y, z);
        if (mPhi[near] < resolved && mFilling.IsMostlyOpen(near)) return false;
      }
  return true;
}

bool SmoothSurface::IsBesideFilm(const VecInt3D& at, i32 i) const {
  const i32 steps[3] = {1, mPhi.mNx, mPhi.mSlice};
  for (i32 axis = 0; axis < 3; ++axis) {
    if (at[axis] > 0 && mStates[i - steps[axis]] == kFilm) return true;
    if (at[axis] < mPhi.Dims()[axis] - 1 && mStates[i + steps[axis]] == kFilm) return true;
  }
  return false;
}

SmoothSurface::State SmoothSurface::StateOf(const VecInt3D& at, i32 i) const {
  if (mStates[i] == kFilm) return kFilm;
  const bool isLiquid = mPhi[i] < 0;
  const i32 steps[3] = {1, mPhi.mNx, mPhi.mSlice};
  const VecInt3D n = mPhi.Dims();
  bool besideLiquid = false, besideOther = false, besideBare = false;
  for (i32 axis = 0; axis < 3; ++axis)
    for (const i32 side : {-1, 1}) {
      const i32 next = i + side * steps[axis];
      if (at[axis] + side < 0 || at[axis] + side >= n[axis]) continue;
      const bool other = (mPhi[next] < 0) != isLiquid;
      besideOther |= other;
      besideLiquid |= other && mFilling.HasOpening(next);
      besideBare |= !mFilling.Holds(next) && mFilling.IsMostlyOpen(next);
    }
  if (!isLiquid && mFilling.Holds(i) && !besideLiquid && mFilling.HasOpening(i)) return kThin;
  if (isLiquid && !mFilling.Holds(i) && besideBare && mFilling.IsMostlyOpen(i)) return kBare;
  return besideOther ? kBesideSurface : isLiquid ? kLiquid : kAir;
}

void SmoothSurface::FindStates() {
  const double h = mPhi.mLayout.cellSize;
  CellFilling::ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i)
      mStates[i] = StateOf({x, y, z}, i);
  });
  CellFilling::ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i) switch (mStates[i]) {
        case kThin: mPhi[i] = -kThinDepth * h; break;
        case kBare: mPhi[i] = kThinDepth * h; break;
        case kLiquid: mPhi[i] = -kReach * h; break;
        case kAir: mPhi[i] = mPhi[i] < kReach * h ? mPhi[i] : kFar; break;
        default: break;
      }
  });
}

double SmoothSurface::FindSurplus() const {
  const double perCell = 1 / double{mPhi.mLayout.cellSize};
  return SumBlocks(mPhi.mNz, 1, host::ThreadCount(), [&](i64 first, i64 last) {
    double sum = 0;
    const CellBox layers{{0, 0, static_cast<i32>(first)},
                         {mPhi.mNx, mPhi.mNy, static_cast<i32>(last)}};
    ForEachCell(layers, [&](i32 x, i32 y, i32 z) {
      const i32 i = mPhi.Index(x, y, z);
      if (!CountsWhole({x, y, z}, i)) return;
      sum += std::clamp(0.5 - mPhi[i] * perCell, 0.0, 1.0) * mFilling.OpenOf(i);
      sum -= mFilling.ParticlesIn({x, y, z}) / mRest.particles;
    });
    return sum;
  });
}

bool SmoothSurface::Run(double rest, const Crowd& crowd) {
  if (!mFilling.IsReady() || !mStates.mData) return false;
  mFilling.Spread();
  mRest = rest > 0 ? CellFilling::Rest{rest} : mFilling.FindRest();
  if (!(mRest.particles > 0)) {
    mPhi.Fill(kFar);
    return true;
  }
  if (mRest.particles < kFewest) return true;
  FindDepths(crowd);
  FindFilms();
  EnterWalls();
  FindStates();
  mSurplus = FindSurplus();
  return true;
}

bool SmoothSurface::SpreadDistances(host::HostThread* thread) {
  EikonalSweeper sweeper(mPhi, thread);
  if (!sweeper.IsReady()) return false;
  sweeper.Mark([&](i32 i) {
    return mStates[i] == kLiquid ? EikonalSweeper::kInside
           : mStates[i] == kAir  ? EikonalSweeper::kOutside
                                 : EikonalSweeper::kKnown;
  });
  sweeper.Run();
  CellFilling::ForEachLine(mPhi, [&](i32 y, i32 z) {
    double* phi = mPhi.mData + mPhi.Index(0, y, z);
    for (i32 x = 0; x < mPhi.mNx; ++x)
      if (std::abs(phi[x]) == EikonalSweeper::kFar) phi[x] = phi[x] < 0 ? -kFar : kFar;
  });
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
