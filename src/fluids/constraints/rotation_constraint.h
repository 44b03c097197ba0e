// How fast a flow turns.
#pragma once
#include "fluids/constraints/velocity_probe.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Measures the curl of a velocity at a point, 1/s: its length, or how far the flow runs along it,
/// m/s^2. Outside of the field and above the surface of a liquid a point is out.
class RotationConstraint : public MeasuredConstraint<RotationConstraint> {
 public:
  using MeasuredConstraint::MeasuredConstraint;
  static constexpr i32 kTypeId = 30;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  std::optional<double> Measure(const Vec3d& position, const ConstraintUse&) const;

 protected:
  bool Fetch() override;

 private:
  enum Mode : i32 { kCurl = 0, kHelicity = 1 };

  VelocityProbe mVelocity;
  i32 mMode = kCurl;
  bool mAbsolute = true;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
