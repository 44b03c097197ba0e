#include "rigid/rigid_body_variational.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kCarried = 0.1;  // of what else drives a body
constexpr double kGust = 0.01;    // of its weight, by which a force of the scene wakes it

/// `change`, no longer than `most`.
Vec3d Limited(const Vec3d& change, double most) {
  const double length = Length(change);
  return length > most ? change * (most / length) : change;
}

}  // namespace

bool RigidBody_Variational::Create(const BodyGeometry& geometry, const ObstacleSettings& settings,
                                   double worldToSim, bool isKeyed, const BodyMotion* restored) {
  mPressed = mImpulse = mTurn = mFluidForce = mFluidTorque = {};
  mFirst.reset();
  mIsForeseen = mIsCarried = false;
  mIsNew = !restored || restored->isNew;
  mIsLulled = restored && restored->isLulled;
  mLull = restored ? restored->lull : Vec3d{};
  mBreeze = restored ? restored->breeze : Vec3d{};
  if (!RigidBody::Create(geometry, settings, worldToSim, isKeyed, restored)) return false;
  if (restored) {
    mImpulse = restored->impulse;
    mTurn = restored->turn;
    mIsCarried = restored->isCarried;
    mFluidForce = restored->fluidForce;
  }
  return true;
}

BodyMotion RigidBody_Variational::Motion() const {
  BodyMotion motion = RigidBody::Motion();
  motion.impulse = mImpulse;
  motion.turn = mTurn;
  motion.isCarried = mIsCarried;
  motion.fluidForce = mFluidForce;
  motion.isNew = mIsNew;
  motion.isLulled = mIsLulled;
  motion.lull = mLull;
  motion.breeze = mBreeze;
  return motion;
}

void RigidBody_Variational::Foresee(double dt, const Vec3d& gravity) {
  mIsUnderWay = dt > 0;
  mIsForeseen = IsDynamic() && !IsAsleep() && mIsUnderWay;
  mAhead = mIsForeseen ? dt : 0;
  mGravity = gravity;
  if (mIsForeseen) mIsNew = false;  // the projection of this step comes before its first one
}

RigidBody_Variational::Change RigidBody_Variational::Expected() const {
  if (!mIsForeseen) return {};
  const Vec3d fall = mGravity * Settings().linearFactor + mForce * InverseMass();
  const Vec3d spin = InverseInertia().Rotate(mTorque);
  const Vec3d linear = fall * mAhead + Limited(mContactLinear, Length(fall) * mAhead);
  // A body at rest on a slope or an edge is turned by the same contacts that hold it.
  return {linear, spin * mAhead + Limited(mContactAngular, Length(linear))};
}

void RigidBody_Variational::GetFlowVelocities(Vec3d& linear, Vec3d& angular) const {
  const ObstacleSettings& s = Settings();
  linear = LinearVelocity() - mFirst.value_or(Vec3d{});
  angular = AngularVelocity();
  if (IsDynamic()) {
    const Change expected = Expected();
    linear += expected.linear + mImpulse * InverseMass();
    angular += expected.angular + InverseInertia().Rotate(mTurn);
  }
  linear = linear * s.linearTransfer;
  angular = angular * s.angularTransfer;
}

Vec3d RigidBody_Variational::FlowInverseMass() const {
  const ObstacleSettings& s = Settings();
  if (!mIsForeseen) return {};
  return InverseMass() * std::max(0.0, s.linearTransfer * s.forceTransfer);
}

Matrix RigidBody_Variational::FlowInverseInertia() const {
  const ObstacleSettings& s = Settings();
  const double factor = !mIsForeseen ? 0 : std::max(0.0, s.angularTransfer * s.torqueTransfer);
  const Matrix inverse = InverseInertia();
  return {{}, inverse.v1 * factor, inverse.v2 * factor, inverse.v3 * factor};
}

void RigidBody_Variational::TakeFluidImpulse(const Vec3d& impulse, const Vec3d& torque, double dt) {
  if (!IsDynamic() || !(dt > 0)) return;
  const ObstacleSettings& s = Settings();
  // In the start frame the fluid stands still and so does the body.
  const double share = mIsUnderWay ? 1 : 0;
  const Vec3d given = impulse * (share * s.forceTransfer);
  const Vec3d turn = torque * (share * s.torqueTransfer);
  mFluidForce += given / dt;
  mFluidTorque += turn / dt;
  if (IsAsleep()) return;
  // Each fluid presses alone, but a body is carried by what they do together.
  mPressed += impulse;
  mIsCarried = Length(mPressed * InverseMass()) > kCarried * Length(Expected().linear);
  if (mIsForeseen) {
    mImpulse += given;
    mTurn += turn;
  }
  if (mFirst) MendFirstStep(mIsForeseen ? given : Vec3d{});
}

void RigidBody_Variational::MendFirstStep(const Vec3d& impulse) {
  // From rest, the step that is over would have had the same; one that was thrown moves the fluid
  // in a blow, of which that step tells nothing.
  const Vec3d change =
      mWasAtRest ? impulse * InverseMass() : (mIsCarried ? Vec3d{} : mFirstUntold) - *mFirst;
  AddVelocity(change);
  *mFirst += change;
}

/// The fluid round a sleeping body may come or go, and a gust may begin.
void RigidBody_Variational::WakeByForces(const Vec3d& gravity) {
  const ObstacleSettings& s = Settings();
  if (!std::exchange(mIsLulled, true)) {
    mLull = mFluidForce;
    mBreeze = mForce;
  }
  const bool isPushed =
      s.wakesOnForce && Length((mForce + mFluidForce) * s.linearFactor) > s.wakeForce;
  const double weight = Length(gravity * s.linearFactor);
  const bool isLeft = Length((mFluidForce - mLull) * InverseMass()) > kCarried * weight;
  // Without noise, unlike those of a fluid: what friction doesn't hold is to move.
  const bool isBlown = Length((mForce - mBreeze) * InverseMass()) > kGust * weight;
  if (isPushed || (!Waits() && (isLeft || isBlown))) Wake();
}

void RigidBody_Variational::BeginStep(double dt, const Vec3d& gravity) {
  if (IsDynamic() && dt > 0) {
    if (IsAsleep()) {
      WakeByForces(gravity);
    } else {
      mIsLulled = false;
      mForce += mImpulse / dt;
      mTorque += mTurn / dt;
    }
  }
  mFluidForce = mFluidTorque = {};
  mPressed = {};
  mFirst.reset();
  RigidBody::BeginStep(dt, gravity);
}

void RigidBody_Variational::EndStep(double dt) {
  RigidBody::EndStep(dt);
  if (std::exchange(mIsNew, IsAsleep()) && !IsAsleep() && IsDynamic() && Contacts().empty()) {
    mFirst = mFirstUntold = LinearVelocity() - mLinearBefore;
    mWasAtRest = mLinearBefore == Vec3d{};
  }
  // What nothing but a fluid holds may be left by it.
  // The next projection tells anew: what wakes on the ground would bounce off it.
  if (std::exchange(mIsCarried, false) && Contacts().empty()) StayAwake();
  mImpulse = mTurn = {};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
