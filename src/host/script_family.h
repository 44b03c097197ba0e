// What the scripts of a kind of node are told.
#pragma once
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/types.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::host {

/// The names under which `main(op)` of a script reads what it is told in each call, in the order
/// in which callers tell it.
struct ScriptFamily {
  std::vector<std::string_view> variables;
};

/// What one of the names stands for in each call of a run. The whole numbers are cells and
/// particles.
using ScriptColumn =
    std::variant<std::span<const double>, std::span<const i32>, std::span<const Vec3d>>;

/// What `op` shows of the node and the simulation.
struct ScriptOp {
  std::string name;
  double time = 0;  ///< simulated, seconds
  double step = 0;  ///< length of the step, seconds
  i32 frame = 0;
};

/// Why a script doesn't compile or has stopped, and in which of its lines; 0 where none is to
/// blame.
struct ScriptError {
  std::string text;
  u32 line = 0;
  explicit operator bool() const { return !text.empty(); }
};

}  // namespace MELDO_GLOBAL::host
