#include "fluids/particles/particle.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

bool IsField(i32 id) { return id == property_id::kVelocity || id == property_id::kPosition; }

template <class T>
bool HasIn(const ParticleColumns& columns, const PropertyKey& key, i32 row) {
  return columns.FindOf<T>(key, row);
}

template <class T>
T GetIn(const ParticleColumns& columns, const PropertyKey& key, i32 row, const T& fallback) {
  const PropertyColumn<T>* column = columns.FindOf<T>(key, row);
  return column ? static_cast<T>(column->Get(row, fallback)) : fallback;
}

template <class T>
bool SetIn(ParticleColumns& columns, const PropertyKey& key, i32 row, const T& value) {
  PropertyColumn<T>* column = columns.FindOf<T>(key, row);
  if (column) column->Set(row, value);
  return column;
}

template <class T>
bool RemoveIn(ParticleColumns& columns, const PropertyKey& key, i32 row) {
  PropertyColumn<T>* column = columns.FindOf<T>(key, row);
  if (column) column->Remove(row);
  return column;
}

}  // namespace

bool Particle::HasProperty(const PropertyKey& key) const {
  if (IsField(key.id)) return true;
  return ((key.id < property_id::kFirstVector || key.id >= property_id::kFirstUser) &&
          HasIn<double>(*mColumns, key, mRow)) ||
         ((key.id < property_id::kFirstBool || key.id >= property_id::kFirstUser) &&
          HasIn<Vec3d>(*mColumns, key, mRow)) ||
         HasIn<bool>(*mColumns, key, mRow);
}

double Particle::GetScalar(const PropertyKey& key, double fallback) const {
  return GetIn(*mColumns, key, mRow, fallback);
}

Vec3d Particle::GetVector(const PropertyKey& key, const Vec3d& fallback) const {
  if (key.id == property_id::kVelocity) return Velocity();
  if (key.id == property_id::kPosition) return Position();
  return GetIn(*mColumns, key, mRow, fallback);
}

bool Particle::GetBool(const PropertyKey& key, bool fallback) const {
  return GetIn(*mColumns, key, mRow, fallback);
}

bool Particle::SetScalar(const PropertyKey& key, double value) const {
  return SetIn(*mColumns, key, mRow, value);
}

bool Particle::SetVector(const PropertyKey& key, const Vec3d& value) const {
  if (!IsField(key.id)) return SetIn(*mColumns, key, mRow, value);
  (key.id == property_id::kVelocity ? Velocity() : Position()) = value;
  return true;
}

bool Particle::SetBool(const PropertyKey& key, bool value) const {
  return SetIn(*mColumns, key, mRow, value);
}

bool Particle::AddScalar(const PropertyKey& key, double value, std::string_view name) const {
  mColumns->Require<double>(key, name).Set(mRow, value);
  return true;
}

bool Particle::AddVector(const PropertyKey& key, const Vec3d& value, std::string_view name) const {
  if (key.id < property_id::kFirstVector) return false;
  if (IsField(key.id)) return SetVector(key, value);
  mColumns->Require<Vec3d>(key, name).Set(mRow, value);
  return true;
}

bool Particle::AddBool(const PropertyKey& key, bool value, std::string_view name) const {
  if (key.id < property_id::kFirstBool) return false;
  mColumns->Require<bool>(key, name).Set(mRow, value);
  return true;
}

bool Particle::RemoveProperty(const PropertyKey& key) const {
  if (IsField(key.id)) return false;
  return RemoveIn<double>(*mColumns, key, mRow) || RemoveIn<Vec3d>(*mColumns, key, mRow) ||
         RemoveIn<bool>(*mColumns, key, mRow);
}

Matrix Particle::GetFrame() const {
  const Matrix unit;
  return {{},
          GetVector(property_id::kEllipsoidX, unit.v1),
          GetVector(property_id::kEllipsoidY, unit.v2),
          GetVector(property_id::kEllipsoidZ, unit.v3)};
}

void Particle::SetFrame(const Matrix& frame) const {
  AddVector(property_id::kEllipsoidX, frame.v1);
  AddVector(property_id::kEllipsoidY, frame.v2);
  AddVector(property_id::kEllipsoidZ, frame.v3);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
