#include "rigid/rigid_body_variational.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kCarried = 0.1;  // of what else drives a body

/// `change`, no longer than `most`.
Vec3d Limited(const Vec3d& change, double most) {
  const double length = Length(change);
  return length > most ? change * (most / length) : change;
}

}  // namespace

bool RigidBody_Variational::Create(const BodyGeometry& geometry, const ObstacleSettings& settings,
                                   double worldToSim, bool isKeyed, const BodyMotion* restored) {
  mImpulse = mTurn = mFluidForce = mFluidTorque = {};
  mFirst.reset();
  mIsForeseen = mIsCarried = false;
  mIsNew = !restored || restored->isNew;
  mIsLulled = restored && restored->isLulled;
  mLull = restored ? restored->lull : Vec3d{};
  if (!RigidBody::Create(geometry, settings, worldToSim, isKeyed, restored)) return false;
  if (restored) {
    mImpulse = restored->impulse;
    mTurn = restored->turn;
    mIsCarried = restored->isCarried;
  }
  return true;
}

BodyMotion RigidBody_Variational::Motion() const {
  BodyMotion motion = RigidBody::Motion();
  motion.impulse = mImpulse;
  motion.turn = mTurn;
  motion.isCarried = mIsCarried;
  motion.isNew = mIsNew;
  motion.isLulled = mIsLulled;
  motion.lull = mLull;
  return motion;
}

void RigidBody_Variational::Foresee(double dt, const Vec3d& gravity) {
  mIsUnderWay = dt > 0;
  mIsForeseen = IsDynamic() && !IsAsleep() && mIsUnderWay;
  mAhead = mIsForeseen ? dt : 0;
  mGravity = gravity;
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
  if (IsAsleep()) return WakeBy(impulse * ((mIsUnderWay ? s.forceTransfer : 0) / dt));
  mIsLulled = false;
  // In the start frame the fluid stands still and so does the body.
  const double share = mIsForeseen ? 1 : 0;
  mImpulse += impulse * (share * s.forceTransfer);
  mTurn += torque * (share * s.torqueTransfer);
  mIsCarried = Length(impulse * InverseMass()) > kCarried * Length(Expected().linear);
  if (mFirst) {
    // From rest, the step that is over would have had the same; one that was thrown moves the fluid
    // in a blow, of which that step tells nothing.
    Vec3d change{};
    if (mWasAtRest)
      change = impulse * (share * s.forceTransfer) * InverseMass();
    else if (mIsCarried)
      change = *mFirst * -1.0;
    AddVelocity(change);
    *mFirst += change;
  }
  mFluidForce = mImpulse / dt;
  mFluidTorque = mTurn / dt;
}

/// The fluid round a sleeping body may come or go.
void RigidBody_Variational::WakeBy(const Vec3d& force) {
  const ObstacleSettings& s = Settings();
  if (!std::exchange(mIsLulled, true)) mLull = force;
  if (s.wakesOnForce) {
    if (Length(force) > s.wakeForce) Wake();
  } else if (!s.wakesOnContact) {
    const double change = Length((force - mLull) * InverseMass());
    if (change > kCarried * Length(mGravity * s.linearFactor)) Wake();
  }
}

void RigidBody_Variational::BeginStep(double dt, const Vec3d& gravity) {
  if (IsDynamic() && dt > 0) {
    mForce += mImpulse / dt;
    mTorque += mTurn / dt;
  }
  mFluidForce = mFluidTorque = {};
  mFirst.reset();
  RigidBody::BeginStep(dt, gravity);
}

void RigidBody_Variational::EndStep(double dt) {
  RigidBody::EndStep(dt);
  if (std::exchange(mIsNew, IsAsleep()) && !IsAsleep() && IsDynamic() && Contacts().empty()) {
    mFirst = LinearVelocity() - mLinearBefore;
    mWasAtRest = mLinearBefore == Vec3d{};
  }
  // What nothing but a fluid holds may be left by it.
  if (mIsCarried && Contacts().empty()) StayAwake();
  // Until it knows again: what wakes on the ground would bounce off it.
  if (IsAsleep()) mIsCarried = false;
  mImpulse = mTurn = {};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
