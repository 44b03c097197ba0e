#include "fluids/operators/particle_operator.h"

#include "fluids/operators/channel_work.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

ParameterRow ParticleOperator::GroupRow(std::string_view help) {
  return LinkRow(kGroupRow, "group", help, {ParticleGroup::kNodeType})
      .To(&ParticleOperator::mGroup)
      .Writes()
      .Required();
}

ParameterRow ParticleOperator::KindRow(i32 id, i32 kind, std::string_view help) {
  return LongRow(id, "kind", kind, "", help)
      .Choices(ParticleKindChoices())
      .To(&ParticleOperator::mKind);
}

ParameterRow ParticleOperator::GroupsRow(std::string_view help) {
  return LinksRow(kGroupRow, "groups", help, {ParticleGroup::kNodeType})
      .To(&ParticleOperator::mGroups)
      .Writes()
      .Required();
}

ParameterRow ParticleOperator::DurationRow(i32 id, std::string_view help) {
  return LinkRow(id, "duration", help, {Duration::Kind().id}).To(&ParticleOperator::mDuration);
}

void ParticleOperator::CheckDirty() {
  if (ShowsParticles() && Has(FLAG_DIRTY_CHECKED)) return;
  iObject::CheckDirty();
  if (!ShowsParticles())
    WorkWhileSimulating(*this);
  else if (Has(FLAG_ENABLED) && !IsDirty() && (mScene->mFlags & Scene::kTimeChanged))
    MarkDirty(false);
}

bool ParticleOperator::OpenWindow() {
  mWeight = 1;
  if (!ShowsParticles() && mTime->stepDuration == 0) return Deactivate(kNoStepReason);
  if (mDuration && mDuration->Has(FLAG_ENABLED) && !mDuration->Weight(mTime->elapsed, mWeight))
    return Deactivate(kClosedReason);
  return true;
}

bool ParticleOperator::FindParticles() {
  if (!mGroup) return Deactivate("it has no particles; name their group under 'group'");
  if (!IsParticleKind(mKind)) return Deactivate("there is no such kind of particles");
  if (!ShowsParticles() && mGroup->IsCached(mKind)) return Deactivate(kPlayedParticlesReason);
  return mGroup->Count(mKind) > 0 || Deactivate(kNoParticlesReason);
}

void ParticleOperator::Prepare() {
  if (!OpenWindow() || !PrepareOperator()) return SetFlag(FLAG_ACTIVE, false);
  mConstraints.Prepare(this);
  SetFlag(FLAG_ACTIVE, true);
}

void ParticleOperator::Finish() {
  if (Has(FLAG_ACTIVE)) {
    mConstraints.Finish(this);
    FinishOperator();
  }
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

void ParticleOperator::Weigh(const ParticleStore& store, i32 first, std::span<double> weights,
                             u32 worker) const {
  const std::span<const u16> flags = store.Flags().subspan(first, weights.size());
  for (std::size_t i = 0; i < weights.size(); ++i) weights[i] = flags[i] & PF_ALIVE ? mWeight : 0.0;
  if (!mConstraints.IsEmpty())
    mConstraints.TestRow({store.Positions().subspan(first, weights.size()), weights, &store, first},
                         this, worker);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
