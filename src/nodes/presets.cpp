#include "nodes/presets.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

const std::vector<Preset>& Presets() {
  static const std::vector<Preset> presets = {
      {1300103, "Wind-Driven Smoke", "gas_windsmoke"},
      {1300104, "Temperature-Driven Smoke Rising", "gas_tempsmoke"},
      {1300105, "Fire", "preset_fire"},
  };
  return presets;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
