// What the examples of constraints have in common.
#pragma once
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA::example {

/// A source of smoke that the constraint "where" limits.
inline constexpr std::string_view kLimitedEmitter =
    R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["pair"], "constraints": ["where"] } })";

/// A ball of smoke, with the line of the constraint "where" and, ahead of it, those that it needs.
inline KindExample Limited(std::string_view constraint, std::vector<std::string_view> needed = {}) {
  KindExample scene = {{kBall}, {kSmoke, kBallMesh, kBallVolume, kRate, kPair}};
  scene.nodes.insert(scene.nodes.end(), needed.begin(), needed.end());
  scene.nodes.insert(scene.nodes.end(), {constraint, kLimitedEmitter});
  return scene;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA::example
