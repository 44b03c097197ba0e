// Parameters of the nodes that pictures are made of.
#pragma once
#include "host/node.h"

namespace MELDO_GLOBAL::app {

/// Reads values of a node with a table; what the node doesn't hold comes from the table's row.
class ParameterReader {
 public:
  explicit ParameterReader(const host::BaseNode& node) : mNode(node) {}

  double Real(i32 id) const { return As<double>(id); }
  i32 Long(i32 id) const { return As<i32>(id); }
  bool Bool(i32 id) const { return As<i32>(id) != 0; }
  Vec3d Vector(i32 id) const { return As<Vec3d>(id); }
  host::Gradient Gradient(i32 id) const { return As<host::Gradient>(id); }
  host::Link Link(i32 id) const { return As<host::Link>(id); }
  host::InExcludeData Links(i32 id) const { return As<host::InExcludeData>(id); }

 private:
  template <class T>
  T As(i32 id) const {
    if (const host::Value* value = mNode.Get(id))
      if (const T* held = std::get_if<T>(value)) return *held;
    const host::ParameterRow* row = mNode.Table() ? FindRow(*mNode.Table(), id) : nullptr;
    const T* fallback = row ? std::get_if<T>(&row->creation) : nullptr;
    return fallback ? *fallback : T{};
  }

  const host::BaseNode& mNode;
};

}  // namespace MELDO_GLOBAL::app
