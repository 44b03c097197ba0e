#include "scene/hint_base.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/mesh/obstacle_rows.h"
#include "fluids/mesh/obstacle_settings.h"

namespace MELDO_GLOBAL::app {

using namespace host;

void HintBase::Collect(const BaseNode& node) {
  for (const BaseNode* child : node.Children()) {
    if (child->IsEnabled()) mNodes.push_back(child);
    Collect(*child);
  }
}

const Value* HintBase::ValueOf(const BaseNode& node, i32 row) {
  if (const Value* value = node.Get(row)) return value;
  const ParameterRow* own = node.Table() ? FindRow(*node.Table(), row) : nullptr;
  return own ? &own->WhenMissing() : nullptr;
}

double HintBase::Number(const BaseNode& node, i32 row) {
  const double* number = Get<double>(node, row);
  return number ? *number : 0;
}

i32 HintBase::Whole(const BaseNode& node, i32 row) {
  const i32* whole = Get<i32>(node, row);
  return whole ? *whole : 0;
}

std::string HintBase::Text(const BaseNode& node, i32 row) {
  const std::string* text = Get<std::string>(node, row);
  return text ? *text : "";
}

bool HintBase::StaysZero(const BaseNode& node, i32 row) {
  const auto isZero = [](const Value& value) {
    const double* real = std::get_if<double>(&value);
    const Vec3d* vector = std::get_if<Vec3d>(&value);
    return (real && *real == 0) || (vector && *vector == Vec3d{});
  };
  const auto track = node.Tracks().find(row);
  if (track != node.Tracks().end())
    return std::all_of(track->second.keys.begin(), track->second.keys.end(),
                       [&](const auto& key) { return isZero(key.value); });
  const Value* value = ValueOf(node, row);
  return value && isZero(*value);
}

bool HintBase::StaysAtMost(const BaseNode& node, i32 row, double most) {
  const auto track = node.Tracks().find(row);
  if (track == node.Tracks().end()) return Number(node, row) <= most;
  return std::all_of(track->second.keys.begin(), track->second.keys.end(), [&](const auto& key) {
    const double* value = std::get_if<double>(&key.value);
    return value && *value <= most;
  });
}

bool HintBase::IsGiven(const BaseNode& node, i32 row) {
  const Value* value = node.Get(row);
  return value && (node.Tracks().contains(row) || *value != FindRow(*node.Table(), row)->creation);
}

const BaseNode* HintBase::Linked(const BaseNode& node, i32 row) const {
  const Link* link = Get<Link>(node, row);
  return link ? mScene.document->Find(link->node) : nullptr;
}

std::string_view HintBase::NameOf(const BaseNode& node, i32 row) {
  return FindRow(*node.Table(), row)->name;
}

std::set<NodeId> HintBase::LinksOf(const BaseNode& node) {
  std::set<NodeId> linked;
  for (const auto& [id, value] : node.Values()) {
    if (const Link* link = std::get_if<Link>(&value)) linked.insert(link->node);
    if (const auto* list = std::get_if<InExcludeData>(&value))
      for (const InExcludeData::Entry& entry : list->entries) linked.insert(entry.node);
  }
  return linked;
}

bool HintBase::HasBodies() const {
  bool any = false;
  mScene.document->ForEachNode([&](const BaseNode& node) {
    const BaseNode* tag = node.Tag(host::kObstacleTag);
    if (!tag || !tag->Table() || any) return;
    MELDO_SULVA::ObstacleSettings settings;
    host::FillMembers(*tag->Table(), tag, settings);
    any = settings.IsHeavy() || MELDO_SULVA::obstacle_row::MayGetMass(*tag);
  });
  return any;
}

bool HintBase::MayWork(const BaseNode& node) const {
  const NodeReach* reach = mScene.reach.Of(node.Id());
  return !reach || reach->MayWork();
}

const std::vector<const BaseNode*>& HintBase::ReadersOf(const BaseNode& node) const {
  static const std::vector<const BaseNode*> none;
  const NodeReach* reach = mScene.reach.Of(node.Id());
  return reach ? reach->readers : none;
}

namespace {
std::string Sentence(const BaseNode& node, const std::string& text) {
  return KindAndName(node) + ": " + text;
}
}  // namespace

void HintBase::WarnOfSleep(const BaseNode& node, const std::string& text, i32 row) {
  Warn(node, text, row);
  mDiagnostics.NoteSleeper(node.Id(), text);
}

void HintBase::Warn(const BaseNode& node, const std::string& text, i32 row) {
  mDiagnostics.Warning(mPlaces.Of(node, row ? NameOf(node, row) : ""), Sentence(node, text));
}

void HintBase::Note(const BaseNode& node, const std::string& text, i32 row) {
  mDiagnostics.Note(mPlaces.Of(node, row ? NameOf(node, row) : ""), Sentence(node, text));
}

void HintBase::NoteUnread(const BaseNode& node, i32 row, const std::string& why) {
  if (IsGiven(node, row))
    Note(node, fmt::format("'{}' has no effect: {}", NameOf(node, row), why), row);
}

}  // namespace MELDO_GLOBAL::app
