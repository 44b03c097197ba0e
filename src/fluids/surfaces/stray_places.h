// Particles that are so far off that no grid reaches round them and the others.
#pragma once
#include <vector>

#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Whether a grid of so many samples round so many particles is nearly all empty space, beyond what
/// a spray of drops makes.
inline bool IsMostlySpace(double samples, double particles) {
  constexpr double kMany = 1e8, kManyEach = 1e5;
  return samples > kMany && samples > kManyEach * particles;
}

/// Takes the places (simulation units) that a gap of more than a thousand cells parts from most of
/// them, along some axis, out of the count: their x is no number then. How many these are.
i64 LeaveOutStrays(std::vector<Vec3d>& places, double cellSize);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
