// What a scene file says of its pictures.
#pragma once
#include <string>
#include <utility>
#include <vector>

#include "host/node.h"

namespace MELDO_GLOBAL::app {

/// The section "render" of a scene file. The nodes belong to the scene's document, where their
/// values move with its clock.
struct RenderSpec {
  i32 width = 640;
  i32 height = 360;
  std::vector<std::string> files;  ///< patterns of PNG and EXR files, relative to the output folder
  host::BaseNode* settings = nullptr;
  host::BaseNode* camera = nullptr;
  std::vector<host::BaseNode*> lights;
  std::vector<host::BaseNode*> media;      ///< materials that fill space
  std::vector<host::BaseNode*> particles;  ///< materials that draw particles
  std::vector<host::BaseNode*> shaders;    ///< that surfaces may link
  /// Which object has which surface; the others get `standard`.
  std::vector<std::pair<host::NodeId, host::BaseNode*>> surfaces;
  host::BaseNode* standard = nullptr;

  /// Whether a node is looked at for pictures alone, so that no simulation depends on it.
  bool Holds(const host::BaseNode& node) const;
};

}  // namespace MELDO_GLOBAL::app
