// What single particles bring into a field.
#pragma once
#include "fluids/emission/channel_value.h"
#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_property.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Reads the property that a channel value links from the particles of a store, as long as neither
/// changes. Of another type than the field a vector counts by its length, a number in all
/// components, a switch as 0 or 1 times the channel value's own value, which also stands for
/// particles without the property.
class CarriedValue {
 public:
  CarriedValue(const ChannelValue& value, const ParticleStore& store);
  /// False: all particles bring the channel value's own value.
  bool IsOfEach() const { return mIsOfEach; }
  /// A number for a field of numbers stands in x.
  Vec3d At(i32 row) const;

 private:
  Vec3d mFallback;
  bool mIsScalar, mIsOfEach = false;
  std::span<const Vec3d> mField;  ///< velocities or positions
  const PropertyColumn<double>* mNumbers = nullptr;
  const PropertyColumn<Vec3d>* mVectors = nullptr;
  const PropertyColumn<bool>* mSwitches = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
