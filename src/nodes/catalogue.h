// The catalogue: the one list of all node kinds, and what is generated from it.
#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/scene.h"
#include "host/document.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One kind of node.
struct NodeKind {
  i32 id;                       ///< plug-in id: the type of the host node
  std::string_view type;        ///< short name used by scene files
  std::string_view label;       ///< name shown, and given to new nodes
  std::string_view className;   ///< core class
  i32 typeId;                   ///< `GetTypeId`
  i32 list;                     ///< scene list; 0 for nodes without a core object
  u32 categories;               ///< `GetCategories`; the fixed part where the class computes it
  std::string_view flags;       ///< S sequential, I iterative, E prepares each pass, V runs on
                                ///< refresh, R resets on change; a star: computed
  std::vector<i32> stages;      ///< stages of the class
  std::optional<i32> priority;  ///< base priority inside a stage
  const host::ParameterTable& (*rows)();                    ///< the class's own rows
  std::unique_ptr<iBase> (*make)(host::BaseNode*, Scene*);  ///< null without a core object
};

/// All kinds, ordered by id.
const std::vector<NodeKind>& Catalogue();

/// By plug-in id, or null.
const NodeKind* FindKind(i32 id);
/// By short name, label or id as text, or null.
const NodeKind* FindKind(std::string_view name);

/// The class's rows followed by those that every node has (2502, 2604, 10001, 10002, 10003).
const host::ParameterTable& ParametersOf(const NodeKind& kind);
/// Rows of the obstacle tag.
const host::ParameterTable& ObstacleParameters();
/// Rows of the group, which has no core class.
const host::ParameterTable& GroupParameters();

/// Makes a node of a kind with its creation defaults; an empty name takes the label.
host::BaseNode& CreateNode(host::Document& document, const NodeKind& kind, std::string name,
                           host::BaseNode* parent);
/// Gives a host object or node the obstacle tag with its defaults.
host::BaseNode& AddObstacleTag(host::BaseNode& node);

/// The factory that scenes get.
Scene::ObjectFactory NodeFactory();

/// A new scene for a server node.
std::unique_ptr<Scene> CreateScene(host::BaseNode& server);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
