// Ready-made simulations that the catalogue's menu offers beside the kinds of nodes.
#pragma once
#include <string_view>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A ready-made simulation: the scene file `name` in the folder of ready-made scenes.
struct Preset {
  i32 id;                  ///< of the menu entry
  std::string_view label;  ///< as the menu shows it
  std::string_view name;   ///< of the scene file, without its suffix
};

/// All presets, in the order of the menu.
const std::vector<Preset>& Presets();

}  // namespace MELDO_GLOBAL::MELDO_SULVA
