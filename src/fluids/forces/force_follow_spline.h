// Along a spline.
#pragma once
#include "fluids/forces/field_force.h"
#include "host/spline_line.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Steers what flows or flies onto a spline and along it, as flocks steer (Reynolds 1999): the
/// change that leads from the velocity that is there to the one that is wanted, no longer than a
/// limit. The limits are what the force may change in 1/25 s, so that steps of any length steer as
/// hard; the weights of places and of the time window scale the whole.
class Force_FollowSpline : public FieldForce {
 public:
  using FieldForce::FieldForce;
  static const NodeKind& Kind();
  static const host::ParameterTable& Parameters();
  static constexpr i32 kSplineRow = 1000, kPullForceRow = 1004, kReachRow = 1005, kModeRow = 1006,
                       kPullSpeedRow = 1007, kPullWeightRow = 1008, kSegmentRow = 1009,
                       kPointRow = 1010, kLengthRow = 1011, kFollowDistanceRow = 1012,
                       kBackwardsRow = 1013, kFollowSpeedRow = 1014, kFollowWeightRow = 1015,
                       kFollowForceRow = 1016;
  enum Mode : i32 { kNearestLine = 0, kNearestPoint = 1, kPoint = 2, kLength = 3 };
  static constexpr double kPace = 25;  ///< 1/s: of the limits
  void ClearLinks() override;
  /// The velocity that is there counts: no mere place has one.
  bool ActsAnywhere() const override { return false; }
  bool ActsOnParticles() const override { return true; }

  /// The change of a velocity towards `speed` along `direction`, at most `limit`, times `weight`;
  /// none without a direction.
  static Vec3d Steer(const Vec3d& velocity, const Vec3d& direction, double speed, double limit,
                     double weight);

 protected:
  bool PrepareForce() override;
  void AddField(const FieldPoints& points) const override;
  double Scale(double weight) const override { return weight * mWeight; }

 private:
  std::optional<host::NearestOnSpline> PlaceFor(const Vec3d& p) const;
  Vec3d VelocityAt(const FieldPoints& points, std::size_t i) const;

  host::SplineObject* mSpline = nullptr;
  double mReach = 300;  ///< host units, as all lengths and speeds here
  i32 mMode = kNearestLine;
  double mPullSpeed = 100, mPullShare = 0.25, mPullWeight = 1;
  i32 mSegment = 1, mPoint = 0;  ///< from 1 and from 0
  double mLength = 300;
  double mFollowDistance = 20, mFollowSpeed = 10, mFollowShare = 0.25, mFollowWeight = 1;
  i32 mBackwards = 0;

  // For one step, simulation units.
  host::SplineTracker mTracker;
  host::SplinePlace mFixed;
  double mToSim = 1;
  double mPace = 1;  ///< of the limits, in this step
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
