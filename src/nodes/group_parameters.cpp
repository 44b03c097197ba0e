#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const ParameterTable& GroupParameters() {
  static const ParameterTable table = {
      BoolRow(1000, "dialog_option", false, "kept with the scene for a dialog; nothing reads it"),
      LongRow(1001, "dialog_choice", 0, "", "kept with the scene for a dialog; nothing reads it"),
      BoolRow(1002, "dialog_details", true, "kept with the scene for a dialog; nothing reads it"),
      BoolRow(1005, "preset_children", true, "kept with the scene for a dialog; nothing reads it"),
      BoolRow(1006, "preset_option", false, "kept with the scene for a dialog; nothing reads it"),
  };
  return table;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
