#include "fluids/operators/pop_flock.h"

#include <algorithm>
#include <atomic>

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

const NodeKind& POP_Flock::Kind() {
  static const NodeKind kind = {
      .id = 1300160,
      .type = "pop_flock",
      .label = "POP::Boids",
      .className = "POP_Flock",
      .typeId = 122,
      .list = kListOperators,
      .categories = kCategoryParticle,
      .flags = "I",
      .stages = {kOperators},
      .priority = 20,
      .menu = {"Particles/Operators"},
      .purpose = "lets particles fly as flocks do, and flee from others that hunt them",
      .example =
          {{example::kBall},
           {example::kBallMesh, R"({ "type": "particlegroup", "name": "birds" })",
            R"({ "type": "particlemesh_emission_setting", "name": "rate" })",
            R"({ "type": "particlemeshemitter", "name": "born", "parameters": { "group": "birds", "kind": "passive", "source": "ball mesh", "settings": "rate" } })",
            R"({ "type": "pop_flock", "name": "flock", "parameters": { "group": "birds" } })",
            R"({ "type": "particle_advection", "name": "fly", "parameters": { "group": "birds", "kind": "passive", "motion": "ballistic" } })"}},
      .rows = Parameters,
      .make = MakeNode<POP_Flock>,
  };
  return kind;
}

const ParameterTable& POP_Flock::Parameters() {
  static const ParameterTable table = {
      GroupRow("whose particles are the flock"),
      KindRow(kKindRow, kPassive, "which particles of the group are the flock"),
      LinkRow(kPredatorsRow, "predators", "whose particles hunt the flock; without it nobody does",
              {ParticleGroup::kNodeType})
          .To(&POP_Flock::mPredatorGroup)
          .Writes(),
      LongRow(kPredatorKindRow, "predator_kind", kPassive, "",
              "which particles of 'predators' hunt")
          .Choices(ParticleKindChoices())
          .To(&POP_Flock::mPredatorKind),
      DurationRow(kDurationRow, "steers only inside this time window"),
      RealRow(kCohesionRow, "cohesion", 0.5, "none",
              "how much the flock turns to the middle of its neighbours; below 0 away from it")
          .To(&POP_Flock::mCohesion),
      RealRow(kCohesionRadiusRow, "cohesion_radius", 2.0, "cells", "how near these neighbours are")
          .AtLeast(0)
          .To(&POP_Flock::mCohesionCells),
      RealRow(kSeparationRow, "separation", 0.3, "none",
              "how much it turns away from neighbours, from near ones most")
          .To(&POP_Flock::mSeparation),
      RealRow(kSeparationRadiusRow, "separation_radius", 2.0, "cells",
              "how near these neighbours are")
          .AtLeast(0)
          .To(&POP_Flock::mSeparationCells),
      RealRow(kAlignmentRow, "alignment", 0.15, "none",
              "how much it turns to the way that its neighbours fly")
          .To(&POP_Flock::mAlignment),
      RealRow(kAlignmentRadiusRow, "alignment_radius", 2.0, "cells",
              "how near these neighbours are")
          .AtLeast(0)
          .To(&POP_Flock::mAlignmentCells),
      RealRow(
          kSpeedRow, "speed", 10.0, "cells/s",
          "how fast the flock wants to fly; a rule may change a quarter of it in a second, times "
          "its own number above")
          .AtLeast(0)
          .To(&POP_Flock::mSpeedCells),
      RealRow(kFlightRow, "flight", 0.8, "none",
              "how hard it flees from a predator: the part of 'speed' that it gains in a second, "
              "whatever its neighbours do")
          .To(&POP_Flock::mFlight),
      RealRow(kFlightRadiusRow, "flight_radius", 3.0, "cells",
              "how near a predator is from which it flees")
          .AtLeast(0)
          .To(&POP_Flock::mFlightCells),
      RealRow(kPursuitRow, "pursuit", 0.5, "none",
              "how much a predator turns to the middle of the prey that is near to it")
          .To(&POP_Flock::mPursuit),
      RealRow(kPursuitRadiusRow, "pursuit_radius", 5.0, "cells", "how near that prey is")
          .AtLeast(0)
          .To(&POP_Flock::mPursuitCells),
      RealRow(kPredatorSeparationRow, "predator_separation", 0.3, "none",
              "how much predators turn away from each other")
          .To(&POP_Flock::mPredatorSeparation),
      RealRow(kPredatorSeparationRadiusRow, "predator_separation_radius", 3.0, "cells",
              "how near these others are")
          .AtLeast(0)
          .To(&POP_Flock::mPredatorSeparationCells),
      RealRow(
          kPredatorSpeedRow, "predator_speed", 10.0, "cells/s",
          "how fast predators want to fly; a rule may change a quarter of it in a second, times "
          "its own number above")
          .AtLeast(0)
          .To(&POP_Flock::mPredatorSpeedCells),
      BoolRow(kKillsRow, "kills", true, "what a predator comes near enough to dies")
          .To(&POP_Flock::mKills),
      RealRow(kKillRadiusRow, "kill_radius", 0.5, "cells",
              "how near a predator comes to what it catches")
          .AtLeast(0)
          .OnlyWith(kKillsRow, {1})
          .To(&POP_Flock::mKillCells),
  };
  return table;
}

