#include "fluids/particles/particle.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

bool IsField(i32 id) { return id == property_id::kVelocity || id == property_id::kPosition; }

template <class T>
bool HasIn(const ParticleColumns& columns, const PropertyKey& key, i32 row) {
  const PropertyColumn<T>* column = columns.Find<T>(key);
  return column && column->Has(row);
}

template <class T>
bool SetIn(ParticleColumns& columns, const PropertyKey& key, i32 row, const T& value) {
  PropertyColumn<T>* column = columns.Find<T>(key);
  if (!column || !column->Has(row)) return false;
  column->Set(row, value);
  return true;
}

template <class T>
bool RemoveIn(ParticleColumns& columns, const PropertyKey& key, i32 row) {
  if (!HasIn<T>(columns, key, row)) return false;
  columns.Find<T>(key)->Remove(row);
  return true;
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
  const PropertyColumn<double>* column = mColumns->Find<double>(key);
  return column ? column->Get(mRow, fallback) : fallback;
}

Vec3d Particle::GetVector(const PropertyKey& key, const Vec3d& fallback) const {
  if (key.id == property_id::kVelocity) return Velocity();
  if (key.id == property_id::kPosition) return Position();
  const PropertyColumn<Vec3d>* column = mColumns->Find<Vec3d>(key);
  return column ? column->Get(mRow, fallback) : fallback;
}

bool Particle::GetBool(const PropertyKey& key, bool fallback) const {
  const PropertyColumn<bool>* column = mColumns->Find<bool>(key);
  return column ? column->Get(mRow, fallback) : fallback;
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
