// What a mesh asks of the rigid body that moves it.
#pragma once

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How a rigid body takes part in the world of bodies.
class BodyState {
 public:
  virtual ~BodyState() = default;
  /// Forces move it.
  virtual bool IsDynamic() const = 0;
  /// Keys move it, and it pushes others.
  virtual bool IsKinematic() const = 0;
  /// Nothing moves it.
  virtual bool IsStatic() const = 0;
  virtual double Mass() const = 0;     ///< kg
  virtual double Density() const = 0;  ///< kg/m^3
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
