#include "io/fire_light.h"

#include <cmath>

#include "grids/for_each_cell.h"

namespace MELDO_GLOBAL::app {

namespace {

constexpr i32 kMostCells = 40;  ///< coarse ones on an axis

struct RampKnot {
  float t;
  Colour light;
};
constexpr RampKnot kRamp[] = {
    {0.00f, {0.00f, 0.000f, 0.000f}}, {0.12f, {0.20f, 0.009f, 0.000f}},
    {0.30f, {0.85f, 0.085f, 0.004f}}, {0.50f, {1.80f, 0.340f, 0.016f}},
    {0.70f, {2.90f, 0.850f, 0.070f}}, {0.85f, {3.80f, 1.450f, 0.220f}},
    {1.00f, {4.80f, 2.400f, 0.650f}},
};

}  // namespace

Colour FireColour(float t) {
  const RampKnot* high = kRamp + 1;
  while (high != std::end(kRamp) - 1 && t > high->t) ++high;
  const RampKnot& low = high[-1];
  const float share = std::clamp((t - low.t) / (high->t - low.t), 0.0f, 1.0f);
  Colour light;
  for (int c = 0; c < 3; ++c) light[c] = low.light[c] + share * (high->light[c] - low.light[c]);
  return light;
}

FireLight::FireLight(const VecInt3D& cells) {
  const i32 most = std::max({cells.x, cells.y, cells.z});
  mCoarse = (most + kMostCells - 1) / kMostCells;
  for (int a = 0; a < 3; ++a) mDims[a] = (cells[a] + mCoarse - 1) / mCoarse;
  mLight.resize(std::size_t{1} * mDims.x * mDims.y * mDims.z);
}

void FireLight::Add(const VecInt3D& cell, const Colour& light) {
  Colour& sum = mLight[Index(cell.x / mCoarse, cell.y / mCoarse, cell.z / mCoarse)];
  for (int c = 0; c < 3; ++c) sum[c] += light[c];
  mIsDark = false;
}

void FireLight::Blur(i32 step) {
  for (int axis = 0; axis < 3; ++axis) {
    const std::vector<Colour> from = mBlurred;
    ForEachCell({{0, 0, 0}, mDims}, [&](i32 x, i32 y, i32 z) {
      VecInt3D low{x, y, z}, high = low;
      low[axis] -= step;
      high[axis] += step;
      // What leaves the box is lost.
      const Colour none{};
      const Colour& a = low[axis] >= 0 ? from[Index(low.x, low.y, low.z)] : none;
      const Colour& b = high[axis] < mDims[axis] ? from[Index(high.x, high.y, high.z)] : none;
      Colour& mid = mBlurred[Index(x, y, z)];
      for (int c = 0; c < 3; ++c) mid[c] = 0.5f * mid[c] + 0.25f * (a[c] + b[c]);
    });
  }
}

void FireLight::Spread() {
  if (mIsDark) return;
  // Gaussians of doubling widths, each weighed by its width, add up to 1 / r^2.
  mBlurred = mLight;
  std::fill(mLight.begin(), mLight.end(), Colour{});
  const float unit = 1.0f / static_cast<float>(mCoarse * mCoarse);
  for (i32 step = 1; step < kMostCells; step *= 2) {
    Blur(step);
    const float weight = unit * static_cast<float>(step);
    for (std::size_t i = 0; i < mLight.size(); ++i)
      for (int c = 0; c < 3; ++c) mLight[i][c] += weight * mBlurred[i][c];
  }
}

Colour FireLight::At(const VecInt3D& cell) const {
  i32 low[3], high[3];
  float share[3];
  for (int a = 0; a < 3; ++a) {
    const float at = (static_cast<float>(cell[a]) + 0.5f) / static_cast<float>(mCoarse) - 0.5f;
    const i32 base = static_cast<i32>(std::floor(at));
    share[a] = at - static_cast<float>(base);
    low[a] = std::clamp(base, 0, mDims[a] - 1);
    high[a] = std::clamp(base + 1, 0, mDims[a] - 1);
  }
  Colour light{};
  for (int corner = 0; corner < 8; ++corner) {
    float weight = 1;
    i32 at[3];
    for (int a = 0; a < 3; ++a) {
      const bool up = corner >> a & 1;
      weight *= up ? share[a] : 1 - share[a];
      at[a] = up ? high[a] : low[a];
    }
    const Colour& sample = mLight[Index(at[0], at[1], at[2])];
    for (int c = 0; c < 3; ++c) light[c] += weight * sample[c];
  }
  return light;
}

}  // namespace MELDO_GLOBAL::app
