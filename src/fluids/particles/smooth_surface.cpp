#include "fluids/particles/smooth_surface.h"

#include <cmath>

#include "fluids/levelset/eikonal_sweeper.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kMarkKind = 13;
/// What a spline gives of an even filling to its own cell and to those beside it on an axis.
constexpr double kMiddle = 2.0 / 3, kSide = 1.0 / 6;
/// Of a spline; where less is open, particles count as if it were that.
constexpr double kLeastOpen = 0.1;
/// From here on a cell is open all through: distances cut the inner edges of a box off.
constexpr float kWhole = 0.8F;
/// Of a cell: noise of the filling that is no crowd, and the largest excess that is told.
constexpr double kNoise = 0.05, kMostCrowd = 0.5;
/// Depth of a cell in a film, in cells: its pressure is next to nothing, and it keeps its volume.
/// Bare cells lie as far outside.
constexpr double kFilmDepth = 0.05;

/// What a particle at `v`, in cells, gives on an axis of n cells to its own cell and those beside
/// it. Closed cells and the ends of the grid give back what they get: `sides` has the axis's two
/// bits.
struct SplineWeights {
  double w[3];
  i32 at[3];

  SplineWeights(double v, i32 n, i32 sides) {
    const i32 own = std::clamp(static_cast<i32>(v), 0, n - 1);
    const double u = std::clamp(v - own - 0.5, -0.5, 0.5);
    w[0] = 0.5 * (0.5 - u) * (0.5 - u);
    w[1] = 0.75 - u * u;
    w[2] = 0.5 * (0.5 + u) * (0.5 + u);
    at[0] = own == 0 || (sides & 1) ? own : own - 1;
    at[1] = own;
    at[2] = own == n - 1 || (sides & 2) ? own : own + 1;
  }
};

/// Calls f(y, z) for the lines of cells along x, layer by layer on all workers.
template <class F>
void ForEachLine(const EGrid<double>& grid, F&& f) {
  ForEachBlock(grid.mNz, host::ThreadCount(), [&](i32 z) {
    for (i32 y = 0; y < grid.mNy; ++y) f(y, z);
  });
}

}  // namespace

SmoothSurface::SmoothSurface(const ParticleSort& sort, const EGrid<float>* open, EGrid<double>& phi)
    : mSort(sort),
      mOpen(open && open->mData && open->Dims() == phi.Dims() ? open : nullptr),
      mPhi(phi),
      mNotes(phi.Dims(), kMarkKind),
      mStates(phi.Dims(), kMarkKind) {}

double SmoothSurface::DepthOf(double share) {
  if (!(share > 0)) return -kReach;
  if (share >= 1) return kReach;
  if (share < kSide) return std::cbrt(6 * share) - kReach;
  if (share > 1 - kSide) return kReach - std::cbrt(6 * (1 - share));
  // t (3/4 - t^2 / 3) = share - 1/2, by Newton's steps.
  const double rise = share - 0.5;
  double t = rise / 0.75;
  for (i32 k = 0; k < 3; ++k) t -= (t * (0.75 - t * t / 3) - rise) / (0.75 - t * t);
  return t;
}

void SmoothSurface::FindNotes() {
  const VecInt3D n = mPhi.Dims();
  const i32 steps[3] = {1, mPhi.mNx, mPhi.mSlice};
  ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < n.x; ++x, ++i) {
      const VecInt3D at{x, y, z};
      i32 notes = mSort.Cell(at).empty() ? 0 : kHolds;
      for (i32 axis = 0; axis < 3 && mOpen; ++axis) {
        if (at[axis] > 0 && !HasOpening(i - steps[axis])) notes |= 1 << (2 * axis);
        if (at[axis] < n[axis] - 1 && !HasOpening(i + steps[axis])) notes |= 2 << (2 * axis);
      }
      mNotes[i] = static_cast<u8>(notes);
    }
  });
}

