#include "fluids/rendering/multiple_scattering.h"

#include "fluids/rendering/diffusor.h"
#include "fluids/rendering/grid_copies.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

namespace {

constexpr i32 kSmallestLevel = 5;

}  // namespace

void SourcePyramid::Build(std::unique_ptr<EGrid<double>> source, double strength) {
  mLevels.clear();
  while (source && source->mData) {
    const GridLayout& layout = source->mLayout;
    const VecInt3D half{(layout.dims.x + 1) / 2, (layout.dims.y + 1) / 2, (layout.dims.z + 1) / 2};
    const bool isLast = std::min({half.x, half.y, half.z}) < kSmallestLevel;
    std::unique_ptr<EGrid<double>> next;
    if (!isLast) {
      EGrid<double> blurred(*source);
      if (blurred.mData) {
        Diffusor().Blur(blurred, strength, 1);
        next = std::make_unique<EGrid<double>>(half, layout.worldSize, layout.cellSize * 2,
                                               source->mKind, layout.worldOrigin);
        if (!next->mData || !Resample(blurred, *next, SAMPLE_LINEAR)) next.reset();
      }
    }
    const Vec3d cell = layout.worldCell;
    FieldView view(*source);
    mLevels.push_back({std::move(source), view, std::max({cell.x, cell.y, cell.z})});
    source = std::move(next);
  }
}

double SourcePyramid::At(const Vec3d& world, double width) const {
  if (mLevels.empty()) return 0;
  size_t upper = 0;
  while (upper < mLevels.size() && mLevels[upper].width < width) ++upper;
  if (upper == 0) return mLevels.front().view(world);
  if (upper == mLevels.size()) return mLevels.back().view(world);
  const Level &a = mLevels[upper - 1], &b = mLevels[upper];
  const double low = a.view(world), high = b.view(world);
  return low + (high - low) * ((width - a.width) / (b.width - a.width));
}

double MultipleScattering::WidthAt(double distance, double depth) const {
  if (!(depth > 0) || !(scattering > 0)) return 0;
  const double m = 2 * spread;
  const double loss = (absorption / scattering) * m * depth * depth / 12 + 1;
  return std::sqrt(distance * distance * depth * m / (loss * 24));
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
