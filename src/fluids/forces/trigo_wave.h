// Waves of sines: how far each point of a space is displaced.
#pragma once
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What runs through space: plane crests along z, rings and spirals round it, a wheel of blades.
enum class WaveType : i32 { Plane = 0, PlaneOutwards = 1, Rings = 2, Pinwheel = 3, Spiral = 4 };

/// Which way a wave displaces: along the direction in which it runs, or across it.
enum class WaveMode : i32 {
  Forwards = 0,
  Backwards = 1,
  AcrossUp = 2,
  AcrossDown = 3,
  Along = 4,
  Roll = 5,
  CounterRoll = 6,
  Across = 7,
  Loop = 8,
  WideLoop = 9,
  Circle = 10,
};

/// A wave about the origin. Lengths and times in any units that agree.
struct TrigoWave {
  static constexpr double kHighestFrequency = 1000;  ///< finer ones displace nothing

  double amplitude = 0;
  double frequency = 1;  ///< 1 / wave length
  double travelled = 0;  ///< how far the crests have come
  WaveType type = WaveType::Plane;
  WaveMode mode = WaveMode::Forwards;

  Vec3d DisplacementAt(const Vec3d& q) const;

 private:
  /// A wave at a point: its phase, the directions across and along it, and their factors.
  struct Crest {
    double phase = 0;
    Vec3d across{}, along{};
    bool isAcrossLong = false;  ///< `across` has the length of the amplitude, or else `along`
    double factor = 1;
  };
  Crest PlaneAt(double depth, const Vec3d& outwards) const;
  Crest RingAt(const Vec3d& radius, double distance, const Vec3d& outwards) const;
  bool FindBlade(const Vec3d& outwards, Crest& crest) const;
  bool FindSpiral(double distance, const Vec3d& outwards, Crest& crest) const;
  Vec3d Displace(const Crest& crest) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
