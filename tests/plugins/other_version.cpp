// Made for an interface that isn't this one.
#include "plugin/sulva_plugin.h"

const sulva::plugin::Library* SulvaPlugin() {
  static const sulva::plugin::Library library = {
      .interfaceVersion = sulva::plugin::kInterfaceVersion + 1, .name = "other"};
  return &library;
}