void SmoothSurface::Spread() {
  const GridLayout& layout = mSort.Layout();
  const VecInt3D n = layout.dims;
  ForEachLine(mPhi, [&](i32 y, i32 z) { std::fill_n(mPhi.mData + mPhi.Index(0, y, z), n.x, 0.0); });
  std::vector<std::span<const u16>> flags;
  for (ParticleGroup* group : mSort.Groups()) flags.push_back(group->Store(mSort.Kind()).Flags());
  mSort.ForEachBySlab(host::ThreadCount(), [&](const ParticleSort::Entry& entry) {
    if (flags[entry.group][entry.row] & PF_SHEET_FILLER) return;
    const Vec3d p = layout.ToCells(entry.position);
    VecInt3D cell;
    for (int a = 0; a < 3; ++a) cell[a] = std::clamp(static_cast<i32>(p[a]), 0, n[a] - 1);
    const i32 sides = mNotes[mPhi.Index(cell.x, cell.y, cell.z)];
    const SplineWeights x(p.x, n.x, sides), y(p.y, n.y, sides >> 2), z(p.z, n.z, sides >> 4);
    for (i32 k = 0; k < 3; ++k)
      for (i32 j = 0; j < 3; ++j) {
        double* line = mPhi.mData + mPhi.Index(0, y.at[j], z.at[k]);
        const double weight = z.w[k] * y.w[j];
        for (i32 i = 0; i < 3; ++i) line[x.at[i]] += weight * x.w[i];
      }
  });
}

bool SmoothSurface::IsAmidst(i32 i) const {
  const i32 ny = mPhi.mNx, nz = mPhi.mSlice;
  for (i32 z = i - nz; z <= i + nz; z += nz)
    for (i32 y = z - ny; y <= z + ny; y += ny)
      for (i32 x = y - 1; x <= y + 1; ++x)
        if (!Holds(x) || (mOpen && !((*mOpen)[x] >= 1))) return false;
  return true;
}

double SmoothSurface::FindRest() const {
  struct Found {
    i64 cells = 0, particles = 0;
    double most = 0;  ///< that any cell got
  };
  const VecInt3D n = mPhi.Dims();
  const Found all = ReduceBlocks(
      n.z, host::ThreadCount(), Found{},
      [&](i32 z) {
        Found found;
        const bool isInner = z > 0 && z < n.z - 1;
        for (i32 y = 0; y < n.y; ++y)
          for (i32 x = 0, i = mPhi.Index(0, y, z); x < n.x; ++x, ++i) {
            if (!Holds(i)) continue;
            found.most = std::max(found.most, mPhi[i]);
            if (!isInner || y < 1 || y >= n.y - 1 || x < 1 || x >= n.x - 1 || !IsAmidst(i))
              continue;
            ++found.cells;
            found.particles += static_cast<i64>(mSort.Cell({x, y, z}).size());
          }
        return found;
      },
      [](const Found& a, const Found& b) {
        return Found{a.cells + b.cells, a.particles + b.particles, std::max(a.most, b.most)};
      });
  return all.cells > 0 ? static_cast<double>(all.particles) / static_cast<double>(all.cells)
                       : all.most;
}

double SmoothSurface::OpenShare(const VecInt3D& at, i32 i) const {
  const VecInt3D n = mPhi.Dims();
  double share = 0;
  for (i32 z = -1; z <= 1; ++z)
    for (i32 y = -1; y <= 1; ++y)
      for (i32 x = -1; x <= 1; ++x) {
        const VecInt3D from = at + VecInt3D{x, y, z};
        if (from.x < 0 || from.y < 0 || from.z < 0 || from.x >= n.x || from.y >= n.y ||
            from.z >= n.z)
          continue;
        const i32 c = i + (z * mPhi.mNy + y) * mPhi.mNx + x;
        const VecInt3D way{x, y, z};
        double given = (*mOpen)[c] < kWhole ? (*mOpen)[c] : 1.0F;
        for (i32 axis = 0; axis < 3; ++axis) {
          const i32 sides = mNotes[c] >> (2 * axis) & 3;
          const bool low = from[axis] == 0 || (sides & 1);
          const bool high = from[axis] == n[axis] - 1 || (sides & 2);
          // What comes from the low side went up.
          if (way[axis] == 0)
            given *= kMiddle + kSide * (low + high);
          else
            given *= (way[axis] < 0 ? high : low) ? 0.0 : kSide;
        }
        share += given;
      }
  return share;
}