double POP_Flock::Cells(double cells) const { return cells * GetDomain().cellSize; }

bool POP_Flock::PrepareOperator() {
  if (!FindParticles()) return false;
  const bool isHunted = mPredatorGroup && mPredatorGroup->Count(mPredatorKind) > 0;
  mFlock = &mGroup->Store(mKind);
  mPredators = isHunted ? &mPredatorGroup->Store(mPredatorKind) : nullptr;
  if (mPredators == mFlock) return Deactivate(kOwnPreyReason);
  mGroup->BuildTree(mKind, mScene->mThreadCount);
  if (isHunted) mPredatorGroup->BuildTree(mPredatorKind, mScene->mThreadCount);
  mFlockTree = mGroup->Tree(mKind);
  mPredatorTree = isHunted ? mPredatorGroup->Tree(mPredatorKind) : nullptr;
  mPace = {Cells(mSpeedCells), kForceShare * Cells(mSpeedCells)};
  mPredatorPace = {Cells(mPredatorSpeedCells), kForceShare * Cells(mPredatorSpeedCells)};
  const auto count = static_cast<std::size_t>(mFlock->Count());
  mSteering.assign(count, {});
  mIsCaught.assign(isHunted ? count : 0, 0);
  mHeld.Set(mSteering.capacity() * sizeof(Vec3d) + mIsCaught.capacity());
  mBuffers.resize(kShares);
  return true;
}

template <class F>
void POP_Flock::Pass(const ParticleStore& store, const EvaluationThreadData& data, F&& f) const {
  ForEachShare(mScene->mThreadCount, data.thread, [&](const EvaluationThreadData& share) {
    f(store.PartOf(share.index, share.count), static_cast<u32>(share.index));
  });
}

void POP_Flock::Evaluate(const EvaluationThreadData& data) {
  if (!Has(FLAG_ACTIVE) || !mFlockTree) return;
  ForEachShare(mScene->mThreadCount, data.thread, [&](const EvaluationThreadData& share) {
    const IndexRange places = share.ItemsOf(0, mFlockTree->Count());
    for (i32 place = places.first; place < places.last; ++place)
      if (const i32 row = mFlockTree->IndexAt(place); mFlock->Flags()[row] & PF_ALIVE)
        ChooseWay(row, static_cast<u32>(share.index));
  });
  if (mPredatorTree)
    Pass(*mPredators, data, [&](const IndexRange& rows, u32 worker) {
      ForEachLiving(*mPredators, rows, worker,
                    [&](i32 row, double weight) { Hunt(row, weight, worker); });
    });
  Pass(*mFlock, data, [&](const IndexRange& rows, u32 worker) {
    ForEachLiving(*mFlock, rows, worker, [&](i32 row, double weight) { Turn(row, weight); });
  });
}

