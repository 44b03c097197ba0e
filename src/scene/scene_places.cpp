#include "scene/scene_places.h"

#include <algorithm>

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

/// The value that an object of parameters gives to a row, under its name or its id.
const JsonValue* Given(const JsonValue& parameters, const BaseNode& node, std::string_view key) {
  if (!node.Table()) return nullptr;
  for (const JsonMember& member : *parameters.Members())
    if (const ParameterRow* row = RowNamed(*node.Table(), member.key); row && row->name == key)
      return &member.value;
  return nullptr;
}

}  // namespace

SourceLocation ScenePlaces::Of(const BaseNode& node, std::string_view key, int entry) const {
  for (const GivenOption& given : mGiven)
    if (given.node == &node && given.row->name == key) return {given.option, 0, 0};
  const auto made = std::find_if(mMade.begin(), mMade.end(),
                                 [&](const MadeNode& one) { return one.node == &node; });
  if (made == mMade.end()) return mContext.Where(0, 0);
  const JsonValue* value = made->parameters ? Given(*made->parameters, node, key) : nullptr;
  if (!value && !key.empty()) value = made->value->Find(std::string(key));
  if (!value) return mContext.Where(*made->value);
  // Groups and several kinds make more entries of an item: its place can't be told any more.
  const JsonValue::Array* items = value->Items();
  const Value* held = entry < 0 || !items ? nullptr : [&]() -> const Value* {
    const ParameterRow* row = RowNamed(*node.Table(), key);
    return row ? node.Get(row->id) : nullptr;
  }();
  const auto* list = held ? std::get_if<InExcludeData>(held) : nullptr;
  if (list && list->entries.size() == items->size())
    return mContext.Where((*items)[static_cast<std::size_t>(entry)]);
  return mContext.Where(*value);
}

namespace {
bool HasKeyedPlacement(const MadeNode& made) {
  for (const char* key : {"position", "rotation", "scale"})
    if (const JsonValue* value = made.value->Find(key); value && value->Members()) return true;
  return false;
}
}  // namespace

bool ScenePlaces::IsMoved(const BaseNode& node) const {
  return std::any_of(mMade.begin(), mMade.end(), [&](const MadeNode& one) {
    return (one.node == &node || node.HasAncestor(one.node)) && HasKeyedPlacement(one);
  });
}

bool ScenePlaces::IsScaled(const BaseNode& node) const {
  return std::any_of(mMade.begin(), mMade.end(), [&](const MadeNode& one) {
    const JsonValue* scale = one.value->Find("scale");
    return (one.node == &node || node.HasAncestor(one.node)) && scale && scale->Members();
  });
}

bool ScenePlaces::IsAnyMoved() const {
  return std::any_of(mMade.begin(), mMade.end(), HasKeyedPlacement);
}

}  // namespace MELDO_GLOBAL::app
