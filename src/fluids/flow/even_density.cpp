#include "fluids/flow/even_density.h"

#include <algorithm>
#include <array>

#include "fluids/flow/face_stencil.h"
#include "fluids/particles/cell_filling.h"
#include "fluids/particles/smooth_surface.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kNone = -2;  ///< the excess of a cell that asks for nothing
/// Beside cells that a solid cuts: excesses that tell no more than chance, and than that what is
/// open of those isn't known any better; the largest that counts; the least room.
constexpr double kNoise = 0.1, kCutNoise = 0.75, kMostBeside = 4, kLeastRoom = 0.1;

/// The volumes, along an axis, of a hat of linear interpolation that reaches two cells from the
/// middle of its own.
constexpr std::array<double, 5> kWideHat = {0.03125, 0.25, 0.4375, 0.25, 0.03125};

/// Calls f(neighbour's index, its offset from the lowest) for the cells up to `reach` off. Beyond
/// the grid it goes on as at its sides.
template <class F>
void ForEachNear(const EGrid<float>& grid, const VecInt3D& at, i32 reach, F&& f) {
  const VecInt3D last = grid.Dims() - VecInt3D{1, 1, 1};
  const i32 span = 2 * reach + 1;
  const auto place = [&](i32 own, i32 step, i32 most) {
    return std::clamp(own + step - reach, 0, most);
  };
  for (i32 k = 0; k < span; ++k)
    for (i32 j = 0; j < span; ++j)
      for (i32 i = 0; i < span; ++i)
        f(grid.Index(place(at.x, i, last.x), place(at.y, j, last.y), place(at.z, k, last.z)),
          VecInt3D{i, j, k});
}

/// Every `stride`-th of `count` values becomes the mean 1 2 1 with those beside it; beyond the ends
/// there is nothing.
void WidenLine(double* line, i32 count, i32 stride) {
  double before = 0;
  for (i32 i = 0; i < count; ++i) {
    double& value = line[i64{i} * stride];
    const double own = value, after = i + 1 < count ? line[i64{i + 1} * stride] : 0.0;
    value = 0.25 * (before + after) + 0.5 * own;
    before = own;
  }
}

/// Sums by hats become those by hats that reach twice as far, each an eighth as high.
void Widen(Grid<double>& sums, i32 threads) {
  ForEachBlock(sums.mNz, threads, [&](i32 z) {
    double* layer = sums.mData + z * sums.mSlice;
    for (i32 y = 0; y < sums.mNy; ++y) WidenLine(layer + y * sums.mNx, sums.mNx, 1);
    for (i32 x = 0; x < sums.mNx; ++x) WidenLine(layer + x, sums.mNy, sums.mNx);
  });
  ForEachBlock(sums.mNy, threads, [&](i32 y) {
    for (i32 x = 0; x < sums.mNx; ++x)
      WidenLine(sums.mData + y * sums.mNx + x, sums.mNz, sums.mSlice);
  });
}

}  // namespace

EvenDensity::Room EvenDensity::WideRoom(const EGrid<float>& open, const VecInt3D& at) {
  Room room;
  ForEachNear(open, at, 2, [&](i32 near, const VecInt3D& step) {
    const double weight = kWideHat[step.x] * kWideHat[step.y] * kWideHat[step.z];
    const float share = open.mData[near];
    const bool isWhole = share >= CellFilling::kWhole;
    room.open += weight * (isWhole ? 1.0 : share);
    room.cut += share > 0 && !isWhole ? weight : 0.0;
  });
  return room;
}

void EvenDensity::MeasureWide(const ParticleSort& sort, Flow& flow, Grid<double>& dense) const {
  const GridLayout& layout = *flow.GetLayout();
  ForEachBlock(dense.mNz, flow.Threads(),
               [&](i32 z) { std::fill_n(dense.mData + z * dense.mSlice, dense.mSlice, 0.0); });
  const FaceStencil stencil(layout, kCentre);
  const EvenCells* even = EvenOf(flow);
  sort.ForEachBySlab(flow.Threads(), [&](const ParticleSort::Entry& entry) {
    const Vec3d p = layout.ToCells(entry.position);
    stencil.At(even ? even->Place(p) : p).AddWeights(dense.mData);
  });
  Widen(dense, flow.Threads());
}

