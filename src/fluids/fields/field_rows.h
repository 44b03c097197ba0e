// The parameters of fields that others speak of.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA::field_row {

enum Row : i32 {
  kClearEachStep = 1001,
  kKeepPrevious = 1002,
  kValueMin = 1050,
  kValueMax = 1051,
  kInitialValue = 1052,
  kTextureCoordinates = 1053,
  kFuelIgnition = 2000,
  kFireIgnition = 2000,
  kBurnTime = 2001,
  kFadeTime = 2002,
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA::field_row
