// The lists of a scene: what stands in them, and look-ups.
#include "framework/sulva_scene.h"

#include <algorithm>

#include "framework/constraint.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

bool SulvaScene::AddObject(i32 list, std::unique_ptr<iBase> object) {
  if (!object || list == 200 || !object->Node()) return false;
  if (list < 1 || list > 11 || list == 9) list = kListGeometry;
  return mLists[list].try_emplace(object->Node()->Id(), std::move(object)).second;
}

bool SulvaScene::CreateObject(BaseNode* node, i32 pluginId) {
  if (!node) return false;
  for (i32 list = 1; list <= 11; ++list)
    if (mLists[list].contains(node->Id())) return false;
  auto object = mFactory(pluginId, node, this);
  if (!object) return false;
  const i32 list = object->GetListIndex();
  return AddObject(list, std::move(object));
}

void SulvaScene::Synchronise(const Document*) {
  const auto find = [&](NodeId id) -> iBase* {
    for (const ObjectList& list : mLists) {
      const auto found = list.find(id);
      if (found != list.end()) return found->second.get();
    }
    return nullptr;
  };
  const std::function<void(BaseNode&)> walk = [&](BaseNode& node) {
    for (BaseNode* child : node.Children()) {
      iBase* object = find(child->Id());
      // Switched on or off before the set-up passes, so that a node is read before it runs and no
      // link finds one that is off.
      if (object) object->SetFlag(FLAG_ENABLED, child->IsEnabled());
      if (!object && child->IsInstanceOf(kServerNode) && child->IsEnabled())
        CreateObject(child, child->Type());
      walk(*child);
    }
  };
  if (Server()) walk(*Server());
  RemoveDead();
}

void SulvaScene::RemoveDead() {
  for (ObjectList& list : mLists)
    std::erase_if(list, [&](const auto& entry) {
      const iBase& object = *entry.second;
      return !object.IsNodeAlive(0, nullptr) || !object.Node()->HasAncestor(Server());
    });
}

void SulvaScene::Clear() {
  for (ObjectList& list : mLists) list.clear();
}

iBase* SulvaScene::FindObject(const BaseNode* node, i32 list, i32 categoryA, i32 categoryB,
                              i32 typeId) const {
  if (!node) return nullptr;
  const auto look = [&](i32 number) -> iBase* {
    const auto found = mLists[number].find(node->Id());
    if (found == mLists[number].end()) return nullptr;
    iBase* object = found->second.get();
    const bool matches = object->Has(FLAG_ENABLED) &&
                         (categoryA == kBitAny || object->HasCategory(categoryA)) &&
                         (categoryB == kBitAny || object->HasCategory(categoryB)) &&
                         (typeId == kTypeAny || object->GetTypeId() == typeId);
    return matches ? object : nullptr;
  };
  if (list <= 11) return list >= 1 && list != 9 ? look(list) : nullptr;
  for (i32 number = 1; number <= 11; ++number)
    if (number != 9)
      if (iBase* object = look(number)) return object;
  return nullptr;
}

void SulvaScene::CollectObjects(const InExcludeData* list, std::vector<iBase*>& out, i32 listIndex,
                                u32 exactCategories, i32 typeId, i32 categoryA, bool includeOnly,
                                i32 categoryB) const {
  out.clear();
  const auto passes = [&](const iBase& object) {
    if (!object.Has(FLAG_ENABLED)) return false;
    if (typeId != kTypeAny && object.GetTypeId() != typeId) return false;
    u32 mask = 0;
    object.GetCategories(mask);
    if (mask == exactCategories) return true;
    if (categoryA == kBitAny) return exactCategories == kBitAny;
    return object.HasCategory(categoryA) && (categoryB == kBitAny || object.HasCategory(categoryB));
  };
  const i32 first = listIndex > 11 ? 1 : listIndex, last = listIndex > 11 ? 11 : listIndex;
  if (list && includeOnly) {
    for (const InExcludeData::Entry& entry : list->entries)
      for (i32 number = first; number <= last; ++number) {
        const auto found = mLists[number].find(entry.node);
        if (found == mLists[number].end() || !passes(*found->second)) continue;
        iBase* object = found->second.get();
        if (std::find(out.begin(), out.end(), object) == out.end()) out.push_back(object);
      }
    return;
  }
  const auto isNamed = [&](NodeId id) {
    return list && std::any_of(list->entries.begin(), list->entries.end(),
                               [&](const auto& entry) { return entry.node == id; });
  };
  for (i32 number = first; number <= last; ++number)
    for (const auto& [id, object] : mLists[number])
      if (!isNamed(id) && passes(*object)) out.push_back(object.get());
}

namespace {
/// Whether a row that takes groups of kinds may link an object, by what it can do now, or by its
/// kind where the row names that one.
bool Accepts(const ParameterRow& row, const iBase& object) {
  if (row.acceptsAny.empty()) return true;
  u32 mask = 0;
  object.GetCategories(mask);
  const auto holds = [&](const KindGroup& group) {
    return group.Holds(object.GetListIndex(), mask);
  };
  if (std::any_of(row.acceptsAny.begin(), row.acceptsAny.end(), holds)) return true;
  const NodeKind* kind = object.GetKind();
  return kind && std::find(row.accepts.begin(), row.accepts.end(), kind->id) != row.accepts.end();
}
}  // namespace

ParameterHolder* SulvaScene::Find(const BaseNode& node, const ParameterRow& row) const {
  iBase* object = FindObject(&node, kListAll);
  return object && Accepts(row, *object) ? object : nullptr;
}

std::vector<LinkTarget> SulvaScene::All(const ParameterRow& row) const {
  std::vector<LinkTarget> targets;
  ForEachObject(
      [&](iBase& object) {
        if (object.Has(FLAG_ENABLED) && Accepts(row, object))
          targets.push_back({object.Node(), &object, 0});
      },
      true);
  // Not in the order of the file, or forces would sum up to other last bits.
  std::sort(targets.begin(), targets.end(), [](const LinkTarget& a, const LinkTarget& b) {
    return a.node->Path() < b.node->Path();
  });
  return targets;
}

bool SulvaScene::NeedsRun() const {
  if (mStage != kStartSimulation && mStage != kUpdate) return false;
  bool dirty = false;
  ForEachObject(
      [&](iBase& object) { dirty = dirty || (object.Has(FLAG_ENABLED) && object.IsDirty()); },
      true);
  return dirty;
}

void SulvaScene::Reset(bool full) {
  ForEachObject(
      [&](iBase& object) {
        if (!full && !(object.IsDirty() && object.ResetsOnChange())) return;
        object.Reset();
        for (const auto& part : object.mParts) part->Reset();
        if (ConstraintList* constraints = object.Constraints()) constraints->Reset();
      },
      true);
  if (!full) return;
  for (const auto& part : mParts) part->Reset();
  mTime.elapsed = 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
