#include "render/environment.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/document.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

/// The first entry of rising sums that is above `u` times the last one, and how far into it.
struct Step {
  std::size_t index = 0;
  double part = 0;
};
Step Pick(const double* sums, std::size_t count, double u) {
  const double wanted = u * sums[count - 1];
  const auto found = static_cast<std::size_t>(std::upper_bound(sums, sums + count, wanted) - sums);
  const std::size_t index = std::min(found, count - 1);
  const double before = index > 0 ? sums[index - 1] : 0, own = sums[index] - before;
  return {index, own > 0 ? std::clamp((wanted - before) / own, 0.0, 1.0) : 0.5};
}

}  // namespace

Environment::Environment(const RenderSettings& settings, const Document& document)
    : mTurn(settings.environmentTurn / 360) {
  if (settings.background) mGradient = *settings.background;
  if (!settings.environmentImage) return;
  const auto* image =
      dynamic_cast<const ImageObject*>(document.Find(settings.environmentImage->node));
  if (!image || image->picture.IsEmpty()) return;
  ImageSettings look;
  FillMembers(ImageParameters(), image, look);
  mPicture = &image->picture;
  mColour = look.colour;
  SumUp();
}

/// Turns to the right from the middle, and down from straight up, in parts of the picture.
Vec2D<double> Environment::PlaceOf(const Vec3d& direction) const {
  const double u = 0.5 + std::atan2(direction.x, -direction.z) / (2 * std::numbers::pi) - mTurn;
  return {u - std::floor(u), std::acos(std::clamp(direction.y, -1.0, 1.0)) / std::numbers::pi};
}

Vec3d Environment::Light(const Vec3d& direction) const {
  if (!mPicture) {
    const double elevation = std::asin(std::clamp(direction.y, -1.0, 1.0));
    return mGradient.Evaluate(0.5 + elevation / std::numbers::pi);
  }
  // The picture repeats beyond its edges, which is right to the sides alone.
  const Vec2D<double> place = PlaceOf(direction);
  const double half = 0.5 / mPicture->height;
  return mPicture->At(place.x, 1 - std::clamp(place.y, half, 1 - half)) * mColour;
}

/// Of a pixel: its mean light, as `Light` has it between pixels, times its solid angle. What light
/// leaks into a dark neighbour is found there too.
double Environment::Weight(i32 column, i32 row) const {
  constexpr double kShare[] = {0.125, 0.75, 0.125};
  const i32 width = mPicture->width, height = mPicture->height;
  double sum = 0;
  for (i32 j = -1; j <= 1; ++j)
    for (i32 i = -1; i <= 1; ++i) {
      const i32 y = std::clamp(row + j, 0, height - 1), x = (column + i + width) % width;
      const auto& p = mPicture->pixels[static_cast<std::size_t>(y) * width + x];
      const Vec3d light = Max(Vec3d{p.x, p.y, p.z} * mColour, Vec3d{});
      sum += kShare[j + 1] * kShare[i + 1] * (light.x + light.y + light.z);
    }
  return std::isfinite(sum) ? sum * std::sin(std::numbers::pi * (row + 0.5) / height) : 0;
}

void Environment::SumUp() {
  const i32 width = mPicture->width, height = mPicture->height;
  mSums.reserve(mPicture->pixels.size());
  double all = 0;
  for (i32 row = 0; row < height; ++row) {
    double sum = 0;
    for (i32 column = 0; column < width; ++column) mSums.push_back(sum += Weight(column, row));
    mRowSums.push_back(all += sum);
  }
  if (all > 0) return;
  mSums.clear();
  mRowSums.clear();
}

/// Pharr, Jakob, Humphreys, "Physically Based Rendering" (4th ed.), 12.5: constant within a pixel.
Environment::Aim Environment::Choose(const Vec2D<double>& u) const {
  const auto width = static_cast<std::size_t>(mPicture->width);
  const Step row = Pick(mRowSums.data(), mRowSums.size(), u.y);
  const Step column = Pick(mSums.data() + row.index * width, width, u.x);
  const double down =
      std::numbers::pi * (static_cast<double>(row.index) + row.part) / mPicture->height;
  const double across = (static_cast<double>(column.index) + column.part) / mPicture->width;
  const double turn = 2 * std::numbers::pi * (across - 0.5 + mTurn);
  const Vec3d direction{std::sin(down) * std::sin(turn), std::cos(down),
                        -std::sin(down) * std::cos(turn)};
  return {direction, DensityOf(direction)};
}

double Environment::DensityOf(const Vec3d& direction) const {
  const Vec2D<double> place = PlaceOf(direction);
  const i32 width = mPicture->width, height = mPicture->height;
  const i32 column = std::min(static_cast<i32>(place.x * width), width - 1);
  const i32 row = std::min(static_cast<i32>(place.y * height), height - 1);
  const double sine = std::sqrt(std::max(0.0, 1 - direction.y * direction.y));
  if (sine <= 0) return 0;
  const auto at = static_cast<std::size_t>(row) * width + column;
  const double chance = (mSums[at] - (column > 0 ? mSums[at - 1] : 0)) / mRowSums.back();
  return chance * width * height / (2 * std::numbers::pi * std::numbers::pi * sine);
}

}  // namespace MELDO_GLOBAL::app
