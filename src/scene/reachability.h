// Who takes part in a simulation, found without running it: who works, who reads whom.
#pragma once
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/document.h"

namespace MELDO_GLOBAL::app {

/// What is known of a node before the first frame.
struct NodeReach {
  std::string whyIdle;                         ///< why it never works; empty where it may
  std::vector<const host::BaseNode*> readers;  ///< enabled nodes that name it, each once
  bool isUnread = false;  ///< it only serves those that read it, and there are none; or a field
                          ///< that only the statistics look at
  bool MayWork() const { return whyIdle.empty(); }
};

/// Something about a node that its author most likely doesn't mean.
struct Finding {
  const host::BaseNode* node = nullptr;
  std::string_view row;  ///< the parameter that it concerns; empty for the node itself
  int entry = -1;        ///< of a list, the entry; -1 for the whole of it
  std::string text;
  bool isNote = false;  ///< worth knowing, and no fault
};

/// The one pass over the nodes of a document's servers that checks, runs and graphs share. A node
/// never works where it is switched off, where a link that it can't do without is empty or leads to
/// a node that never works, or where nobody that works drives it (forces). Causes are found once: a
/// node that only waits for another one has no finding of its own.
class Reachability {
 public:
  Reachability() = default;
  /// `exported` are the nodes that exports read, `empty` the emitters whose shape gives nothing and
  /// the fluids that nothing comes into, each with a clause that says why.
  Reachability(const host::Document& document, const std::vector<host::BaseNode*>& servers,
               const std::set<host::NodeId>& exported,
               const std::map<host::NodeId, std::string>& empty);

  /// Null for what isn't a node of a server.
  const NodeReach* Of(host::NodeId node) const;
  const std::vector<Finding>& Findings() const { return mFindings; }
  /// The nodes that never work.
  std::set<host::NodeId> Idle() const;

 private:
  friend class ReachFinder;
  std::map<host::NodeId, NodeReach> mNodes;
  std::vector<Finding> mFindings;
};

}  // namespace MELDO_GLOBAL::app
