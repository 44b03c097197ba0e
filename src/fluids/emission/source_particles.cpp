#include "fluids/emission/source_particles.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void SourceParticles::Begin(const ParticleStore& store, std::span<iProperty* const> handedOn) {
  Clear();
  mStore = &store;
  for (i32 row = 0; row < store.Count(); ++row)
    if (store.Flags()[row] & PF_ALIVE) mRows.push_back(row);
  for (const iProperty* property : handedOn)
    if (property->Has(FLAG_ENABLED))
      mHandedOn.push_back({property, dynamic_cast<const Property<Vec3d>*>(property)  ? Held::kVector
                                     : dynamic_cast<const Property<bool>*>(property) ? Held::kBool
                                                                                     : Held::kReal});
}

void SourceParticles::Clear() {
  mStore = nullptr;
  mRows.clear();
  mHandedOn.clear();
}

void SourceParticles::AddTo(ParticleTemplate& particle) const {
  for (const HandedOn& one : mHandedOn) one.property->AddTo(particle);
}

template <class T>
bool SourceParticles::Give(const PropertyKey& key, i32 row, ParticleTemplate& particle) const {
  const PropertyColumn<T>* column = mStore->Find<T>(key);
  if (!column || !column->Has(row)) return false;
  particle.Set(key, static_cast<T>(column->Get(row, T{})));
  return true;
}

void SourceParticles::HandOn(i32 index, ParticleTemplate& particle) const {
  const i32 row = mRows[index];
  for (const auto& [property, held] : mHandedOn) {
    const PropertyKey key = property->Key();
    const bool isGiven = held == Held::kVector ? Give<Vec3d>(key, row, particle)
                         : held == Held::kBool ? Give<bool>(key, row, particle)
                                               : Give<double>(key, row, particle);
    if (key.id == property_id::kVelocity)
      particle.velocity = mStore->Velocities()[row];
    else if (!isGiven)
      property->AddTo(particle);
    else if (key.id == property_id::kAge)
      Give<double>(property_id::kLifeSpan, row, particle);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
