// What an obstacle tag says of the mesh that has it.
#pragma once
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The parameters of an obstacle tag.
struct ObstacleSettings : host::ParameterHolder {
  bool baked = false;
  bool followsBake = false;
  double bakeOffset = 0;  ///< frames
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
