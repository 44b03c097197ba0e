// What the examples of constraints have in common.
#pragma once
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA::example {

/// A source of smoke that the constraint "where" limits.
inline constexpr std::string_view kLimitedEmitter =
    R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["pair"], "constraints": ["where"] } })";

/// A gas that carries the smoke and its own velocity.
inline constexpr std::string_view kCarryingGas =
    R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "box_size": [300, 400, 300] } },
    { "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas" } },
    { "type": "grid_advection", "name": "move gas", "parameters": { "target": "gas", "solver": "gas" } })";

/// A ball of smoke, with the line of the constraint "where" and, ahead of it, those that it needs.
inline KindExample Limited(std::string_view constraint, std::vector<std::string_view> needed = {}) {
  KindExample scene = {{kBall}, {kSmoke, kBallMesh, kBallVolume, kRate, kPair}};
  scene.nodes.insert(scene.nodes.end(), needed.begin(), needed.end());
  scene.nodes.insert(scene.nodes.end(), {constraint, kLimitedEmitter});
  return scene;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA::example