Vec3d POP_Flock::Steer(const Vec3d& direction, const Vec3d& velocity, const Pace& pace,
                       double weight) {
  const Vec3d along = Normalised(direction);
  if (along == Vec3d{}) return {};
  const Vec3d change = along * pace.speed - velocity;
  const double length = Length(change);
  return change * (length > pace.force ? weight * pace.force / length : weight);
}

bool POP_Flock::Flee(i32 row, NeighbourBuffer& near) {
  if (!mPredatorTree) return false;
  const Vec3d own = mFlock->Positions()[row];
  mPredatorTree->FindNearest(own, Cells(mFlightCells), near);
  for (const TreeHit& hit : near.Hits()) {
    if (!(mPredators->Flags()[hit.index] & PF_ALIVE) || hit.distanceSquared == 0) continue;
    const Vec3d away = Normalised(own - mPredators->Positions()[hit.index]);
    mSteering[row] = away * (mPace.speed * mFlight);
    return true;
  }
  return false;
}

void POP_Flock::ChooseWay(i32 row, u32 worker) {
  NeighbourBuffer& near = mBuffers[worker];
  if (Flee(row, near)) return;
  const Vec3d own = mFlock->Positions()[row], velocity = mFlock->Velocities()[row];
  const double separation = Cells(mSeparationCells), cohesion = Cells(mCohesionCells),
               alignment = Cells(mAlignmentCells);
  mFlockTree->FindNearest(own, std::max({separation, cohesion, alignment}), near);
  // Of a mean the direction alone counts, and the sum has the same.
  Vec3d apart{}, along{}, together{};
  for (const TreeHit& hit : near.Hits()) {
    const double squared = hit.distanceSquared;
    if (!(mFlock->Flags()[hit.index] & PF_ALIVE) || squared == 0) continue;
    const Vec3d offset = mFlock->Positions()[hit.index] - own;
    if (squared < separation * separation) apart -= offset / squared;
    if (squared < alignment * alignment) along += mFlock->Velocities()[hit.index];
    if (squared < cohesion * cohesion) together += offset;
  }
  mSteering[row] = Steer(together, velocity, mPace, mCohesion) +
                   Steer(apart, velocity, mPace, mSeparation) +
                   Steer(along, velocity, mPace, mAlignment);
}

void POP_Flock::Hunt(i32 row, double weight, u32 worker) {
  if (weight == 0) return;
  NeighbourBuffer& near = mBuffers[worker];
  const Vec3d own = mPredators->Positions()[row];
  Vec3d& velocity = mPredators->Velocities()[row];
  const double pursuit = Cells(mPursuitCells), kill = mKills ? Cells(mKillCells) : 0.0;
  mFlockTree->FindNearest(own, std::max(pursuit, kill), near);
  Vec3d prey{}, apart{};
  for (const TreeHit& hit : near.Hits()) {
    if (!(mFlock->Flags()[hit.index] & PF_ALIVE)) continue;
    if (hit.distanceSquared < pursuit * pursuit) prey += mFlock->Positions()[hit.index] - own;
    // Several predators may catch the same one at once.
    if (hit.distanceSquared < kill * kill)
      std::atomic_ref(mIsCaught[hit.index]).store(1, std::memory_order_relaxed);
  }
  if (mPredatorGroup->IsCached(mPredatorKind)) return;
  mPredatorTree->FindNearest(own, Cells(mPredatorSeparationCells), near);
  for (const TreeHit& hit : near.Hits())
    if (mPredators->Flags()[hit.index] & PF_ALIVE && hit.distanceSquared > 0)
      apart += (own - mPredators->Positions()[hit.index]) / hit.distanceSquared;
  velocity += (Steer(apart, velocity, mPredatorPace, mPredatorSeparation) +
               Steer(prey, velocity, mPredatorPace, mPursuit)) *
              (mTime->stepDuration * weight);
}

void POP_Flock::Turn(i32 row, double weight) {
  mFlock->Velocities()[row] += mSteering[row] * (mTime->stepDuration * weight);
  if (!mIsCaught.empty() && mIsCaught[row]) mFlock->Flags()[row] &= static_cast<u16>(~PF_ALIVE);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
