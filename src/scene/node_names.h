// Names of nodes for statistics and messages.
#pragma once
#include <map>
#include <string>

#include "host/document.h"

namespace MELDO_GLOBAL::app {

/// Gives every node of a document the shortest name that no other node shares: its own, or a path
/// "server/child" as far up as it takes.
class NodeNames {
 public:
  /// Which nodes have to differ: all, or those of one scene list, as statistics name them.
  enum class Among { AllNodes, SameList };
  explicit NodeNames(const host::Document& document, Among among = Among::AllNodes);
  /// The name of a node, by identity; the empty text for one that wasn't there.
  const std::string& Of(host::NodeId node) const;

 private:
  std::map<host::NodeId, std::string> mNames;
};

}  // namespace MELDO_GLOBAL::app