bool EvenDensity::AddSource(const ParticleSort& sort, Flow& flow) const {
  const double dt = flow.StepDuration();
  const EGrid<double>* phi = flow.mSurface;
  EGrid<double>* source = flow.mDivergence.GetGridForWrite(0);
  if (!(dt > 0) || !(mPerCell > 0) || !phi || !source || !source->mData) return false;
  if (!flow.mFractions.HasField(0, 0)) return false;
  const EGrid<float>* open = flow.mFractions.GetRead(0, 0);
  Grid<double>* dense = flow.mScratch.Get(0, flow.GetLayout()->dims, kCentre);
  if (!open || !open->mData || !dense || source->Dims() != phi->Dims() ||
      open->Dims() != phi->Dims())
    return false;
  double mean;
  if (mKeepsVolume && mPerCell < SmoothSurface::kFewest) {
    MeasureWide(sort, flow, *dense);
    mean = FindExcess(
        *phi, *open, 2, [&](const VecInt3D& at, i32) { return WideRoom(*open, at); },
        flow.Threads(), *dense);
  } else {
    CellFilling filling(sort, open, *dense);
    if (!filling.IsReady()) return false;
    filling.SpreadWith(EvenOf(flow));
    mean = FindExcess(
        *phi, *open, 1,
        [&](const VecInt3D& at, i32 c) {
          const CellFilling::Opening opening = filling.OpenAbout(at, c);
          return Room{opening.share, opening.cut};
        },
        flow.Threads(), *dense);
  }
  const double rate = kShare / dt, even = mKeepsVolume ? mean : 0.0;
  ForEachBlock(dense->mNz, flow.Threads(), [&](i32 z) {
    const i32 first = z * dense->mSlice;
    for (i32 c = first; c < first + dense->mSlice; ++c)
      if (dense->mData[c] != kNone) source->mData[c] += rate * (dense->mData[c] - even);
  });
  return true;
}

template <class RoomOf>
double EvenDensity::FindExcess(const EGrid<double>& phi, const EGrid<float>& open, i32 reach,
                               const RoomOf& roomOf, i32 threads, Grid<double>& dense) const {
  struct Found {
    double excess = 0, volume = 0;
  };
  const VecInt3D n = phi.Dims();
  const auto excessOf = [&](const VecInt3D& at, i32 c) {
    bool isDeep = phi.mData[c] < 0, isBesideClosed = false, isClear = true;
    if (!isDeep || open.mData[c] == 0) return kNone;
    ForEachNear(open, at, reach, [&](i32 near, const VecInt3D&) {
      const float share = open.mData[near];
      const bool isWhole = share >= CellFilling::kWhole;
      isBesideClosed |= share == 0;
      isClear = isClear && isWhole;
      isDeep = isDeep && (isWhole ? phi.mData[near] < 0 : share == 0);
    });
    const auto [room, cut] = isClear ? Room{1, 0} : roomOf(at, c);
    const double excess = dense.mData[c] / (mPerCell * std::max(room, kLeastRoom)) - 1;
    if (isDeep && isBesideClosed && excess < CellFilling::kLeast - 1) return kNone;
    if (isDeep) return std::clamp(excess, -kMost, kMost);
    const double told = cut > 0 ? excess - kNoise - kCutNoise * cut : 0.0;
    return told > 0 ? std::min(told, kMostBeside) : kNone;
  };
  const Found all = ReduceBlocks(
      n.z, threads, Found{},
      [&](i32 z) {
        Found found;
        ForEachCell({{0, 0, z}, {n.x, n.y, z + 1}}, [&](i32 x, i32 y, i32 layer) {
          const i32 c = phi.Index(x, y, layer);
          const bool isInner =
              x > 0 && y > 0 && layer > 0 && x < n.x - 1 && y < n.y - 1 && layer < n.z - 1;
          const double excess = isInner ? excessOf({x, y, layer}, c) : kNone;
          dense.mData[c] = excess;
          if (excess == kNone) return;
          found.excess += open.mData[c] * excess;
          found.volume += open.mData[c];
        });
        return found;
      },
      [](const Found& a, const Found& b) {
        return Found{a.excess + b.excess, a.volume + b.volume};
      });
  return all.volume > 0 ? all.excess / all.volume : 0.0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
