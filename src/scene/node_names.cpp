#include "scene/node_names.h"

#include <utility>
#include <vector>

#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::app {

namespace {

void Collect(const std::vector<host::BaseNode*>& nodes, std::vector<const host::BaseNode*>& out) {
  for (const host::BaseNode* node : nodes) {
    out.push_back(node);
    Collect(node->Children(), out);
  }
}

/// The last `levels` names of a node's path.
std::string PathOf(const host::BaseNode& node, int levels) {
  std::string path = node.Name();
  for (const host::BaseNode* n = node.Parent(); n && --levels > 0; n = n->Parent())
    path = n->Name() + "/" + path;
  return path;
}

/// The scene list of a node's kind; 0 for what has none.
i32 ListOf(const host::BaseNode& node) {
  const MELDO_SULVA::NodeKind* kind = MELDO_SULVA::FindKind(node.Type());
  return kind ? kind->list : 0;
}

}  // namespace

NodeNames::NodeNames(const host::Document& document, Among among) {
  std::vector<const host::BaseNode*> open;
  Collect(document.Roots(), open);
  // Names that meet get one level more in each round; a tree is never deeper than its nodes.
  const std::size_t most = open.size();
  for (std::size_t levels = 1; !open.empty() && levels <= most + 1; ++levels) {
    const auto keyOf = [&](const host::BaseNode& node) {
      return std::pair(among == Among::SameList ? ListOf(node) : 0,
                       PathOf(node, static_cast<int>(levels)));
    };
    std::map<std::pair<i32, std::string>, int> uses;
    for (const host::BaseNode* node : open) ++uses[keyOf(*node)];
    std::vector<const host::BaseNode*> left;
    for (const host::BaseNode* node : open) {
      const auto key = keyOf(*node);
      if (uses[key] > 1 && levels <= most) {
        left.push_back(node);
      } else {
        mNames[node->Id()] = key.second;
      }
    }
    open = std::move(left);
  }
}

const std::string& NodeNames::Of(host::NodeId node) const {
  static const std::string none;
  const auto found = mNames.find(node);
  return found == mNames.end() ? none : found->second;
}

}  // namespace MELDO_GLOBAL::app
