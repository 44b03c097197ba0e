#include "fluids/rendering/grid_copies.h"

#include "grids/grid_resampler.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

bool Resample(const EGrid<double>& from, EGrid<double>& to, i32 mode) {
  EGridResampler resampler;
  return resampler.Init(&from, &to, false, mode, kWriteValue, {}, true) &&
         resampler.Run(host::ThreadCount());
}

std::unique_ptr<EGrid<double>> EmptyScaled(const EGrid<double>& like, double factor) {
  const GridLayout& from = like.mLayout;
  const VecInt3D dims = Max(TruncateNudged(ToReal(like.Dims()) * factor), VecInt3D{2, 2, 2});
  const f32 cell = static_cast<f32>(from.simSize.x / dims.x);
  auto grid =
      std::make_unique<EGrid<double>>(dims, from.worldSize, cell, kCentre, from.worldOrigin);
  if (!grid->mData) return nullptr;
  GridLayout& layout = grid->mLayout;
  layout.simOrigin = from.simOrigin;
  layout.simSize = from.simSize;
  layout.simMax = from.simMax;
  layout.simToWorld = from.simToWorld;
  layout.worldToSim = from.worldToSim;
  layout.simToCell = ToReal(dims) / from.simSize;
  layout.simCell = from.simSize / ToReal(dims);
  return grid;
}

std::unique_ptr<EGrid<double>> CopiedGrid(const EGrid<double>& grid, double factor, i32 mode) {
  if (factor == 1) {
    auto copy = std::make_unique<EGrid<double>>(grid);
    return copy->mData ? std::move(copy) : nullptr;
  }
  auto copy = EmptyScaled(grid, factor);
  return copy && Resample(grid, *copy, mode) ? std::move(copy) : nullptr;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
