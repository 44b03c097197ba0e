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
/// Depth of a cell in a film, in cells: its pressure is next to nothing, and it keeps its volume.
/// Bare cells lie as far outside.
constexpr double kFilmDepth = 0.05;

/// What is told of an excess over full `depth` cells below the surface. Beside it a cell that isn't
/// full may have its lack from there, and what chance crowds isn't made up for elsewhere.
double CrowdOf(double excess, i32 depth) {
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
        const bool isTold = tells && line.depth[x] > 0 && mFilling.HasOpening(i);
        double share = 1;
        // What holds nothing, and what is full with less, is the same with any share.
        if (line.least[x] < 1 && mPhi[i] > 0 && (isTold || mPhi[i] < rest))
          share = mFilling.OpenShare({x, y, z}, i);
        const double filled = mPhi[i] / (rest * std::max(share, kLeastOpen));
        if (isTold) (*crowd.grid)[i] += crowd.rate * CrowdOf(filled - 1, line.depth[x]);
        mPhi[i] = -h * DepthOf(filled);
      }
    }
  });
}

void SmoothSurface::EnterWalls() {
  if (mFilling.IsAllOpen()) return;
  CellFilling::ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i) {
      if (mFilling.IsMostlyOpen(i)) continue;
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

SmoothSurface::State SmoothSurface::StateOf(const VecInt3D& at, i32 i) const {
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
        case kThin: mPhi[i] = -kFilmDepth * h; break;
        case kBare: mPhi[i] = kFilmDepth * h; break;
        case kLiquid: mPhi[i] = -kReach * h; break;
        case kAir: mPhi[i] = mPhi[i] < kReach * h ? mPhi[i] : kFar; break;
        default: break;
      }
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
  EnterWalls();
  FindStates();
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
