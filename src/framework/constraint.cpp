#include "framework/constraint.h"

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void ConstraintList::Resolve(const iBase& holder, i32 id) {
  mNamed.clear();
  // Without a list no constraint applies: only those that the user named.
  const host::InExcludeData* list = holder.mInterface.GetInExclude(id);
  if (!list) return;
  std::vector<iBase*> found;
  holder.mScene->CollectObjects(list, found, kListAuxiliary, kCategoryConstraint, kTypeAny, kBitAny,
                                true);
  for (iBase* object : found) mNamed.push_back(static_cast<Constraint*>(object));
}

void ConstraintList::Prepare(iBase* owner) {
  mOwn.clear();
  for (const Constraint* named : mNamed) {
    mOwn.push_back(named->Clone());
    static_cast<Constraint&>(*mOwn.back()).Prepare(owner);
  }
}

void ConstraintList::Finish() {
  for (const auto& own : mOwn) static_cast<Constraint&>(*own).Finish();
  mOwn.clear();
}

bool ConstraintList::Test(const Vec3d& position, double& weight, const iBase* owner,
                          u32 worker) const {
  for (const auto& own : mOwn)
    if (own->Has(FLAG_ENABLED) &&
        !static_cast<Constraint&>(*own).Test(position, weight, owner, worker))
      return false;
  return weight != 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
