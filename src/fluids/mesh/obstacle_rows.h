// The rows of an obstacle tag that hints speak of.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA::obstacle_row {

constexpr i32 kDensity = 2003, kStartDirection = 2023, kStartSpeed = 2024;

}  // namespace MELDO_GLOBAL::MELDO_SULVA::obstacle_row