void SmoothSurface::FindLeastOpen(i32 y, i32 z, std::vector<float>& beside,
                                  std::vector<float>& least) const {
  const VecInt3D n = mPhi.Dims();
  beside.assign(n.x + 2, 1.0F);
  least.assign(n.x, 1.0F);
  if (!mOpen) return;
  for (i32 k = std::max(z - 1, 0); k <= std::min(z + 1, n.z - 1); ++k)
    for (i32 j = std::max(y - 1, 0); j <= std::min(y + 1, n.y - 1); ++j) {
      const float* open = mOpen->mData + mOpen->Index(0, j, k);
      for (i32 x = 0; x < n.x; ++x) beside[x + 1] = std::min(beside[x + 1], open[x]);
    }
  for (i32 x = 0; x < n.x; ++x) least[x] = std::min({beside[x], beside[x + 1], beside[x + 2]});
}

void SmoothSurface::FindDepths(const Crowd& crowd) {
  const double h = mPhi.mLayout.cellSize, rest = mRest;
  const bool tells = crowd.grid && crowd.grid->mData && crowd.grid->Dims() == mPhi.Dims();
  ForEachBlock(mPhi.mNz, host::ThreadCount(), [&](i32 z) {
    std::vector<float> beside, least;
    for (i32 y = 0; y < mPhi.mNy; ++y) {
      FindLeastOpen(y, z, beside, least);
      for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i) {
        double share = 1;
        // What holds nothing, and what is full with less, is the same with any share.
        if (least[x] < 1 && mPhi[i] > 0 && mPhi[i] < rest) share = OpenShare({x, y, z}, i);
        const double filled = mPhi[i] / (rest * std::max(share, kLeastOpen));
        if (tells && filled > 1 + kNoise && HasOpening(i))
          (*crowd.grid)[i] += crowd.rate * std::min(filled - 1 - kNoise, kMostCrowd);
        mPhi[i] = -h * DepthOf(filled);
      }
    }
  });
}

void SmoothSurface::EnterWalls() {
  if (!mOpen) return;
  ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i) {
      if (HasOpening(i)) continue;
      // Of the neighbours across a face, else across an edge, else across a corner.
      double sums[4] = {};
      i32 counts[4] = {};
      const CellBox about = Clip({{x - 1, y - 1, z - 1}, {x + 2, y + 2, z + 2}}, {}, mPhi.Dims());
      ForEachCell(about, [&](i32 i1, i32 j1, i32 k1) {
        const i32 next = mPhi.Index(i1, j1, k1);
        if (!HasOpening(next)) return;
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
      besideLiquid |= other && HasOpening(next);
      besideBare |= !Holds(next) && HasOpening(next);
    }
  if (!isLiquid && Holds(i) && !besideLiquid && HasOpening(i)) return kThin;
  if (isLiquid && !Holds(i) && besideBare && HasOpening(i)) return kBare;
  return besideOther ? kBesideSurface : isLiquid ? kLiquid : kAir;
}

void SmoothSurface::FindStates() {
  const double h = mPhi.mLayout.cellSize;
  ForEachLine(mPhi, [&](i32 y, i32 z) {
    for (i32 x = 0, i = mPhi.Index(0, y, z); x < mPhi.mNx; ++x, ++i)
      mStates[i] = StateOf({x, y, z}, i);
  });
  ForEachLine(mPhi, [&](i32 y, i32 z) {
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
  if (!mNotes.mData || !mStates.mData) return false;
  FindNotes();
  Spread();
  mRest = rest > 0 && mSort.Count() > 0 ? rest : FindRest();
  if (!(mRest > 0)) {
    mPhi.Fill(kFar);
    return true;
  }
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
  ForEachLine(mPhi, [&](i32 y, i32 z) {
    double* phi = mPhi.mData + mPhi.Index(0, y, z);
    for (i32 x = 0; x < mPhi.mNx; ++x)
      if (std::abs(phi[x]) == EikonalSweeper::kFar) phi[x] = phi[x] < 0 ? -kFar : kFar;
  });
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
