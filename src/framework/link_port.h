// What a list of links is handed to.
#pragma once
#include <span>

#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

class LinkPort {
 public:
  virtual ~LinkPort() = default;
  /// Takes what the links lead to; no targets clear it.
  virtual void Connect(std::span<const host::LinkTarget> targets) = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
