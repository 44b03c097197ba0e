#include "nodes/menu.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

const std::vector<MenuGroup>& Menu() {
  static const std::vector<MenuGroup> groups = {
      {"Support", {1300000, 1300150}},
      {"General", {1300066, 1028240, 1300010, 1300011}},
      {"Bodies", {1028106, 1300133, 1300034, 1300143, 1300144, 1300032, 1300033, 1300111}},
      {"Bodies/Forces", {1300055, 1300060, 1300015, 1300089, 1300115, 1300142, 1300161}},
      {"Bodies/Operators", {1300123, 1300035, 1300077, 1300100, 1300135, 1300136}},
      {"Dynamics", {1300002, 1300003, 1300137}},
      {"Dynamics/Operators", {1300146, 1300125}},
      {"Grids", {1300027, 1300030, 1300112, 1300028, 1300029}},
      {"Grids/Forces",
       {1300014, 1300016, 1300017, 13000141, 1300015, 1300089, 1300115, 1300142, 1300161}},
      {"Grids/Emitters", {1300005, 1300121, 1300024, 1300012}},
      {"Grids/Operators",
       {1300098, 1300041, 1300116, 1300042, 1300122, 1300001, 1300138, 1300056, 1300059, 1300063}},
      {"Particles", {1300036, 1300155, 1300163}},
      {"Particles/Properties", {1300037, 1300038, 13000391}},
      {"Particles/Forces",
       {1300055, 1300060, 1300157, 1300158, 1300159, 1300015, 1300089, 1300115, 1300142, 1300161}},
      {"Particles/Emitters", {1300006, 1300007, 1300026, 1300013}},
      {"Particles/Operators",
       {1300099, 1300126, 1300127, 1300040, 1300064, 1300065, 1300079, 1300054, 1300078, 1300008,
        1300138, 1300154, 1300160, 1300162, 1300166, 1300109, 1300110}},
      {"Constraints",
       {1300057, 1300018, 1300090, 1300148, 1300156, 1300022, 1300023, 1300021, 1300020, 1300149,
        1300091, 1300147, 1300019, 1300092, 1300093}},
  };
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
