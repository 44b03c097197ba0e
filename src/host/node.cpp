#include "host/node.h"

#include <algorithm>
#include <cmath>

namespace MELDO_GLOBAL::host {

namespace {
Value Mix(const Value& a, const Value& b, double t) {
  if (const double* x = std::get_if<double>(&a)) return *x + (std::get<double>(b) - *x) * t;
  if (const i32* x = std::get_if<i32>(&a))
    return static_cast<i32>(std::floor(*x + (double(std::get<i32>(b)) - *x) * t));
  if (const Vec3d* x = std::get_if<Vec3d>(&a)) return *x + (std::get<Vec3d>(b) - *x) * t;
  return a;
}
}  // namespace

Value Track::Evaluate(double frame) const {
  if (keys.empty()) return {};
  const auto above = std::upper_bound(keys.begin(), keys.end(), frame,
                                      [](double f, const Key& k) { return f < k.frame; });
  if (above == keys.begin()) return keys.front().value;
  if (above == keys.end()) return keys.back().value;
  const Key &a = above[-1], &b = *above;
  double t = (frame - a.frame) / (b.frame - a.frame);
  if (interpolation == Interpolation::Step) t = 0;
  if (interpolation == Interpolation::Smooth) t = t * t * (3 - 2 * t);
  return Mix(a.value, b.value, t);
}

BaseNode::BaseNode(Document& document, NodeId id, i32 type, std::string name)
    : mDocument(document), mId(id), mType(type), mName(std::move(name)) {}

BaseNode::~BaseNode() = default;

bool BaseNode::IsInstanceOf(i32 type) const {
  return type == mType ||
         std::find(mInstanceOf.begin(), mInstanceOf.end(), type) != mInstanceOf.end();
}

bool BaseNode::HasAncestor(const BaseNode* node) const {
  for (const BaseNode* p = mParent; p; p = p->mParent)
    if (p == node) return true;
  return false;
}

bool BaseNode::IsEnabled() const {
  for (const BaseNode* n = this; n; n = n->mParent)
    if (!n->mEnabled) return false;
  return true;
}

void BaseNode::SetPlacement(const Vec3d& position, const Vec3d& rotationDegrees,
                            const Vec3d& scale) {
  mPosition = position;
  mRotation = rotationDegrees;
  mScale = scale;
  UpdateLocal();
}

void BaseNode::UpdateLocal() { SetLocalMatrix(Placement(mPosition, mRotation, mScale)); }

void BaseNode::SetLocalMatrix(const Matrix& m) {
  if (m == mLocal) return;
  mLocal = m;
  Touch();
}

Matrix BaseNode::GlobalMatrix() const {
  return mParent ? mParent->GlobalMatrix() * mLocal : mLocal;
}

const Value* BaseNode::Get(i32 id) const {
  const auto found = mValues.find(id);
  return found == mValues.end() ? nullptr : &found->second;
}

const TextOrigin* BaseNode::OriginOf(i32 id) const {
  const auto found = mOrigins.find(id);
  return found == mOrigins.end() ? nullptr : &found->second;
}

void BaseNode::Set(i32 id, Value value) {
  const auto [entry, isNew] = mValues.try_emplace(id);
  if (!isNew && entry->second == value) return;
  entry->second = std::move(value);
  Touch();
}

void BaseNode::Erase(i32 id) {
  if (mValues.erase(id)) Touch();
}

void BaseNode::SetTable(const ParameterTable* table) {
  mTable = table;
  for (const ParameterRow& row : *table)
    if (!std::holds_alternative<std::monostate>(row.creation)) Set(row.id, row.creation);
}

void BaseNode::VisitCounters(const std::function<void(u32&)>& visit) {
  visit(mDirty);
  for (const auto& tag : mTags) tag->VisitCounters(visit);
}

BaseNode* BaseNode::Tag(i32 type) const {
  for (const auto& tag : mTags)
    if (tag->Type() == type) return tag.get();
  return nullptr;
}

void BaseNode::RemoveTag(i32 type) {
  if (std::erase_if(mTags, [&](const auto& tag) { return tag->Type() == type; })) Touch();
}

void BaseNode::SetPlacementTrack(PlacementTrack which, Track track) {
  mPlacementTracks[which] = std::move(track);
}

void BaseNode::Animate(double frame) {
  for (const auto& [id, track] : mTracks) Set(id, track.Evaluate(frame));
  if (!mPlacementTracks.empty()) {
    for (const auto& [which, track] : mPlacementTracks) {
      Vec3d& target = which == kPosition ? mPosition : which == kRotation ? mRotation : mScale;
      const Value value = track.Evaluate(frame);
      if (const Vec3d* v = std::get_if<Vec3d>(&value)) target = *v;
    }
    UpdateLocal();
  }
  for (const auto& tag : mTags) tag->Animate(frame);
}

std::string BaseNode::Path() const { return mParent ? mParent->Path() + "/" + mName : mName; }

}  // namespace MELDO_GLOBAL::host
