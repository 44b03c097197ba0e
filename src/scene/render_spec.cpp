#include "scene/render_spec.h"

#include <algorithm>

namespace MELDO_GLOBAL::app {

using host::BaseNode;

bool RenderSpec::Holds(const BaseNode& node) const {
  const auto isAmong = [&](const std::vector<BaseNode*>& nodes) {
    return std::find(nodes.begin(), nodes.end(), &node) != nodes.end();
  };
  return &node == settings || &node == standard || &node == camera || isAmong(lights) ||
         isAmong(media) || isAmong(particles) || isAmong(shaders) ||
         std::any_of(surfaces.begin(), surfaces.end(),
                     [&](const auto& surface) { return surface.second == &node; });
}

}  // namespace MELDO_GLOBAL::app
