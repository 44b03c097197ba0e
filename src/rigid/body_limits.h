// Where the settings of a rigid body count, and how much.
#pragma once
#include <array>

#include "fluids/mesh/obstacle_settings.h"
#include "framework/constraint.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What the constraints of an obstacle tag leave of a body's damping, friction and restitution at a
/// place: factors of these settings, 1 where the tag names none.
class BodyLimits {
 public:
  enum Limit { kLinearDamping, kAngularDamping, kFriction, kRollingFriction, kRestitution };

  /// Before a step of the world; `owner` is the mesh of the body.
  void Prepare(const ObstacleSettings& settings, const iBase* owner);
  void Finish();
  bool Has(Limit limit) const { return !mLists[limit].IsEmpty(); }
  /// `place` in simulation units. 1 outside of a step.
  double Factor(Limit limit, const Vec3d& place) const;

 private:
  static constexpr std::size_t kLimits = 5;
  std::array<ConstraintList, kLimits> mLists;
  const iBase* mOwner = nullptr;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
