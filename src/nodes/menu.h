// The menu of the catalogue: which kinds stand together, and in which order.
#pragma once
#include <string_view>
#include <vector>

#include "host/types.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One group of the menu. A kind may stand in several groups.
struct MenuGroup {
  std::string_view name;     ///< "Grids", or "Grids/Forces" for a group inside another
  std::vector<i32> entries;  ///< ids of the kinds that name it, in the order of the catalogue
};

/// All groups, in the order in which they are shown.
const std::vector<MenuGroup>& Menu();

/// The names of the groups in which a kind stands.
std::vector<std::string_view> GroupsOf(i32 id);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
