// The catalogue: the one list of all node kinds, and what is generated from it.
#pragma once
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/node_kind.h"
#include "framework/sulva_scene.h"
#include "host/document.h"
#include "host/parameter.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// All kinds, ordered by id, and behind them those that were added.
const std::deque<NodeKind>& Catalogue();
/// Adds a kind that the program brings, before scenes are read: scene files, links, help and schema
/// know it from then on. Throws std::invalid_argument where its id, name or label is taken.
void AddKind(const NodeKind& kind);
/// The same with rows that no function of the kind gives.
void AddKind(const NodeKind& kind, host::ParameterTable rows);

/// By plug-in id, or null.
const NodeKind* FindKind(i32 id);
/// By short name, label or id as text, or null.
const NodeKind* FindKind(std::string_view name);

/// Whether a node is of the kind of a class.
template <class T>
bool IsA(const host::BaseNode& node) {
  return node.Type() == T::Kind().id;
}

/// The class's rows followed by those that every node has.
const host::ParameterTable& ParametersOf(const NodeKind& kind);
/// Rows of the obstacle tag.
const host::ParameterTable& ObstacleParameters();
/// The group, which has no core class.
const NodeKind& GroupKind();
/// The obstacle tag, told like a kind; it stands in no list and isn't part of `Catalogue`.
const NodeKind& ObstacleKind();

/// Makes a node of a kind with its creation defaults; an empty name takes the label.
host::BaseNode& CreateNode(host::Document& document, const NodeKind& kind, std::string name,
                           host::BaseNode* parent);
/// Gives a host object or node the obstacle tag with its defaults.
host::BaseNode& AddObstacleTag(host::BaseNode& node);

/// The factory that scenes get.
SulvaScene::ObjectFactory NodeFactory();

/// A new scene for a server node.
std::unique_ptr<SulvaScene> CreateScene(host::BaseNode& server);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
