// Where the nodes and parameters of a document stand in the scene file.
#pragma once
#include "scene/scene_advice.h"
#include "scene/scene_nodes.h"

namespace MELDO_GLOBAL::app {

/// Finds places for messages of what is found once the whole scene is read. Holds while the text's
/// values live.
class ScenePlaces {
 public:
  /// `given` are the parameters that the command line gave: their place is the option.
  ScenePlaces(const SceneContext& context, const std::vector<MadeNode>& made,
              const std::vector<GivenOption>& given)
      : mContext(context), mMade(made), mGiven(given) {}

  /// The place of a node, or of one of its parameters or keys ("enabled"), or of an entry of a
  /// list. What the file doesn't give has the place of what holds it.
  SourceLocation Of(const host::BaseNode& node, std::string_view key = {}, int entry = -1) const;
  /// Whether the placement of a node, or of one above it, has keys.
  bool IsMoved(const host::BaseNode& node) const;
  /// Whether its scale has, or that of one above it.
  bool IsScaled(const host::BaseNode& node) const;
  /// Whether the placement of any node has.
  bool IsAnyMoved() const;

 private:
  const SceneContext& mContext;
  const std::vector<MadeNode>& mMade;
  const std::vector<GivenOption>& mGiven;
};

}  // namespace MELDO_GLOBAL::app
