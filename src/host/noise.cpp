#include "host/noise.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

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

/// The lattice's number `low` on an axis that repeats after `period`; 0 for one that doesn't.
constexpr i64 Wrapped(i64 low, i64 period) {
  return period > 0 ? (low % period + period) % period : low;
}

/// One octave of gradient noise at a point of N dimensions; the last axis has a period unless it is
/// 0.
template <int N>
double GradientAt(u32 seed, const std::array<double, N>& point, i64 period) {
  static constexpr auto kGradients = EdgeMiddles<N>();
  u32 cell[N][2];
  double fraction[N], fade[N];
  for (int axis = 0; axis < N; ++axis) {
    const double p = point[axis];
    if (!(std::abs(p) < 0x1p52)) return 0;
    const double below = std::floor(p);
    const i64 low = static_cast<i64>(below), wrap = axis == N - 1 ? period : 0;
    cell[axis][0] = static_cast<u32>(Wrapped(low, wrap));
    cell[axis][1] = static_cast<u32>(Wrapped(low + 1, wrap));
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

/// The nearest of the loose points: its squared distance, and the hash of its cube.
struct LoosePoint {
  double distanceSquared = std::numeric_limits<double>::max();
  u32 hash = 0;
};

/// The nearest loose point to a point of N dimensions among those of the cubes about it, the own
/// one first; cubes that are farther away than what was found are left out.
template <int N>
LoosePoint NearestAt(u32 seed, const std::array<double, N>& point, i64 period) {
  i64 low[N];
  double gap[N][3];  ///< squared, to the own cube and those on both sides
  for (int axis = 0; axis < N; ++axis) {
    if (!(std::abs(point[axis]) < 0x1p52)) return {0, 0};
    const double below = std::floor(point[axis]), up = point[axis] - below;
    low[axis] = static_cast<i64>(below);
    gap[axis][0] = 0;
    gap[axis][1] = up * up;
    gap[axis][2] = (1 - up) * (1 - up);
  }
  constexpr i64 kSide[3] = {0, -1, 1};
  constexpr int kCubes = N == 3 ? 27 : 81;
  LoosePoint nearest;
  for (int cube = 0; cube < kCubes; ++cube) {
    double least = 0;
    for (int axis = 0, rest = cube; axis < N; ++axis, rest /= 3) least += gap[axis][rest % 3];
    if (least >= nearest.distanceSquared) continue;
    u32 hash = seed;
    i64 at[N];
    for (int axis = 0, rest = cube; axis < N; ++axis, rest /= 3) {
      at[axis] = low[axis] + kSide[rest % 3];
      hash = Mix(hash, static_cast<u32>(Wrapped(at[axis], axis == 3 ? period : 0)));
    }
    u32 place = hash;
    double squared = 0;
    for (int axis = 0; axis < N; ++axis) {
      place = Mix(place, 0xA4093822u);
      const double d = static_cast<double>(at[axis]) + place * 0x1p-32 - point[axis];
      squared += d * d;
    }
    if (squared < nearest.distanceSquared) nearest = {squared, hash};
  }
  return nearest;
}

/// One octave of a type at a point of N dimensions.
template <int N>
double OctaveAt(NoiseType type, u32 seed, const std::array<double, N>& point, i64 period) {
  if (type != NoiseType::Cells && type != NoiseType::Voronoi)
    return GradientAt<N>(seed, point, period);
  const LoosePoint nearest = NearestAt<N>(seed, point, period);
  if (type == NoiseType::Voronoi) return std::min(std::sqrt(nearest.distanceSquared), 1.0);
  return Mix(nearest.hash, 0x299F31D0u) * 0x1p-32;
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
    sum += weight * (type == NoiseType::Turbulence ? std::abs(value)
                     : type == NoiseType::Ridged   ? ridge * ridge
                                                   : value);
    weights += weight;
  }
  return sum / weights;
}
}  // namespace

std::vector<Choice> NoiseChoices() {
  return {{static_cast<i32>(NoiseType::Gradient), "gradient"},
          {static_cast<i32>(NoiseType::Cells), "cells"},
          {static_cast<i32>(NoiseType::Turbulence), "turbulence"},
          {static_cast<i32>(NoiseType::Fbm), "fbm"},
          {static_cast<i32>(NoiseType::Ridged), "ridged"},
          {static_cast<i32>(NoiseType::Voronoi), "voronoi"}};
}

NoiseType NoiseTypeOf(i32 number) {
  for (const Choice& choice : NoiseChoices())
    if (choice.value == number) return static_cast<NoiseType>(number);
  return number == 30 ? NoiseType::Turbulence : NoiseType::Fbm;
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
        type, o.seed,
        {position.x * f + o.offset[0], position.y * f + o.offset[1], position.z * f + o.offset[2]},
        0);
  });
}

double Noise::Evaluate(NoiseType type, const Vec3d& position, double time, i32 octaves,
                       i32 repeat) const {
  return Combine(type, std::clamp(octaves, 1, kMaxOctaves), [&](i32 i, i64 frequency) {
    const Octave& o = mOctaves[i];
    const double f = static_cast<double>(frequency);
    return OctaveAt<4>(type, o.seed,
                       {position.x * f + o.offset[0], position.y * f + o.offset[1],
                        position.z * f + o.offset[2], time * f + o.offset[3]},
                       repeat * frequency);
  });
}

}  // namespace MELDO_GLOBAL::host
