#include "fluids/emission/particle_emitter.h"

#include "framework/node_kind.h"
#include "framework/rest.h"
#include "framework/scene.h"

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
}

u64 ParticleEmitter::Seed() const {
  // FNV-1a over what tells the stream of this emitter and step from all others.
  u64 hash = 0xcbf29ce484222325u;
  const auto add = [&](u64 byte) { hash = (hash ^ byte) * 0x100000001b3u; };
  const auto addWord = [&](u32 word) {
    for (i32 shift = 0; shift < 32; shift += 8) add(word >> shift & 0xff);
  };
  for (const char c : Node()->Path()) add(static_cast<u8>(c));
  addWord(static_cast<u32>(mScene->mSeed));
  addWord(static_cast<u32>(mTime->frameIndex));
  addWord(mTime->substep);
  return hash;
}

bool ParticleEmitter::PrepareEmission() {
  SetFlag(FLAG_ACTIVE, false);
  if (!mGroup) return Deactivate("it has no group; name one under 'group'");
  if (!mSettings)
    return Deactivate("it has no settings; name one under 'settings'");
  if (!IsParticleKind(mKind)) return Deactivate("there is no such kind of particles");
  if (mGroup->IsCached(mKind)) return Deactivate(kPlayedParticlesReason);
  if (mTime->stepDuration <= 0) return Deactivate(kNoStepReason);
  if (!mSettings->IsOpen(mTime->elapsed, mWeight)) return Deactivate(kClosedReason);
  FillTemplate();
  mHandler.Begin(*mSettings, Seed());
  return true;
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

void ParticleEmitter::Finish() {
  if (Has(FLAG_ACTIVE)) mGroup->Take(mKind, mHandler.Births());
  mHandler.Births().Clear();
  mConstraints.Finish(this);
  SetFlag(FLAG_ACTIVE, false);
  ObjectVolume::Finish();
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
