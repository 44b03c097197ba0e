#include "rigid/body_limits.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void BodyLimits::Prepare(const ObstacleSettings& settings, const iBase* owner) {
  const std::vector<Constraint*>* const given[kLimits] = {
      &settings.linearDampingLimits, &settings.angularDampingLimits, &settings.frictionLimits,
      &settings.rollingFrictionLimits, &settings.restitutionLimits};
  mOwner = owner;
  for (std::size_t i = 0; i < kLimits; ++i) {
    std::vector<host::LinkTarget> targets;
    for (Constraint* constraint : *given[i]) targets.push_back({constraint->Node(), constraint, 0});
    mLists[i].Connect(targets);
    mLists[i].Prepare(owner);
  }
}

void BodyLimits::Finish() {
  for (ConstraintList& list : mLists) {
    list.Finish(mOwner);
    list.Connect({});
  }
  mOwner = nullptr;
}

double BodyLimits::Factor(Limit limit, const Vec3d& place) const {
  double weight = 1;
  if (Has(limit)) mLists[limit].Test(place, weight, mOwner, 0);
  return weight;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
