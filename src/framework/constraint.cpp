#include "framework/constraint.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

void ConstraintList::Connect(std::span<const host::LinkTarget> targets) {
  mNamed.clear();
  for (const host::LinkTarget& target : targets)
    // One that is named twice is asked once.
    if (auto* constraint = dynamic_cast<Constraint*>(target.object);
        constraint && std::find(mNamed.begin(), mNamed.end(), constraint) == mNamed.end())
      mNamed.push_back(constraint);
}

void ConstraintList::Prepare(iBase* owner) {
  mOwn.clear();
  for (const Constraint* named : mNamed) {
    mOwn.push_back(named->Copy());
    mOwn.back()->Prepare(owner);
  }
}

void ConstraintList::Finish() {
  for (const auto& own : mOwn) own->Finish();
  mOwn.clear();
}

bool ConstraintList::Test(const Vec3d& position, double& weight, const iBase* owner,
                          u32 worker) const {
  for (const auto& own : mOwn)
    if (own->Has(FLAG_ENABLED) && !own->Test(position, weight, owner, worker)) return false;
  return weight != 0;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
