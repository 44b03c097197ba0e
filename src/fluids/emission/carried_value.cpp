#include "fluids/emission/carried_value.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

const iProperty* PropertyOf(const ChannelValue& value) {
  for (iBase* object : {value.mScalarProperty, value.mVectorProperty, value.mBoolProperty})
    if (const auto* property = dynamic_cast<const iProperty*>(object)) return property;
  return nullptr;
}

}  // namespace

CarriedValue::CarriedValue(const ChannelValue& value, const ParticleStore& store)
    : mFallback(value.mScalar ? Vec3d{value.mValue, value.mValue, value.mValue} : value.mVector),
      mIsScalar(value.mScalar != nullptr) {
  const iProperty* property = PropertyOf(value);
  mIsOfEach = property != nullptr;
  if (!property) return;
  const PropertyKey key = property->Key();
  if (key.id == property_id::kVelocity) mField = store.Velocities();
  if (key.id == property_id::kPosition) mField = store.Positions();
  mNumbers = store.Find<double>(key);
  mVectors = store.Find<Vec3d>(key);
  mSwitches = store.Find<bool>(key);
}

Vec3d CarriedValue::At(i32 row) const {
  const auto ofVector = [&](const Vec3d& v) { return mIsScalar ? Vec3d{Length(v), 0, 0} : v; };
  if (!mField.empty()) return ofVector(mField[row]);
  if (mNumbers && mNumbers->Has(row)) {
    const double number = mNumbers->Get(row, 0);
    return {number, number, number};
  }
  if (mVectors && mVectors->Has(row)) return ofVector(mVectors->Get(row, {}));
  if (mSwitches && mSwitches->Has(row)) return mFallback * (mSwitches->Get(row, false) ? 1.0 : 0.0);
  return mFallback;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
