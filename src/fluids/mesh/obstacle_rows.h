// The rows of an obstacle tag that hints speak of.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA::obstacle_row {

constexpr i32 kMass = 2002, kDensity = 2003, kMassMode = 2008, kStartDirection = 2023,
              kStartSpeed = 2024, kWakeOnContact = 2032, kWakeOnForce = 2034, kBaked = 2036,
              kFollowBake = 2040;

}  // namespace MELDO_GLOBAL::MELDO_SULVA::obstacle_row
