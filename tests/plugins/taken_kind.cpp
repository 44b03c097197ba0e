// Brings a kind of its own, and one whose name the program has.
#include "plugin/sulva_plugin.h"

using namespace sulva::plugin;

namespace {
struct Still : Force {
  Vector Evaluate(const Point&) const override { return {}; }
};
const Kind kKinds[] = {
    {.id = 10000011,
     .type = "force_still",
     .label = "DF::Still",
     .makeForce = []() -> Force* { return new Still; }},
    {.id = 10000012,
     .type = "force_gravity",
     .label = "DF::Pull",
     .makeForce = []() -> Force* { return new Still; }},
};
}  // namespace

const Library* SulvaPlugin() {
  static const Library library = {.name = "taken", .kinds = kKinds, .kindCount = 2};
  return &library;
}
