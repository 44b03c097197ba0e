#include "fluids/emission/particle_emission_handler.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

/// All bits of a word mixed: the finaliser of Steele, Lea, Flood, "Fast splittable pseudorandom
/// number generators" (2014).
u64 Mixed(u64 z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return z ^ (z >> 31);
}

}  // namespace

void ParticleEmissionHandler::Begin(const ParticleEmissionSettings& settings, u64 seed) {
  mSettings = &settings;
  mStreams.resize(kShares);
  for (std::size_t i = 0; i < mStreams.size(); ++i)
    mStreams[i].Seed(static_cast<u32>(Mixed(seed + (i + 1) * 0x9e3779b97f4a7c15u) >> 32));
  if (mSettings->mAlignment) mSettings->mAlignment->SetWorkerCount(kShares);
}

i32 ParticleEmissionHandler::Pick(i32 share, i32 count) {
  return std::min(static_cast<i32>(mStreams[share].NextUnit() * count), count - 1);
}

void ParticleEmissionHandler::Emit(const ParticleTemplate& particle, i32 share,
                                   const Vec3d* oldPosition) {
  ParticleColumns& births = mBirths.Of(share);
  const i32 row = births.Append(particle);
  births.Flags()[row] |= PF_ALIVE;
  births.Require<Vec3d>(property_id::kOldPosition)
      .Set(row, oldPosition ? *oldPosition : particle.position);
  if (particle.flags & PF_KIND_VORTICITY) {
    Vec3d axis{0, 1, 0};
    if (AlignmentVector3D* alignment = mSettings->mAlignment)
      alignment->GetDirection(axis, particle.position, static_cast<u32>(share));
    births.Require<Vec3d>(property_id::kVorticity).Set(row, Normalised(axis));
  }
  PropertyColumn<double>* age = births.Find<double>(property_id::kAge);
  if (mSettings->mAgeSpread <= 0 || !age || !age->Has(row)) return;
  const double life = age->Get(row, 1.0) * (1 - mSettings->mAgeSpread * mStreams[share].NextUnit());
  age->Set(row, life);
  births.Require<double>(property_id::kLifeSpan).Set(row, life);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
