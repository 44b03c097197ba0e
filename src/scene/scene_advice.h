// What a reader of a valid scene should know all the same.
#pragma once
#include <string>
#include <vector>

#include "scene/scene_nodes.h"

namespace MELDO_GLOBAL::app {

/// A parameter that the command line gave, `--set NODE.PARAMETER=VALUE`.
struct GivenOption {
  const host::BaseNode* node = nullptr;
  const host::ParameterRow* row = nullptr;
  std::string option;  ///< as messages show it: long texts are cut
  Subject subject;
  std::string whole;  ///< all of it
};

/// Notes the parameters that are given but don't count in the mode that their node has, in one note
/// those that nothing reads, and warns of servers with very small cells or a reversed range. For
/// nodes that hold their final values.
void Advise(SceneContext& context, const std::vector<MadeNode>& nodes,
            const std::vector<GivenOption>& options);

/// Scales the cell sizes of a server when its simulation units have changed from
/// `oldUnits`: the cells keep their size in the scene. Returns what was done, for the user.
std::string FollowUnits(host::BaseNode& server, double oldUnits);

}  // namespace MELDO_GLOBAL::app
