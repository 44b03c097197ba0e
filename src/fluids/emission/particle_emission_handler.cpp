#include "fluids/emission/particle_emission_handler.h"

#include <algorithm>

#include "fluids/emission/stream_seeds.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void ParticleEmissionHandler::Begin(const ParticleEmissionSettings& settings, u64 seed) {
  mSettings = &settings;
  mStreams.resize(kShares);
  SeedStreams(mStreams, seed);
  if (mSettings->mAlignment) mSettings->mAlignment->SetWorkerCount(kShares, seed);
}

i32 ParticleEmissionHandler::Pick(i32 share, i32 count) {
  return std::min(static_cast<i32>(mStreams[share].NextUnit() * count), count - 1);
}

void ParticleEmissionHandler::Complete(ParticleTemplate& particle) {
  using enum property_id::Id;
  particle.Set(kOldPosition, Vec3d{});
  if (particle.flags & PF_KIND_VORTICITY) particle.Set(kVorticity, Vec3d{});
  if (!(particle.flags & PF_KIND_DIFFUSE)) return;
  for (const i32 id : {kAge, kLifeSpan})
    if (!particle.FindScalar(id)) particle.Set(id, 0.0);
}

void ParticleEmissionHandler::Emit(const ParticleTemplate& particle, i32 share, const Vec3d& normal,
                                   const Vec3d* oldPosition) {
  ParticleColumns& births = mBirths.Of(share);
  const i32 row = births.Append(particle);
  births.Flags()[row] |= PF_ALIVE;
  births.Require<Vec3d>(property_id::kOldPosition)
      .Set(row, oldPosition ? *oldPosition : particle.position);
  if (particle.flags & PF_KIND_VORTICITY) {
    Vec3d axis{0, 1, 0};
    if (AlignmentVector3D* alignment = mSettings->mAlignment)
      alignment->GetDirectionOn(axis, particle.position, normal, static_cast<u32>(share));
    births.Require<Vec3d>(property_id::kVorticity).Set(row, Normalised(axis));
  }
  PropertyColumn<double>* age = births.Find<double>(property_id::kAge);
  if (mSettings->mAgeSpread <= 0 || !age || !age->Has(row)) return;
  const double life = age->Get(row, 1.0) * (1 - mSettings->mAgeSpread * mStreams[share].NextUnit());
  age->Set(row, life);
  births.Require<double>(property_id::kLifeSpan).Set(row, life);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
