#include "framework/constraint.h"

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void ConstraintList::Resolve(const iBase& holder) {
  std::vector<iBase*> found;
  holder.mScene->CollectObjects(holder.mInterface.GetInExclude(2502), found, kListAuxiliary,
                                kCategoryConstraint, kTypeAny, kBitAny, true);
  mConstraints.clear();
  // Without a list no constraint applies: only those that the user named.
  if (!holder.mInterface.GetInExclude(2502)) return;
  for (iBase* object : found) mConstraints.push_back(static_cast<Constraint*>(object));
}

void ConstraintList::Prepare(iBase* owner) const {
  for (Constraint* c : mConstraints) c->Prepare(owner);
}

void ConstraintList::Finish() const {
  for (Constraint* c : mConstraints) c->Finish();
}

bool ConstraintList::Test(const Vec3d& position, double& weight, const iBase* owner,
                          u32 worker) const {
  for (Constraint* c : mConstraints)
    if (c->Has(FLAG_ENABLED) && !c->Test(position, weight, owner, worker)) return false;
  return weight != 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
