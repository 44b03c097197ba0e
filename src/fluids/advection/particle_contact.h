// Where particles meet solids.
#pragma once
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How far a place is from a solid, negative in it, simulation units.
struct SolidDistance {
  double distance = 0;
  Vec3d thinNormal{};  ///< of a part nearby that is too thin for distances at nodes; zero for none
  bool isOfThin = false;  ///< that part is the nearest
};

/// A straight way of a particle, in simulation units, between two times, which are shares of the
/// step.
struct Leg {
  Vec3d from, to;
  double begin = 0, end = 1;
};

/// How particles meet solids.
struct Touch {
  f32 radius = 0;        ///< how far off the surface they stop, simulation units
  bool isExact = false;  ///< asks for `entry` even where they only slide
};

/// Where a leg meets a solid.
struct ParticleContact {
  bool hit = false;
  /// Before the surface, on the side that the leg comes from: slid along it to the end of the leg,
  /// else `entry`.
  Vec3d position{};
  Vec3d normal{};    ///< out of the solid
  double depth = 0;  ///< how far in the solid the leg ends, less the radius; negative in it
  Vec3d entry{};     ///< where the leg met it
  double share = 0;  ///< of the leg, up to there; without `isExact` a lower bound where it slides
  bool slides = false;
  Vec3d motion{};     ///< of the surface there, per step
  double buried = 0;  ///< cells: how deep in the solid the leg begins
};

/// Trilinear samples of a distance change by at most one on each axis.
inline constexpr double kSteepestSample = 1.7320508075688772;

/// Whether two places differ by no more than rounding.
inline bool IsSamePlace(const Vec3d& a, const Vec3d& b) {
  return Length(a - b) <= 1e-12 * (1 + Length(b));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
