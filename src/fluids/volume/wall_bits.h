// The sides of a domain.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Sides of the domain that are closed walls. The y bits run the other way round from x and z.
enum WallBit : u8 {
  kWallLowX = 1,
  kWallHighX = 2,
  kWallHighY = 4,
  kWallLowY = 8,
  kWallLowZ = 16,
  kWallHighZ = 32,
  kWallsAll = 63,
};
constexpr u8 kLowWall[3] = {kWallLowX, kWallLowY, kWallLowZ};
constexpr u8 kHighWall[3] = {kWallHighX, kWallHighY, kWallHighZ};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
