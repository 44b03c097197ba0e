#include "host/noise.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace MELDO_GLOBAL::host {

namespace {
// Single octaves reach 1.04 in space; in time they are scaled to the same standard deviation.
constexpr double kScale3 = 0.965, kScale4 = 0.888;

constexpr u32 Mix(u32 hash, u32 value) {
  hash = (hash ^ value) * 0x9E3779B1u;
  hash ^= hash >> 15;
  hash *= 0x85EBCA77u;
  return hash ^ hash >> 13;
}

/// The vectors with one zero among N components and 1 or -1 in the others.
template <int N>
constexpr auto EdgeMiddles() {
  std::array<std::array<double, N>, N*(1 << (N - 1))> gradients{};
  int index = 0;
  for (int zero = 0; zero < N; ++zero)
    for (int signs = 0; signs < 1 << (N - 1); ++signs, ++index)
      for (int axis = 0, bit = 0; axis < N; ++axis)
        gradients[index][axis] = axis == zero ? 0 : (signs >> bit++ & 1) ? 1 : -1;
  return gradients;
}

constexpr double Fade(double t) { return t * t * t * (t * (t * 6 - 15) + 10); }
constexpr double Mixed(double a, double b, double t) { return a + (b - a) * t; }

/// One octave at a point of N dimensions; the last axis has a period unless it is 0.
template <int N>
double OctaveAt(u32 seed, const std::array<double, N>& point, i64 period) {
  static constexpr auto kGradients = EdgeMiddles<N>();
  u32 cell[N][2];
  double fraction[N], fade[N];
  for (int axis = 0; axis < N; ++axis) {
    const double p = point[axis];
    if (!(std::abs(p) < 0x1p52)) return 0;
    const double below = std::floor(p);
    i64 low = static_cast<i64>(below), high = low + 1;
    if (axis == N - 1 && period > 0) {
      low = (low % period + period) % period;
      high = (high % period + period) % period;
    }
    cell[axis][0] = static_cast<u32>(low), cell[axis][1] = static_cast<u32>(high);
    fraction[axis] = p - below;
    fade[axis] = Fade(fraction[axis]);
  }
  // Hashes branch axis by axis, so that corners share the work; bit a of an index is axis a's side.
  u32 hash[1 << N] = {seed};
  for (int axis = 0; axis < N; ++axis)
    for (int corner = (1 << axis) - 1; corner >= 0; --corner) {
      const u32 before = hash[corner];
      hash[corner] = Mix(before, cell[axis][0]);
      hash[corner + (1 << axis)] = Mix(before, cell[axis][1]);
    }
  double value[1 << N];
  for (int corner = 0; corner < 1 << N; ++corner) {
    const auto& gradient = kGradients[static_cast<u64>(hash[corner]) * kGradients.size() >> 32];
    double dot = 0;
    for (int axis = 0; axis < N; ++axis)
      dot += gradient[axis] * (fraction[axis] - (corner >> axis & 1));
    value[corner] = dot;
  }
  for (int axis = N - 1; axis >= 0; --axis)
    for (int corner = 0; corner < 1 << axis; ++corner)
      value[corner] = Mixed(value[corner], value[corner + (1 << axis)], fade[axis]);
  return value[0] * (N == 3 ? kScale3 : kScale4);
}

/// Puts octaves together. `octave(i, frequency)` gives the value of one.
template <class F>
double Combine(NoiseType type, i32 octaves, const F& octave) {
  if (type == NoiseType::Gradient) return octave(0, 1);
  double sum = 0, weights = 0, weight = 1;
  i64 frequency = 1;
  for (i32 i = 0; i < octaves; ++i, weight *= 0.5, frequency *= 2) {
    const double value = octave(i, frequency);
    const double ridge = std::max(1 - std::abs(value), 0.0);
    sum += weight * (type == NoiseType::Fbm          ? value
                     : type == NoiseType::Turbulence ? std::abs(value)
                                                     : ridge * ridge);
    weights += weight;
  }
  return sum / weights;
}
}  // namespace

std::vector<Choice> NoiseChoices() {
  return {{static_cast<i32>(NoiseType::Gradient), "gradient"},
          {static_cast<i32>(NoiseType::Turbulence), "turbulence"},
          {static_cast<i32>(NoiseType::Fbm), "fbm"},
          {static_cast<i32>(NoiseType::Ridged), "ridged"}};
}

NoiseType NoiseTypeOf(i32 number) {
  for (const Choice& choice : NoiseChoices())
    if (choice.value == number) return static_cast<NoiseType>(number);
  return NoiseType::Fbm;
}

Noise::Noise(u32 seed) {
  u32 hash = Mix(Mix(0x243F6A88u, seed), 1);
  for (Octave& octave : mOctaves) {
    octave.seed = hash = Mix(hash, 0x13198A2Eu);
    for (double& offset : octave.offset) {
      hash = Mix(hash, 0x03707344u);
      offset = hash * 0x1p-24;
    }
  }
}

double Noise::Evaluate(NoiseType type, const Vec3d& position, i32 octaves) const {
  return Combine(type, std::clamp(octaves, 1, kMaxOctaves), [&](i32 i, i64 frequency) {
    const Octave& o = mOctaves[i];
    const double f = static_cast<double>(frequency);
    return OctaveAt<3>(
        o.seed,
        {position.x * f + o.offset[0], position.y * f + o.offset[1], position.z * f + o.offset[2]},
        0);
  });
}

double Noise::Evaluate(NoiseType type, const Vec3d& position, double time, i32 octaves,
                       i32 repeat) const {
  return Combine(type, std::clamp(octaves, 1, kMaxOctaves), [&](i32 i, i64 frequency) {
    const Octave& o = mOctaves[i];
    const double f = static_cast<double>(frequency);
    return OctaveAt<4>(o.seed,
                       {position.x * f + o.offset[0], position.y * f + o.offset[1],
                        position.z * f + o.offset[2], time * f + o.offset[3]},
                       repeat * frequency);
  });
}

}  // namespace MELDO_GLOBAL::host
