#include "fluids/flow/even_density.h"

#include <algorithm>

#include "fluids/flow/face_stencil.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

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
  sort.ForEachBySlab(flow.Threads(), [&](const ParticleSort::Entry& entry) {
    stencil.At(layout.ToCells(entry.position)).AddWeights(dense.mData);
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
  const VecInt3D n = phi->Dims();
  const double rate = kShare / dt;
  ForEachBlock(std::max(n.z - 2, 0), flow.Threads(), [&](i32 z) {
    ForEachCell({{1, 1, z + 1}, {n.x - 1, n.y - 1, z + 2}}, [&](i32 x, i32 y, i32 layer) {
      const i32 c = phi->Index(x, y, layer);
      if (!(phi->mData[c] < 0)) return;
      double room = 0;
      bool isDeep = true;
      ForEachNear(*open, c, [&](i32 near, double weight) {
        room += weight * open->mData[near];
        isDeep = isDeep && (phi->mData[near] < 0 || open->mData[near] == 0);
      });
      if (!isDeep || !(room > 0)) return;
      const double excess = dense->mData[c] / (mPerCell * room) - 1;
      source->mData[c] += rate * std::clamp(excess, -kMost, kMost);
    });
  });
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
