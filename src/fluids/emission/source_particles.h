// Particles from which others come.
#pragma once
#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_property.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The living particles of one kind of a group as places for new ones, to which they hand on values
/// of properties. As long as nothing changes the group.
class SourceParticles {
 public:
  void Begin(const ParticleStore& store, std::span<iProperty* const> handedOn);
  void Clear();
  i32 Count() const { return static_cast<i32>(mRows.size()); }
  const Vec3d& PositionOf(i32 index) const { return mStore->Positions()[mRows[index]]; }
  /// What a particle has of a property of its own; `fallback` where it has none.
  template <class T>
  T ValueOf(i32 id, i32 index, const T& fallback = {}) const {
    const PropertyColumn<T>* column = mStore->Find<T>(id);
    return column ? static_cast<T>(column->Get(mRows[index], fallback)) : fallback;
  }
  /// Whether any particle has ever had a number.
  bool Knows(i32 id) const { return mStore && mStore->Find<double>(id); }
  /// Gives all properties to a template, with the values of their nodes.
  void AddTo(ParticleTemplate& particle) const;
  /// Gives it those values that a particle has, and those of the nodes for the others.
  void HandOn(i32 index, ParticleTemplate& particle) const;

 private:
  template <class T>
  bool Give(const PropertyKey& key, i32 row, ParticleTemplate& particle) const;

  const ParticleStore* mStore = nullptr;
  std::vector<i32> mRows;
  enum class Held : i32 { kReal, kVector, kBool };
  struct HandedOn {
    const iProperty* property;
    Held held;  ///< what the node's own values are
  };
  std::vector<HandedOn> mHandedOn;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
