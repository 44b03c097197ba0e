#include "fluids/operators/windowed_operator.h"

#include "fluids/operators/channel_work.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void WindowedOperator::CheckDirty() {
  iObject::CheckDirty();
  WorkWhileSimulating(*this);
}

bool WindowedOperator::OpenWindow() {
  mWeight = 1;
  if (mTime->stepDuration == 0) return Deactivate(kNoStepReason);
  if (mDuration && mDuration->Has(FLAG_ENABLED) && !mDuration->Weight(mTime->elapsed, mWeight))
    return Deactivate(kClosedReason);
  return true;
}

void WindowedOperator::Start() {
  mConstraints.Prepare(this);
  ++mRuns;
  SetFlag(FLAG_ACTIVE, true);
}

void WindowedOperator::Finish() {
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
