#include "framework/constraint.h"

#include <algorithm>

#include "framework/constraint_port.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void ConstraintList::Connect(std::span<const host::LinkTarget> targets) {
  mNamed.clear();
  for (const host::LinkTarget& target : targets) {
    auto* constraint = dynamic_cast<Constraint*>(target.object);
    // One that is named twice is asked once.
    if (!constraint || std::any_of(mNamed.begin(), mNamed.end(), [&](const Entry& entry) {
          return entry.constraint == constraint;
        }))
      continue;
    const auto [state, isNew] = mStates.try_emplace(target.node->Id());
    if (isNew) state->second = constraint->MakeState();
    mNamed.push_back({constraint, state->second.get()});
  }
}

void ConstraintList::Reset() {
  mStates.clear();
  for (Entry& entry : mNamed) {
    auto& state = mStates[entry.constraint->Node()->Id()];
    state = entry.constraint->MakeState();
    entry.state = state.get();
  }
}

void ConstraintList::Relink() {
  for (const Entry& entry : mNamed) {
    entry.constraint->ReadParameters();
    entry.constraint->ResolveLinks();
    entry.constraint->AfterLinks();
  }
}

void ConstraintList::Prepare(const iBase* owner) {
  for (const Entry& entry : mNamed) entry.constraint->Prepare({owner, entry.state});
}

void ConstraintList::Finish(const iBase* owner) {
  for (const Entry& entry : mNamed) entry.constraint->Finish({owner, entry.state});
}

bool ConstraintList::Test(const Vec3d& position, double& weight, const iBase* owner,
                          u32 worker) const {
  for (const Entry& entry : mNamed)
    if (entry.constraint->Has(FLAG_ENABLED) &&
        !entry.constraint->Test(position, weight, {owner, entry.state, worker}))
      return false;
  return weight != 0;
}

void ConstraintList::Persist(StateArchive& archive, const Scene& scene) {
  std::vector<host::NodeId> nodes;
  for (const auto& [node, state] : mStates)
    if (state) nodes.push_back(node);
  archive(nodes);
  if (archive.IsLoading() && archive.IsGood()) {
    mNamed.clear();
    mStates.clear();
  }
  for (const host::NodeId node : nodes) {
    if (!archive.IsGood()) return;
    if (archive.IsLoading()) {
      const auto& auxiliary = scene.List(kListAuxiliary);
      const auto found = auxiliary.find(node);
      const auto* constraint =
          found == auxiliary.end() ? nullptr : dynamic_cast<Constraint*>(found->second.get());
      mStates[node] = constraint ? constraint->MakeState() : nullptr;
      if (!mStates[node]) return archive.Fail("a constraint differs");
    }
    mStates[node]->Persist(archive);
  }
}

void ConnectConstraints(ConstraintList& list, std::span<const host::LinkTarget> targets) {
  list.Connect(targets);
}

void PersistConstraints(ConstraintList& list, StateArchive& archive, const Scene& scene) {
  list.Persist(archive, scene);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
