#include "fluids/flow/even_density.h"

#include <algorithm>

#include "fluids/flow/face_stencil.h"
#include "fluids/particles/cell_filling.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kNone = -2;  ///< the excess of a cell that asks for nothing
/// Beside cells that a solid cuts: excesses that tell no more than chance, and than that what is
/// open of those isn't known any better; the largest that counts; the least room.
constexpr double kNoise = 0.1, kCutNoise = 0.75, kMostBeside = 4, kLeastRoom = 0.1;

/// Calls f(neighbour's index, weight) for a cell and those round it; the weights are the volumes of
/// the hat of linear interpolation over each.
template <class F>
void ForEachNear(const EGrid<float>& grid, i32 cell, F&& f) {
  constexpr double w[3] = {0.125, 0.75, 0.125};
  for (i32 k = 0; k < 3; ++k)
    for (i32 j = 0; j < 3; ++j)
      for (i32 i = 0; i < 3; ++i)
        f(cell + (k - 1) * grid.mSlice + (j - 1) * grid.mNx + (i - 1), w[i] * w[j] * w[k]);
}

}  // namespace

void EvenDensity::Measure(const ParticleSort& sort, Flow& flow, Grid<double>& dense) const {
  const GridLayout& layout = *flow.GetLayout();
  ForEachBlock(dense.mNz, flow.Threads(),
               [&](i32 z) { std::fill_n(dense.mData + z * dense.mSlice, dense.mSlice, 0.0); });
  const FaceStencil stencil(layout, kCentre);
  const EvenCells* even = EvenOf(flow);
  sort.ForEachBySlab(flow.Threads(), [&](const ParticleSort::Entry& entry) {
    const Vec3d p = layout.ToCells(entry.position);
    stencil.At(even ? even->Place(p) : p).AddWeights(dense.mData);
  });
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
  Measure(sort, flow, *dense);
  const double mean = FindExcess(*phi, *open, flow.Threads(), *dense);
  const double rate = kShare / dt, even = mKeepsVolume ? mean : 0.0;
  ForEachBlock(dense->mNz, flow.Threads(), [&](i32 z) {
    const i32 first = z * dense->mSlice;
    for (i32 c = first; c < first + dense->mSlice; ++c)
      if (dense->mData[c] != kNone) source->mData[c] += rate * (dense->mData[c] - even);
  });
  return true;
}

double EvenDensity::FindExcess(const EGrid<double>& phi, const EGrid<float>& open, i32 threads,
                               Grid<double>& dense) const {
  struct Found {
    double excess = 0, volume = 0;
  };
  const VecInt3D n = phi.Dims();
  const auto excessOf = [&](i32 c) {
    double room = 0, cut = 0;
    bool isDeep = phi.mData[c] < 0, isBesideClosed = false;
    if (!isDeep || open.mData[c] == 0) return kNone;
    ForEachNear(open, c, [&](i32 near, double weight) {
      const float share = open.mData[near];
      const bool isWhole = share >= CellFilling::kWhole;
      room += weight * (isWhole ? 1.0 : share);
      isBesideClosed |= share == 0;
      cut += share > 0 && !isWhole ? weight : 0.0;
      isDeep = isDeep && (isWhole ? phi.mData[near] < 0 : share == 0);
    });
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
          const double excess = isInner ? excessOf(c) : kNone;
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
