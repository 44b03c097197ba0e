// One particle among many.
#pragma once
#include "fluids/particles/particle_columns.h"
#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A light handle on a row of columns; it lasts until a row is removed. One worker at a time
/// handles a particle.
class Particle {
 public:
  Particle(ParticleColumns& columns, i32 row) : mColumns(&columns), mRow(row) {}

  i32 Row() const { return mRow; }
  i32& Id() const { return mColumns->Ids()[mRow]; }
  u16& Flags() const { return mColumns->Flags()[mRow]; }
  Vec3d& Position() const { return mColumns->Positions()[mRow]; }
  Vec3d& Velocity() const { return mColumns->Velocities()[mRow]; }

  /// Positions (40) and velocities (37) are vectors that all particles have.
  bool HasProperty(const PropertyKey& key) const;
  /// The value, or `fallback` where the particle doesn't have the property.
  double GetScalar(const PropertyKey& key, double fallback) const;
  Vec3d GetVector(const PropertyKey& key, const Vec3d& fallback) const;
  bool GetBool(const PropertyKey& key, bool fallback) const;
  /// Change a property that the particle has; false where it has none.
  bool SetScalar(const PropertyKey& key, double value) const;
  bool SetVector(const PropertyKey& key, const Vec3d& value) const;
  bool SetBool(const PropertyKey& key, bool value) const;
  /// Change a property or give it to the particle; false for vectors below id 25 and switches below
  /// 50. A property that no particle has had so far gets its column, which workers may not do.
  bool AddScalar(const PropertyKey& key, double value, std::string_view name = {}) const;
  bool AddVector(const PropertyKey& key, const Vec3d& value, std::string_view name = {}) const;
  bool AddBool(const PropertyKey& key, bool value, std::string_view name = {}) const;
  /// Takes the property away: the scalar, else the vector, else the switch. False without one.
  bool RemoveProperty(const PropertyKey& key) const;

  void AddLink(const ParticleLink& link) const { mColumns->EditLinks(mRow).push_back(link); }

  double GetAge() const { return GetScalar(property_id::kAge, 1.0); }
  double GetLifeSpan() const { return GetScalar(property_id::kLifeSpan, 1.0); }
  /// 0 at birth, 1 at the end of its life.
  double GetNormalizedLife() const { return 1 - std::min(GetAge() / GetLifeSpan(), 1.0); }
  /// The matrix of its ellipsoid; axes that it doesn't have are the unit ones.
  Matrix GetFrame() const;
  void SetFrame(const Matrix& frame) const;

 private:
  ParticleColumns* mColumns;
  i32 mRow;
};

inline Particle ParticleColumns::At(i32 row) { return Particle(*this, row); }

}  // namespace MELDO_GLOBAL::MELDO_SULVA
