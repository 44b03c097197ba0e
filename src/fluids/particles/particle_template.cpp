#include "fluids/particles/particle_template.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

template <class T>
T* FindIn(std::vector<ParticleTemplate::Entry<T>>& entries, const PropertyKey& key) {
  for (ParticleTemplate::Entry<T>& entry : entries)
    if (entry.key.Answers(key)) return &entry.value;
  return nullptr;
}

template <class T>
void SetIn(std::vector<ParticleTemplate::Entry<T>>& entries, const PropertyKey& key, const T& value,
           std::string_view name) {
  if (T* found = FindIn(entries, key)) {
    *found = value;
  } else {
    entries.push_back({key, std::string(name), value});
  }
}

}  // namespace

void ParticleTemplate::Set(const PropertyKey& key, double value, std::string_view name) {
  SetIn(scalars, key, value, name);
}

void ParticleTemplate::Set(const PropertyKey& key, const Vec3d& value, std::string_view name) {
  if (key.id == property_id::kVelocity) {
    velocity = value;
  } else if (key.id == property_id::kPosition) {
    position = value;
  } else {
    SetIn(vectors, key, value, name);
  }
}

void ParticleTemplate::Set(const PropertyKey& key, bool value, std::string_view name) {
  SetIn(switches, key, value, name);
}

double* ParticleTemplate::FindScalar(const PropertyKey& key) { return FindIn(scalars, key); }

Vec3d* ParticleTemplate::FindVector(const PropertyKey& key) {
  if (key.id == property_id::kVelocity) return &velocity;
  if (key.id == property_id::kPosition) return &position;
  return FindIn(vectors, key);
}

void ParticleTemplate::Remove(const PropertyKey& key) {
  const auto drop = [&](auto& entries) {
    std::erase_if(entries, [&](const auto& entry) { return entry.key.Answers(key); });
  };
  drop(scalars);
  drop(vectors);
  drop(switches);
}

double ParticleTemplate::Bytes() const {
  constexpr double fields = 2 * sizeof(Vec3d) + sizeof(i32) + sizeof(u16);
  const double bits = static_cast<double>(scalars.size() + vectors.size() + switches.size()) / 8;
  return fields + bits + sizeof(double) * static_cast<double>(scalars.size()) +
         sizeof(Vec3d) * static_cast<double>(vectors.size()) + static_cast<double>(switches.size());
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
