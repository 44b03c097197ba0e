#include "framework/stage_order.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <tuple>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// What the objects of a stage read and write, and whom they wait for.
class Waits {
 public:
  Waits(const std::vector<iBase*>& objects, const Scene& scene)
      : mScene(scene), mObjects(objects.begin(), objects.end()) {
    for (iBase* object : objects) {
      std::set<const iBase*> seen;
      Follow(*object, *object, seen);
      for (iBase* other : objects)
        if (object->mPriority < other->mPriority && !object->ComesBefore(*other))
          mFor[object].insert(other);
    }
    for (const auto& [target, readers] : mReaders)
      for (iBase* writer : mWriters[target])
        for (iBase* reader : readers)
          if (!mWriters[target].contains(reader)) mFor[reader].insert(writer);
  }
  const std::set<iBase*>& Of(iBase* object) { return mFor[object]; }
  /// Whether an object waits for another one, or for one that does.
  bool Follows(iBase* object, iBase* other) {
    std::set<iBase*> seen;
    const std::function<bool(iBase*)> follows = [&](iBase* at) {
      return seen.insert(at).second &&
             std::any_of(mFor[at].begin(), mFor[at].end(),
                         [&](iBase* next) { return next == other || follows(next); });
    };
    return follows(object);
  }
  /// The first thing of the document that both objects write; null if there is none.
  const iBase* SharedTarget(iBase* a, iBase* b) const {
    const iBase* first = nullptr;
    for (const auto& [target, writers] : mWriters)
      if (writers.contains(a) && writers.contains(b) &&
          (!first || target->Node()->Id() < first->Node()->Id()))
        first = target;
    return first;
  }

 private:
  static bool IsEmpty(const iBase& holder, i32 row) {
    const host::Value* value = holder.Node()->Get(row);
    const host::Link* link = value ? std::get_if<host::Link>(value) : nullptr;
    return !link || link->node == 0;
  }
  /// The links of `holder`, which count as those of `object`.
  void Follow(iBase& object, const iBase& holder, std::set<const iBase*>& seen) {
    if (!holder.Rows() || !holder.Node() || !seen.insert(&holder).second) return;
    for (const host::ParameterRow& row : *holder.Rows()) {
      if (row.type != host::ParameterType::Link && row.type != host::ParameterType::Links) continue;
      const bool writes = row.writes || (row.writesWithout && IsEmpty(holder, row.writesWithout));
      for (const host::LinkTarget& link : host::TargetsOf(row, *holder.Node(), mScene)) {
        auto* target = dynamic_cast<iBase*>(link.object);
        if (!target || target == &object) continue;
        if (mObjects.contains(target) && !writes) mFor[&object].insert(target);
        (writes ? mWriters : mReaders)[target].insert(&object);
        const i32 list = target->GetListIndex();
        if (list == kListSettings || list == kListAuxiliary) Follow(object, *target, seen);
      }
    }
  }

  const Scene& mScene;
  std::set<iBase*> mObjects;
  std::map<iBase*, std::set<iBase*>> mReaders, mWriters;
  std::map<iBase*, std::set<iBase*>> mFor;
};

/// Names of a circle among objects of which each waits for another one.
std::string CircleOf(const std::vector<iBase*>& waiting, Waits& waits) {
  std::vector<iBase*> way{waiting.front()};
  for (;;) {
    iBase* next = nullptr;
    for (iBase* object : waiting)
      if (!next && waits.Of(way.back()).contains(object)) next = object;
    const auto start = std::find(way.begin(), way.end(), next);
    if (start != way.end()) {
      way.erase(way.begin(), start);
      break;
    }
    way.push_back(next);
  }
  std::string text;
  for (const iBase* object : way) text += "'" + object->mName + "' waits for ";
  return text + "'" + way.front()->mName + "'";
}

/// Where an object stands before links are looked at.
struct Place {
  explicit Place(iBase& of) : object(&of), order(of.mPriority, of.GetListIndex(), of.Commutes()) {
    if (of.Commutes()) path = of.Node()->Path();
  }
  bool operator<(const Place& other) const {
    return std::tie(order, path) < std::tie(other.order, other.path);
  }
  iBase* object;
  std::tuple<i32, i32, bool> order;
  std::string path;  ///< of those that only add
};

}  // namespace

std::vector<iBase*> OrderByPlace(std::vector<iBase*> objects) {
  std::vector<Place> places;
  for (iBase* object : objects) places.emplace_back(*object);
  std::stable_sort(places.begin(), places.end());
  std::transform(places.begin(), places.end(), objects.begin(),
                 [](const Place& place) { return place.object; });
  return objects;
}

std::vector<iBase*> OrderByLinks(const std::vector<iBase*>& objects, const Scene& scene) {
  if (objects.size() < 2) return objects;
  Waits waits(objects, scene);
  std::vector<iBase*> ordered, waiting = objects;
  while (!waiting.empty()) {
    const auto ready = [&](iBase* object) {
      return std::all_of(waiting.begin(), waiting.end(), [&](iBase* other) {
        return other == object || !waits.Of(object).contains(other);
      });
    };
    const auto next = std::find_if(waiting.begin(), waiting.end(), ready);
    if (next == waiting.end())
      throw OrderError("these nodes wait for each other: " + CircleOf(waiting, waits),
                       waiting.front()->Node());
    ordered.push_back(*next);
    waiting.erase(next);
  }
  return ordered;
}

std::vector<OrderTie> FindTies(const std::vector<iBase*>& objects, const Scene& scene) {
  std::vector<OrderTie> ties;
  if (objects.size() < 2) return ties;
  Waits waits(objects, scene);
  for (std::size_t i = 0; i < objects.size(); ++i)
    for (std::size_t j = i + 1; j < objects.size(); ++j) {
      iBase *a = objects[i], *b = objects[j];
      // Those of different lists stand in the order of the lists, whatever the file says. What
      // caches change is what they recorded: two in one field are told of elsewhere.
      if (a->GetListIndex() != b->GetListIndex() || a->GetListIndex() == kListCaches) continue;
      if (a->mPriority != b->mPriority || a->Commutes() != b->Commutes() || a->CommutesWith(*b))
        continue;
      const iBase* target = waits.SharedTarget(a, b);
      if (target && !waits.Follows(a, b) && !waits.Follows(b, a)) ties.push_back({a, b, target, 0});
    }
  return ties;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
