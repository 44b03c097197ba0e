// Properties of any type as numbers.
#pragma once
#include "fluids/particles/particle_property.h"
#include "fluids/particles/particle_store.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// One property of the particles of a store as three numbers, whatever its type: a scalar stands in
/// all three, a switch is 0 or 1. Workers may set those of different ranges of
/// `ParticleColumns::PartOf`.
class PropertyNumbers {
 public:
  /// On the pipeline thread. With `makes` a column that isn't there is made, without values; else
  /// no particle has the property. It lasts as long as pointers to columns.
  PropertyNumbers(ParticleStore& store, const iProperty& property, bool makes);
  PropertyNumbers() = default;

  /// Whether some particle has it.
  bool IsAnywhere() const {
    return mField || (mScalar && mScalar->IsAnywhere()) || (mVector && mVector->IsAnywhere()) ||
           (mSwitch && mSwitch->IsAnywhere());
  }
  bool IsVector() const { return mField || mVector; }
  bool Has(i32 row) const {
    return mField || (mScalar && mScalar->Has(row)) || (mVector && mVector->Has(row)) ||
           (mSwitch && mSwitch->Has(row));
  }
  /// What an absent one counts as: the radius that particles without one have, 1 for mass, age and
  /// life span, else 0.
  Vec3d Get(i32 row) const;
  /// A scalar takes the first of them, and a switch is on from 0.5 up. Given to the particle
  /// whether it had one or not.
  void Set(i32 row, const Vec3d& value);

 private:
  Vec3d* mField = nullptr;  ///< the own field of the particles, such as their velocities
  PropertyColumn<double>* mScalar = nullptr;
  PropertyColumn<Vec3d>* mVector = nullptr;
  PropertyColumn<bool>* mSwitch = nullptr;
  double mAbsent = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
