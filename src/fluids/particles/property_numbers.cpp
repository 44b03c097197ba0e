#include "fluids/particles/property_numbers.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

template <class T>
PropertyColumn<T>* ColumnOf(ParticleStore& store, const iProperty& property, bool makes) {
  return makes ? &store.Require<T>(property.Key(), property.mName) : store.Find<T>(property.Key());
}

double CountsAsWithout(const ParticleStore& store, i32 id) {
  switch (id) {
    case property_id::kRadius: return store.DefaultRadius();
    case property_id::kMass:
    case property_id::kAge:
    case property_id::kLifeSpan: return 1;
    default: return 0;
  }
}

}  // namespace

PropertyNumbers::PropertyNumbers(ParticleStore& store, const iProperty& property, bool makes)
    : mAbsent(CountsAsWithout(store, property.PropertyId())) {
  if (property.PropertyId() == property_id::kVelocity)
    mField = store.Velocities().data();
  else if (property.PropertyId() == property_id::kPosition)
    mField = store.Positions().data();
  else if (dynamic_cast<const Property<double>*>(&property))
    mScalar = ColumnOf<double>(store, property, makes);
  else if (dynamic_cast<const Property<Vec3d>*>(&property))
    mVector = ColumnOf<Vec3d>(store, property, makes);
  else
    mSwitch = ColumnOf<bool>(store, property, makes);
}

Vec3d PropertyNumbers::Get(i32 row) const {
  if (mField) return mField[row];
  if (mVector) return mVector->Get(row, {});
  double number = mAbsent;
  if (mScalar) number = mScalar->Get(row, mAbsent);
  if (mSwitch) number = mSwitch->Get(row, false) ? 1.0 : 0.0;
  return {number, number, number};
}

void PropertyNumbers::Set(i32 row, const Vec3d& value) {
  if (mField) mField[row] = value;
  if (mVector) mVector->Set(row, value);
  if (mScalar) mScalar->Set(row, value.x);
  if (mSwitch) mSwitch->Set(row, value.x >= 0.5);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
