// How solids go through a step.
#pragma once
#include "fluids/mesh/mesh.h"
#include "host/turn_by.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A stiff solid on its way through a step: it glides and turns evenly about its pivot, up to the
/// place of which its distances tell. Times are shares of the step. Simulation units.
class SolidMotion {
 public:
  SolidMotion() = default;  ///< of what rests
  /// `linear` is the way of the pivot in the step, `angular` axis times angle, `pivot` its end.
  SolidMotion(const Vec3d& linear, const Vec3d& angular, const Vec3d& pivot)
      : mLinear(linear),
        mAngular(angular),
        mPivot(pivot),
        mRests(linear == Vec3d{} && angular == Vec3d{}) {}
  static SolidMotion Of(const Mesh& mesh) {
    Vec3d linear, angular, pivot;
    mesh.GetVelocities(linear, angular);
    mesh.GetCentre(pivot);
    return {linear, angular, pivot};
  }

  bool Rests() const { return mRests; }
  /// Where what moves with the solid and is at `p` at `time` comes to be at the end of the step.
  Vec3d ToEnd(const Vec3d& p, double time) const {
    const double rest = 1 - time;
    return mPivot + TurnBy(mAngular * rest)(p - (mPivot - mLinear * rest));
  }
  /// Where it was at `time`, if it is at `p` at the end.
  Vec3d FromEnd(const Vec3d& p, double time) const {
    const double rest = 1 - time;
    return mPivot - mLinear * rest + TurnBy(mAngular * -rest)(p - mPivot);
  }
  /// The way that it goes in a step where it is at the end.
  Vec3d WayAt(const Vec3d& p) const { return mLinear + Cross(mAngular, p - mPivot); }
  /// The longest way of a point that is at most `reach` off the pivot.
  double Travel(double reach) const { return Length(mLinear) + Length(mAngular) * reach; }

 private:
  Vec3d mLinear{}, mAngular{}, mPivot{};
  bool mRests = true;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
