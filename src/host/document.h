// A document: the clock, the node tree and the objects that a scene file describes.
#pragma once
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/node.h"

namespace MELDO_GLOBAL::host {

class Document {
 public:
  Document();
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  double fps = 25;      ///< frames per second
  i32 previewMin = 0;   ///< first frame of the preview range
  i32 previewMax = 90;  ///< last frame of the preview range, itself simulated
  i32 blurSample = 0;   ///< number of the motion-blur sample now rendered
  i32 blurSamples = 0;  ///< motion-blur samples per frame, 0 = none
  /// The document's folder: where a simulation writes what has no folder of its own; empty for
  /// none.
  std::string folder;
  std::string sceneFolder;  ///< where relative paths in parameters start; empty: working directory

  /// Time of the document in seconds.
  double Time() const { return mTime; }
  /// Moves to a frame: evaluates all keyed values and per-frame files.
  void SetFrame(i32 frame);
  /// `BaseNode::VisitCounters` of all nodes, in creation order.
  void VisitCounters(const std::function<void(u32&)>& visit);

  /// Makes a node under `parent` (null for a root). `T` is constructed as
  /// T(document, id, type, name, args...).
  template <class T = BaseNode, class... Args>
  T& Create(i32 type, std::string name, BaseNode* parent, Args&&... args) {
    auto node =
        std::make_unique<T>(*this, ++mLastId, type, std::move(name), std::forward<Args>(args)...);
    T& made = *node;
    Adopt(std::move(node), parent);
    return made;
  }
  /// Destroys a node with its children.
  void Remove(BaseNode& node);
  /// Moves a node, with its children, under another parent; nothing happens when that is the node
  /// itself or below it.
  void Reparent(BaseNode& node, BaseNode* parent);

  BaseNode* Find(NodeId id) const;
  /// The first node of a name, or at a path "server/child", in creation order; null if none.
  BaseNode* FindByName(std::string_view nameOrPath) const;
  const std::vector<BaseNode*>& Roots() const { return mRoots; }
  /// Calls f(node) for every node, in the order in which they were made.
  template <class F>
  void ForEachNode(F&& f) const {
    for (const auto& [id, node] : mNodes) f(*node);
  }

  /// A new identity, for tags.
  NodeId NextId() { return ++mLastId; }
  std::weak_ptr<Document*> Self() const { return mSelf; }

 private:
  void Adopt(std::unique_ptr<BaseNode> node, BaseNode* parent);
  void Detach(BaseNode& node);

  double mTime = 0;
  NodeId mLastId = 0;
  std::map<NodeId, std::unique_ptr<BaseNode>> mNodes;
  std::vector<BaseNode*> mRoots;
  std::shared_ptr<Document*> mSelf;
};

}  // namespace MELDO_GLOBAL::host
