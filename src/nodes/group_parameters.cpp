#include "framework/node_kind.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {
const ParameterTable& GroupParameters() {
  static const ParameterTable table = {
      BoolRow(1000, "dialog_option", false, "kept with the scene for a dialog; nothing reads it")
          .Kept(),
      LongRow(1001, "dialog_choice", 0, "", "kept with the scene for a dialog; nothing reads it")
          .Kept(),
      BoolRow(1002, "dialog_details", true, "kept with the scene for a dialog; nothing reads it")
          .Kept(),
      BoolRow(1005, "preset_children", true, "kept with the scene for a dialog; nothing reads it")
          .Kept(),
      BoolRow(1006, "preset_option", false, "kept with the scene for a dialog; nothing reads it")
          .Kept(),
  };
  return table;
}
}  // namespace

const NodeKind& GroupKind() {
  static const NodeKind kind = {
      .id = 1300150,
      .type = "group",
      .label = "Node Group",
      .className = "",
      .menu = {"Support"},
      .purpose =
          "keeps nodes together; named in a list it stands for its children, in a link for its one "
          "child",
      .example =
          {{},
           {R"({ "type": "group", "name": "forces", "children": [)",
            R"(  { "type": "force_swirling", "name": "curls" },)",
            R"(  { "type": "force_gravity", "name": "wind", "parameters": { "acceleration": [1, 0, 0] } } ] })",
            R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["forces"] } })"}},
      .rows = GroupParameters,
  };
  return kind;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
