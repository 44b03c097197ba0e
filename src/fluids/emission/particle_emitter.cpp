#include "fluids/emission/particle_emitter.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/emission/stream_seeds.h"
#include "fluids/flow/grid_boundary.h"
#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"
#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

ParameterTable ParticleEmitter::WithRows(const RowNumbers& numbers, ParameterTable own) {
  ParameterTable table = {
      LinkRow(kGroupRow, "group", "where the new particles go", {ParticleGroup::kNodeType})
          .To(&ParticleEmitter::mGroup)
          .Writes()
          .Required(),
      LongRow(kKindRow, "kind", kLiquid, "", "what they are")
          .Choices(ParticleKindChoices())
          .Missing(i32{kPassive})
          .To(&ParticleEmitter::mKind),
      LinkRow(numbers.settings, "settings", "how many appear, and when",
              {ParticleEmissionSettings::Kind().id})
          .To(&ParticleEmitter::mSettings)
          .Required(),
      LinksRow(numbers.properties, "properties",
               "what they are born with, each with the value of its node",
               {Property<double>::Kind().id, Property<Vec3d>::Kind().id, Property<bool>::Kind().id})
          .To(&ParticleEmitter::mProperties),
  };
  table.insert(table.end(), own.begin(), own.end());
  return table;
}

void ParticleEmitter::CheckDirty() {
  ObjectVolume::CheckDirty();
  if (IsDirty()) return;
  if ((mScene->mFlags & Scene::kTimeChanged) || IsDirtyNow(mVolume) || IsDirtyNow(mSettings))
    MarkDirty(false);
}

void ParticleEmitter::FillTemplate() {
  mTemplate = {};
  for (const iProperty* property : mProperties)
    if (property->Has(FLAG_ENABLED)) property->AddTo(mTemplate);
  if (const double* age = mTemplate.FindScalar(property_id::kAge))
    mTemplate.Set(property_id::kLifeSpan, double{*age});
  mTemplate.flags |= kParticleKindRows[mKind].flag;
  ParticleEmissionHandler::Complete(mTemplate);
}

bool ParticleEmitter::CommutesWith(const iBase& other) const {
  const auto* emitter = dynamic_cast<const ParticleEmitter*>(&other);
  if (!emitter) return ObjectVolume::CommutesWith(other);
  const bool share = mGroup == emitter->mGroup && mKind == emitter->mKind;
  return !share || !(LooksAtOthers() || emitter->LooksAtOthers());
}

bool ParticleEmitter::PrepareEmission() {
  SetFlag(FLAG_ACTIVE, false);
  if (!mGroup) return Deactivate("it has no group; name one under 'group'");
  if (!mSettings) return Deactivate("it has no settings; name one under 'settings'");
  if (!IsParticleKind(mKind)) return Deactivate("there is no such kind of particles");
  if (mGroup->IsCached(mKind)) return Deactivate(kPlayedParticlesReason);
  if (mTime->stepDuration <= 0) return Deactivate(kNoStepReason);
  if (!mSettings->IsOpen(mTime->elapsed, TimeGiven(), mWeight)) return Deactivate(kClosedReason);
  FillTemplate();
  FindFull();
  mHandler.Begin(*mSettings, StepSeed(*this));
  return true;
}

bool ParticleEmitter::IsMadeOfOurs(const iFluidSolver& solver) const {
  const std::vector<ParticleGroup*>* groups = solver.LiquidGroups();
  return mKind == kLiquid && groups &&
         std::find(groups->begin(), groups->end(), mGroup) != groups->end();
}

void ParticleEmitter::FindFull() {
  mFull.clear();
  mRefused.fill({});
  for (const auto& [id, object] : mScene->List(kListSolvers)) {
    const auto* solver = dynamic_cast<const iFluidSolver*>(object.get());
    const auto* liquid = dynamic_cast<const FillsRooms*>(solver);
    if (liquid && !liquid->Full().IsEmpty() && solver->Has(FLAG_ENABLED) && IsMadeOfOurs(*solver))
      mFull.push_back(&liquid->Full());
  }
}

void ParticleEmitter::TellRefusal() {
  const auto first =
      std::find_if(mRefused.begin(), mRefused.end(),
                   [](const std::optional<Vec3d>& place) { return place.has_value(); });
  if (mHasToldRefusal || first == mRefused.end()) return;
  mHasToldRefusal = true;
  const Vec3d at = **first * GetDomain().simToWorld;
  mWarnings.push_back(
      fmt::format("no more comes in at [{:.4g}, {:.4g}, {:.4g}] from {:.3g} s on: the liquid fills "
                  "a sealed room there, and what came on top would only crowd; it goes on once "
                  "there is room",
                  at.x, at.y, at.z, mTime->elapsed));
}

bool ParticleEmitter::HasRoom(double births) {
  return mGroup->HasRoom(mKind, births, mTemplate) ||
         Deactivate("there is no memory for its particles");
}

bool ParticleEmitter::IsAllowed(const Vec3d& p, double weight, i32 share) const {
  if (!mConstraints.IsEmpty()) mConstraints.Test(p, weight, this, static_cast<u32>(share));
  return weight > 0;
}

std::optional<ImageObject::Sampler> ParticleEmitter::SamplerOf(const ImageObject* image) {
  if (!image) return std::nullopt;
  return ImageObject::Sampler(*image);
}

const VolumeBase* ParticleEmitter::FindBurial() const {
  constexpr i64 kMostLooks = 256;
  std::vector<VolumeBase*> obstacles;
  CollectObstacles(*mScene, obstacles);
  std::erase_if(obstacles, [&](const VolumeBase* obstacle) {
    return !obstacle->Has(FLAG_ENABLED) || obstacle == mVolume;
  });
  const ParticleBirths& births = mHandler.Births();
  const i64 count = births.Count(), stride = (count + kMostLooks - 1) / kMostLooks;
  if (count == 0) return nullptr;
  i64 index = 0;
  for (i32 share = 0; share < kShares && !obstacles.empty(); ++share)
    for (const Vec3d& p : births.Of(share).Positions())
      if (index++ % stride == 0)
        std::erase_if(obstacles, [&](const VolumeBase* obstacle) {
          // What is born on a surface may lie a little below it.
          return !obstacle->IsInBounds(p) ||
                 obstacle->DistanceAtWorld(p) > -obstacle->GetGrid()->mLayout.cellSize;
        });
  return obstacles.empty() ? nullptr : obstacles.front();
}

void ParticleEmitter::Reset() {
  ObjectVolume::Reset();
  mHasToldBurial = mHasToldRefusal = false;
  mWarnings.clear();
}

void ParticleEmitter::Persist(StateArchive& archive) {
  ObjectVolume::Persist(archive);
  archive(mHasToldBurial, mHasToldRefusal);
}

void ParticleEmitter::Finish() {
  if (Has(FLAG_ACTIVE)) {
    if (const VolumeBase* obstacle = mHasToldBurial ? nullptr : FindBurial()) {
      mHasToldBurial = true;
      mWarnings.push_back(fmt::format(
          "its particles are born inside of '{}', an obstacle, which lets them nowhere; "
          "move its source out, or take the obstacle tag off",
          obstacle->Node()->Name()));
    }
    TellRefusal();
    const bool madeNone = mGroup->Count(mKind) == 0 && mHandler.Births().Count() == 0;
    mGroup->Take(mKind, mHandler.Births());
    if (madeNone && !IsCancelled()) TakeBackRun(kNoPlaceReason);
  }
  mHandler.Births().Clear();
  if (mSettings && mSettings->mAlignment) mSettings->mAlignment->Unfollow();
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
  ObjectVolume::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
