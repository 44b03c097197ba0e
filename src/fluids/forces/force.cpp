#include "fluids/forces/force.h"

#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool Force::ResolveLinks() {
  if (!iObject::ResolveLinks() || !mScene) return false;
  // Stands unless a solver prepares the force.
  mInactiveReason = "no solver that names it under 'forces' has run";
  return true;
}

void Force::ClearLinks() {
  mFlow = nullptr;
  mVelocity = nullptr;
  iObject::ClearLinks();
}

void Force::EvaluateRow(const ForceRow& row) {
  ForEachSample(row, [this](ForceSample& sample) { Evaluate(sample); });
}

void Force::PrepareFor(Flow& flow) {
  mFlow = &flow;
  mVelocity = &flow.mVelocity;
  Open();
}

void Force::PrepareAlone() {
  mFlow = nullptr;
  mVelocity = nullptr;
  if (!ActsOnBodies()) return void(Deactivate("it pushes fluids alone"));
  Open();
}

void Force::EvaluateParticles(const ForceParticles& run) {
  const i32 count = static_cast<i32>(run.positions.size());
  for (i32 i = 0; i < count; ++i) {
    if (run.weights[i] == 0) continue;
    ForceSample sample = SampleOf(run, i);
    Evaluate(sample);
    run.forces[i] = sample.force;
  }
}

void Force::PrepareForParticles() {
  mFlow = nullptr;
  mVelocity = nullptr;
  if (!ActsOnParticles()) return void(Deactivate("it pushes fluids alone"));
  Open();
}

void Force::Open() {
  mWeight = 1.0;
  if (mDuration && mDuration->Has(FLAG_ENABLED) && !mDuration->Weight(mTime->elapsed, mWeight)) {
    mWeight = 0;
    return void(Deactivate(kClosedReason));
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
  mConstraints.Finish(this);
  FinishForce();
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
