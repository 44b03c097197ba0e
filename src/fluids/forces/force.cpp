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
  if (!ActsAnywhere()) return void(Deactivate("it pushes fluids alone"));
  Open();
}

void Force::EvaluateParticles(const ForceParticles& run) {
  for (i32 i = 0; i < static_cast<i32>(run.positions.size()); ++i) {
    if (run.weights[i] == 0) continue;
    ForceSample sample = SampleOf(run, i);
    Evaluate(sample);
    run.forces[i] = sample.force;
  }
}

ForceSample Force::SampleOf(const ForceParticles& run, i32 i) {
  ForceSample sample;
  sample.worker = run.worker;
  sample.particleMode = 1;
  sample.particles = run.particles;
  sample.particle = run.first + i;
  sample.weight = run.weights[i];
  sample.position = run.positions[i];
  sample.hostPosition = sample.position * run.simToWorld;
  sample.force = run.forces[i];
  return sample;
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
