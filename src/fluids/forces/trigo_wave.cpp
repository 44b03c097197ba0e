#include "fluids/forces/trigo_wave.h"

#include <cmath>
#include <numbers>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;
constexpr Vec3d kX{1, 0, 0}, kY{0, 1, 0}, kZ{0, 0, 1};

/// The angle of a unit vector from y, towards -x.
double AngleFromY(const Vec3d& v) {
  const double angle = std::acos(std::clamp(Dot(v, kY), -1.0, 1.0));
  return Dot(v, kX) > 0 ? kTurn - angle : angle;
}

}  // namespace

TrigoWave::Crest TrigoWave::PlaneAt(double depth, const Vec3d& outwards) const {
  return {(travelled - depth) * kTurn * frequency, type == WaveType::Plane ? kY : outwards,
          kZ * amplitude};
}

TrigoWave::Crest TrigoWave::RingAt(const Vec3d& radius, double distance,
                                   const Vec3d& outwards) const {
  Crest crest{(travelled - distance) * kTurn * frequency, kZ * amplitude, outwards, true};
  const double phase = crest.phase;
  // Loops widen with the distance from the middle and close with the phase: at most so far that
  // what a ring runs over isn't thrown away.
  constexpr double kLeastPhase = 0.1;
  if (mode == WaveMode::Loop)
    crest.along = phase != 0
                      ? outwards / std::copysign(std::max(std::abs(phase), kLeastPhase), phase)
                      : Vec3d{};
  else if (mode == WaveMode::WideLoop)
    crest.along = phase > 0 ? radius / phase : Vec3d{};
  return crest;
}

bool TrigoWave::FindBlade(const Vec3d& outwards, Crest& crest) const {
  if (outwards == Vec3d{}) return false;
  const double angle = AngleFromY(Cross(kZ, outwards));
  crest = {(travelled - amplitude * angle) * kTurn * frequency, kZ * amplitude, outwards, true};
  return true;
}

bool TrigoWave::FindSpiral(double distance, const Vec3d& outwards, Crest& crest) const {
  constexpr double kFarthest = 100;
  const double u = distance / amplitude - 1;
  if (!(u > 0) || u >= kFarthest) return false;
  const Vec3d arm =
      Normalised(outwards * (u * u) + (kY * Dot(kX, outwards) - kX * Dot(kY, outwards)) * (4 * u));
  crest = {(travelled - amplitude * AngleFromY(arm)) * kTurn * frequency, kZ * amplitude,
           kY * Dot(kX, arm) - kX * Dot(kY, arm), true, (kFarthest - u) / (5 / u + 4 * u)};
  return true;
}

Vec3d TrigoWave::Displace(const Crest& crest) const {
  const double phase = crest.phase, c = crest.factor;
  const double wave = std::sin(phase), half = 0.5 * (wave + 1);
  const double alongBy = crest.isAcrossLong ? amplitude * c : c;
  const double acrossBy = crest.isAcrossLong ? c : amplitude * c;
  const Vec3d along = crest.along * alongBy;
  const Vec3d across = crest.across * acrossBy;
  const Vec3d sideways = crest.across * (crest.isAcrossLong ? 1.0 : amplitude);
  switch (mode) {
    case WaveMode::Forwards: return along * half;
    case WaveMode::Backwards: return along * (0.5 * wave - 0.5);
    case WaveMode::AcrossUp: return across * half;
    case WaveMode::AcrossDown: return across * (0.5 * wave - 0.5);
    case WaveMode::Along: return along * wave;
    case WaveMode::Roll: return sideways * (1 - half) + along * half;
    case WaveMode::CounterRoll: return sideways * (half - 1) + along * half;
    case WaveMode::Across: return across * wave;
    case WaveMode::Loop:
      return sideways * (0.5 - 0.5 * c * std::cos(2 * phase)) + along * std::cos(phase);
    case WaveMode::WideLoop:
      return sideways * (c * std::cos(phase)) + along * (0.5 - 0.5 * std::cos(2 * phase));
    case WaveMode::Circle: return sideways * (c * std::cos(phase)) + along * wave;
    default: return {};
  }
}

Vec3d TrigoWave::DisplacementAt(const Vec3d& q) const {
  if (!(std::abs(frequency) <= kHighestFrequency)) return {};
  const double depth = Dot(q, kZ);
  const Vec3d radius = q - kZ * depth;
  const double distance = Length(radius);
  const Vec3d outwards = Normalised(radius);
  Crest crest;
  switch (type) {
    case WaveType::Plane:
    case WaveType::PlaneOutwards: return Displace(PlaneAt(depth, outwards));
    case WaveType::Rings: return Displace(RingAt(radius, distance, outwards));
    case WaveType::Pinwheel: return FindBlade(outwards, crest) ? Displace(crest) : Vec3d{};
    case WaveType::Spiral: return FindSpiral(distance, outwards, crest) ? Displace(crest) : Vec3d{};
    default: return {};
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
