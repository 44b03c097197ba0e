// What is wrong with a plug-in.
#pragma once
#include <stdexcept>

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A shared library that can't be used; `what` is one sentence with its name.
class PluginError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
