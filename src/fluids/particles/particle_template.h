// What a new particle is made of.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "fluids/particles/particle_flags.h"
#include "fluids/particles/particle_property_ids.h"
#include "host/vector.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A particle as a value: its fields and the properties that it has. An emitter keeps one, changes
/// what differs, and makes particles of it.
struct ParticleTemplate {
  template <class T>
  struct Entry {
    PropertyKey key;
    std::string name;
    T value{};
  };

  u16 flags = kBornFlags;
  Vec3d position{};
  Vec3d velocity{};
  std::vector<Entry<double>> scalars;
  std::vector<Entry<Vec3d>> vectors;
  std::vector<Entry<bool>> switches;

  /// Gives the template a property, or its property another value. Vectors 37 and 40 are fields.
  void Set(const PropertyKey& key, double value, std::string_view name = {});
  void Set(const PropertyKey& key, const Vec3d& value, std::string_view name = {});
  void Set(const PropertyKey& key, bool value, std::string_view name = {});
  /// The value of a property, to read or change it; null where the template has none. Pointers
  /// last until a property is added or removed.
  double* FindScalar(const PropertyKey& key);
  Vec3d* FindVector(const PropertyKey& key);
  void Remove(const PropertyKey& key);
  /// Bytes of a particle made of it in columns.
  double Bytes() const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
