#include "io/preview_film.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace MELDO_GLOBAL::app {

namespace {

/// Weights of Mitchell's and Netravali's cubic filter (1988, B = C = 1/3) at four samples round a
/// fraction: neither blocky nor ringing.
std::array<float, 4> CubicWeights(float t) {
  const auto outer = [](float x) { return ((-7.0f * x + 36) * x * x - 60 * x + 32) / 18; };
  const auto inner = [](float x) { return ((21.0f * x - 36) * x * x + 16) / 18; };
  return {outer(1 + t), inner(t), inner(1 - t), outer(2 - t)};
}

/// Where a picture's samples come from along one axis.
struct Taps {
  std::array<i32, 4> index;
  std::array<float, 4> weight;
};
std::vector<Taps> MakeTaps(i32 pixels, i32 samples) {
  std::vector<Taps> taps(static_cast<std::size_t>(pixels));
  for (i32 p = 0; p < pixels; ++p) {
    const float at = (static_cast<float>(p) + 0.5f) * samples / pixels - 0.5f;
    const i32 base = static_cast<i32>(std::floor(at));
    taps[p].weight = CubicWeights(at - base);
    for (i32 i = 0; i < 4; ++i) taps[p].index[i] = std::clamp(base - 1 + i, 0, samples - 1);
  }
  return taps;
}

/// The columns of one row or file, `stride` apart, at a place between them.
ViewColumn Mixed(const ViewColumn* from, i32 stride, const Taps& taps) {
  ViewColumn sum{{}, {}, 0};
  for (int i = 0; i < 4; ++i) {
    const ViewColumn& c = from[std::size_t{1} * taps.index[i] * stride];
    for (int k = 0; k < 3; ++k) {
      sum.light[k] += taps.weight[i] * c.light[k];
      sum.glow[k] += taps.weight[i] * c.glow[k];
    }
    sum.through += taps.weight[i] * c.through;
  }
  return sum;
}

/// Film saturates: where a fire is deep or hot, its red comes to an end first.
Colour OnFilm(const ViewColumn& c, const Colour& background) {
  const float through = std::clamp(c.through, 0.0f, 1.0f);
  Colour pixel;
  for (int k = 0; k < 3; ++k) {
    pixel[k] = std::min(c.light[k] + through * background[k], 1.0f);
    if (c.glow[k] > 0) pixel[k] = 1 - (1 - pixel[k]) * std::exp(-c.glow[k]);
  }
  return pixel;
}

float Coded(float linear) {
  return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1 / 2.4f) - 0.055f;
}

/// The least light of each byte.
std::array<float, 256> MakeThresholds() {
  std::array<float, 256> least{};
  for (int byte = 1; byte < 256; ++byte) {
    const float code = (static_cast<float>(byte) - 0.5f) / 255;
    least[byte] = code <= 0.04045f ? code / 12.92f : std::pow((code + 0.055f) / 1.055f, 2.4f);
  }
  return least;
}

/// For light in steps, the byte that the step begins with.
constexpr i32 kSteps = 4096;
std::array<u8, kSteps + 1> MakeFirstBytes() {
  std::array<u8, kSteps + 1> first;
  for (i32 i = 0; i <= kSteps; ++i)
    first[i] = static_cast<u8>(Coded(static_cast<float>(i) / kSteps) * 255 + 0.5f);
  return first;
}

}  // namespace

std::vector<Colour> Expose(const std::vector<ViewColumn>& columns, i32 nu, i32 nv, i32 width,
                           i32 height) {
  const std::vector<Taps> tapsU = MakeTaps(width, nu), tapsV = MakeTaps(height, nv);
  std::vector<ViewColumn> wide;
  wide.reserve(std::size_t{1} * width * nv);
  for (i32 v = 0; v < nv; ++v)
    for (const Taps& taps : tapsU)
      wide.push_back(Mixed(&columns[std::size_t{1} * v * nu], 1, taps));

  std::vector<Colour> pixels;
  pixels.reserve(std::size_t{1} * width * height);
  for (i32 row = 0; row < height; ++row) {
    const float up = 1 - (static_cast<float>(row) + 0.5f) / height;
    const Colour background{0.006f + 0.008f * up, 0.007f + 0.010f * up, 0.010f + 0.016f * up};
    for (i32 column = 0; column < width; ++column)
      pixels.push_back(OnFilm(Mixed(&wide[column], width, tapsV[height - 1 - row]), background));
  }
  return pixels;
}

u8 ToByte(float linear) {
  static const std::array<float, 256> kLeast = MakeThresholds();
  static const std::array<u8, kSteps + 1> kFirst = MakeFirstBytes();
  if (!(linear > 0)) return 0;
  if (linear >= 1) return 255;
  u8 byte = kFirst[static_cast<i32>(linear * kSteps)];
  while (byte < 255 && linear >= kLeast[byte + 1]) ++byte;
  return byte;
}

}  // namespace MELDO_GLOBAL::app
