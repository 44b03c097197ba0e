// The types of objects that a scene file may hold.
#pragma once
#include <string_view>
#include <vector>

#include "host/node.h"

namespace MELDO_GLOBAL::app {

/// A type of object with the keys that only it has.
struct ObjectType {
  std::string_view name;
  i32 type;  ///< of the host's node
  bool isShape;
  std::vector<std::string_view> keys;
  const host::ParameterTable& (*rows)() = nullptr;  ///< of the key "parameters"
};

const std::vector<ObjectType>& ObjectTypes();

}  // namespace MELDO_GLOBAL::app
