// Objects that work inside a volume.
#pragma once
#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Base of the emitters that emit inside a volume.
class ObjectVolume : public iObject {
 public:
  using iObject::iObject;
  ObjectVolume() = default;

 protected:
  iVolume* mVolume = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
