// Nodes that declare properties of particles.
#pragma once
#include "fluids/particles/particle_template.h"
#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A property that particles may have, and the value that they get. Emitters give those that they
/// list to what they make; whoever else links it means the property of each particle.
class iProperty : public iBase {
 public:
  using iBase::iBase;
  static constexpr i32 kPropertyRow = 2001, kValueRow = 1000;

  i32 PropertyId() const { return mPropertyId; }
  /// What finds it in columns and templates.
  PropertyKey Key() const { return {mPropertyId, Node() ? Node()->Id() : 0}; }
  /// Gives the property and its value to a template.
  virtual void AddTo(ParticleTemplate& particle) const = 0;

 protected:
  i32 mPropertyId = 75;
};

/// A property of one type: bool, double or Vec3d.
template <class T>
class Property : public iProperty {
 public:
  using iProperty::iProperty;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  bool ReadParameters() override;
  void AddTo(ParticleTemplate& particle) const override { particle.Set(Key(), mValue, mName); }
  /// Simulation units for a radius.
  const T& Value() const { return mValue; }

 private:
  T mValue{};
};

template <>
const NodeKind& Property<bool>::Kind();
template <>
const NodeKind& Property<double>::Kind();
template <>
const NodeKind& Property<Vec3d>::Kind();
template <>
const host::ParameterTable& Property<bool>::Parameters();
template <>
const host::ParameterTable& Property<double>::Parameters();
template <>
const host::ParameterTable& Property<Vec3d>::Parameters();
extern template class Property<bool>;
extern template class Property<double>;
extern template class Property<Vec3d>;

}  // namespace MELDO_GLOBAL::MELDO_SULVA
