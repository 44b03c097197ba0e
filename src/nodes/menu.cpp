#include "nodes/menu.h"

#include <algorithm>

#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

const std::vector<MenuGroup>& Menu() {
  static const std::vector<MenuGroup> groups = [] {
    constexpr std::string_view names[] = {"Support",
                                          "General",
                                          "Bodies",
                                          "Bodies/Forces",
                                          "Bodies/Operators",
                                          "Dynamics",
                                          "Dynamics/Operators",
                                          "Grids",
                                          "Grids/Forces",
                                          "Grids/Emitters",
                                          "Grids/Operators",
                                          "Particles",
                                          "Particles/Properties",
                                          "Particles/Forces",
                                          "Particles/Emitters",
                                          "Particles/Operators",
                                          "Constraints"};
    std::vector<MenuGroup> all;
    for (const std::string_view name : names) {
      MenuGroup group{name, {}};
      const auto add = [&](const NodeKind& kind) {
        if (std::find(kind.menu.begin(), kind.menu.end(), name) != kind.menu.end())
          group.entries.push_back(kind.id);
      };
      for (const NodeKind& kind : Catalogue()) add(kind);
      add(ObstacleKind());
      all.push_back(std::move(group));
    }
    return all;
  }();
  return groups;
}

std::vector<std::string_view> GroupsOf(i32 id) {
  std::vector<std::string_view> names;
  for (const MenuGroup& group : Menu())
    if (std::find(group.entries.begin(), group.entries.end(), id) != group.entries.end())
      names.push_back(group.name);
  return names;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
