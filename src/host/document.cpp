#include "host/document.h"

#include <algorithm>

namespace MELDO_GLOBAL::host {

Document::Document() : mSelf(std::make_shared<Document*>(this)) {}
Document::~Document() { mSelf.reset(); }

void Document::SetFrame(i32 frame) {
  mTime = frame / fps;
  for (const auto& [id, node] : mNodes) node->Animate(frame);
}

void Document::VisitCounters(const std::function<void(u32&)>& visit) {
  for (const auto& [id, node] : mNodes) node->VisitCounters(visit);
}

void Document::Adopt(std::unique_ptr<BaseNode> node, BaseNode* parent) {
  node->mParent = parent;
  (parent ? parent->mChildren : mRoots).push_back(node.get());
  const NodeId id = node->Id();
  mNodes[id] = std::move(node);
}

void Document::Detach(BaseNode& node) {
  auto& siblings = node.mParent ? node.mParent->mChildren : mRoots;
  siblings.erase(std::remove(siblings.begin(), siblings.end(), &node), siblings.end());
}

void Document::Remove(BaseNode& node) {
  while (!node.mChildren.empty()) Remove(*node.mChildren.back());
  Detach(node);
  mNodes.erase(node.Id());
}

void Document::Reparent(BaseNode& node, BaseNode* parent) {
  if (parent == &node || (parent && parent->HasAncestor(&node))) return;
  Detach(node);
  node.mParent = parent;
  (parent ? parent->mChildren : mRoots).push_back(&node);
}

BaseNode* Document::Find(NodeId id) const {
  const auto found = mNodes.find(id);
  return found == mNodes.end() ? nullptr : found->second.get();
}

BaseNode* Document::FindByName(std::string_view nameOrPath) const {
  const auto matches = [&](const BaseNode& node) {
    // Compare the path backwards, one name at a time, so that "child" and "server/child" both hit.
    std::string_view rest = nameOrPath;
    for (const BaseNode* n = &node; n; n = n->Parent()) {
      const std::string_view name = n->Name();
      if (rest == name) return true;
      if (rest.size() <= name.size() || !rest.ends_with(name) ||
          rest[rest.size() - name.size() - 1] != '/')
        return false;
      rest.remove_suffix(name.size() + 1);
    }
    return false;
  };
  for (const auto& [id, node] : mNodes)
    if (matches(*node)) return node.get();
  return nullptr;
}

// ---- what nodes take from their document ------------------------------------------------------

BaseNode& BaseNode::AddTag(i32 type) {
  if (BaseNode* tag = Tag(type)) return *tag;
  mTags.push_back(std::make_unique<BaseNode>(mDocument, mDocument.NextId(), type, mName));
  Touch();
  return *mTags.back();
}

BaseLink::BaseLink(const BaseNode* node) {
  if (!node) return;
  mDocument = node->GetDocument().Self();
  mNode = node->Id();
}

BaseNode* BaseLink::Resolve(i32 instanceOf, const Document* document) const {
  const auto owner = mDocument.lock();
  if (!owner || (document && *owner != document)) return nullptr;
  BaseNode* node = (*owner)->Find(mNode);
  return node && (instanceOf == 0 || node->IsInstanceOf(instanceOf)) ? node : nullptr;
}

}  // namespace MELDO_GLOBAL::host
