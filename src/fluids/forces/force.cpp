#include "fluids/forces/force.h"

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool Force::ResolveLinks() {
  if (!iObject::ResolveLinks() || !mScene) return false;
  // Stands unless a solver prepares the force.
  mInactiveReason = "no solver that runs names it under 'forces'";
  return true;
}

void Force::ClearLinks() {
  mVelocity = nullptr;
  iObject::ClearLinks();
}

bool Force::Attach(void* velocity, void*) {
  mVelocity = static_cast<VelocityField*>(velocity);
  return true;
}

bool Force::FitsVelocity(const EGrid<double>* grid) const {
  const EGrid<double>* u = mVelocity ? mVelocity->GetGrid(0) : nullptr;
  return grid && grid->mData && u && grid->Dims() == u->mLayout.dims;
}

void Force::Prepare(void*) {
  mWeight = 1.0;
  if (mDuration && mDuration->Has(FLAG_ENABLED) && !mDuration->Weight(mTime->elapsed, mWeight)) {
    mWeight = 0;
    SetFlag(FLAG_ACTIVE, false);
    return;
  }
  if (!PrepareForce()) {
    SetFlag(FLAG_ACTIVE, false);
    return;
  }
  mConstraints.Prepare(this);
  SetFlag(FLAG_ACTIVE, true);
  ++mRuns;
}

void Force::Finish() {
  mConstraints.Finish();
  FinishForce();
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
