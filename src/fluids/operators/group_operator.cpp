#include "fluids/operators/group_operator.h"

#include "fluids/emission/stream_seeds.h"
#include "fluids/operators/channel_work.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void GroupOperator::CheckDirty() {
  iObject::CheckDirty();
  WorkWhileSimulating(*this);
}

void GroupOperator::Prepare() {
  SetFlag(FLAG_ACTIVE, false);
  mWeight = 1;
  if (NeedsTime() && mTime->stepDuration == 0) return void(Deactivate(kNoStepReason));
  if (mDuration && mDuration->Has(FLAG_ENABLED) && !mDuration->Weight(mTime->elapsed, mWeight))
    return void(Deactivate(kClosedReason));
  if (!mGroup) return void(Deactivate("it has no particles; name their group under 'group'"));
  if (!IsParticleKind(mKind)) return void(Deactivate("there is no such kind of particles"));
  if (RestsWhilePlayed() && mGroup->IsCached(mKind))
    return void(Deactivate(kPlayedParticlesReason));
  if (mGroup->Count(mKind) == 0) return void(Deactivate(kNoParticlesReason));
  if (!PrepareOperator()) return;
  mConstraints.Prepare(this);
  SetFlag(FLAG_ACTIVE, true);
}

void GroupOperator::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE) || data.TestBreak()) return;
  ParticleStore& store = mGroup->Store(mKind);
  const IndexRange own = store.PartOf(data.index, data.count);
  const auto worker = static_cast<u32>(data.index);
  const std::span<const u16> flags = std::as_const(store).Flags();
  const std::span<const Vec3d> positions = std::as_const(store).Positions();
  mConstraints.ForEachWeighed(
      {own.first, own.last, this, worker, &store}, [&](i32 row) { return positions[row]; },
      [&](i32 row) { return flags[row] & PF_ALIVE ? mWeight : 0.0; },
      [&](i32 row, double w) { WorkOn(store, row, w, worker); });
}

void GroupOperator::Finish() {
  if (Has(FLAG_ACTIVE)) {
    mConstraints.Finish(this);
    FinishOperator();
  }
  SetFlag(FLAG_ACTIVE, false);
  iObject::Finish();
}

double GroupOperator::DrawOf(u64 seed, i32 particleId, u64 purpose) {
  constexpr u64 kGolden = 0x9e3779b97f4a7c15u;
  const u64 particle = MixedBits(seed + (static_cast<u32>(particleId) + 1) * kGolden);
  return static_cast<double>(MixedBits(particle + (purpose + 1) * kGolden) >> 11) * 0x1.0p-53;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
