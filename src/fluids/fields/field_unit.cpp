#include "fluids/fields/field_unit.h"

#include "framework/object_ids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

const char* UnitOfField(i32 typeId, i32 list) {
  switch (typeId) {
    case kTypeVolumeMesh:
    case kTypeSurfaceReconstructor:
    case kTypeMultiVolume:
    case kTypeLevelsetChannel: return "m";
    case kTypeTemperatureChannel: return "K";
    default: break;
  }
  return list == kListSolvers ? "m/s" : list == kListChannels ? "1" : "";
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
