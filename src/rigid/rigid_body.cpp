#include "rigid/rigid_body.h"

#include <BulletDynamics/Dynamics/btRigidBody.h>
#include <LinearMath/btDefaultMotionState.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

#include "rigid/body_home.h"
#include "rigid/bullet_frame.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kFree = 1e-2;  // of what drives a body: less from elsewhere isn't a contact
constexpr double kCalm = 2;     // seconds after which a slow body sleeps
constexpr double kSwept = 0.9;  // of the ball in a body: what doesn't scrape along what it lies on

Matrix Turned(const Matrix& a, const Matrix& b) {
  return {{}, a.Rotate(b.v1), a.Rotate(b.v2), a.Rotate(b.v3)};
}

Matrix Transposed(const Matrix& a) {
  return {{}, {a.v1.x, a.v2.x, a.v3.x}, {a.v1.y, a.v2.y, a.v3.y}, {a.v1.z, a.v2.z, a.v3.z}};
}

}  // namespace

RigidBody::RigidBody(BodyHome& world, std::string name) : mWorld(world), mName(std::move(name)) {}

RigidBody::~RigidBody() { Remove(); }

void RigidBody::Remove() {
  if (mBody) mWorld.Remove(*mBody);
  mBody.reset();
  mMotion.reset();
}

bool RigidBody::Create(const BodyGeometry& geometry, const ObstacleSettings& settings,
                       double worldToSim, bool isKeyed, const BodyMotion* restored) {
  Remove();
  mHasLeft = false;
  mTouches = 0;
  if (geometry.triangles.empty()) return false;
  BodyGeometry solid = geometry;
  if (!mMass.Find(solid, settings, worldToSim)) return false;
  mWorldToSim = worldToSim;
  mMargin = MarginOf(settings);
  if (!mShape.Make(solid, settings.form, settings.IsHeavy(), mMargin)) return false;

  mSettings = settings;
  if (restored) {
    mHasLeft = restored->hasLeft;
    mMass.Restore(*restored);
  }
  const btTransform place =
      restored ? btTransform(AxesToBullet(restored->axes), ToBullet(restored->centre))
               : btTransform(AxesToBullet(mMass.Axes()), ToBullet(mMass.Centre()));
  mMotion = std::make_unique<btDefaultMotionState>(place);
  mBody = std::make_unique<btRigidBody>(0.0, mMotion.get(), mShape.Get());
  mBody->setContactProcessingThreshold(1e18);
  mBody->setUserPointer(this);
  mBody->setFlags(0);  // the library's own way to turn loses momentum
  // What moves farther than half of its size in an internal step may lie beyond a thin wall behind
  // it. Slower ones aren't stopped on their way: they would gain the height that they hadn't fallen.
  const double core = mShape.CoreRadius();
  mBody->setCcdMotionThreshold(core);
  mBody->setCcdSweptSphereRadius(kSwept * core);
  mMass.PutOn(*mBody);
  SetUp(true, restored ? restored->isKeyed : isKeyed);
  mWorld.Add(*mBody);
  if (restored) {
    mBody->setLinearVelocity(ToBullet(restored->linear));
    mBody->setAngularVelocity(TurnToBullet(restored->angular));
    mBody->setDeactivationTime(restored->calm);
    mBody->forceActivationState(restored->activation);
    mWaits = restored->waits;
    mTouches = restored->touches;
    mForce = restored->force;
    mTorque = restored->torque;
    mContactLinear = restored->contactLinear;
    mContactAngular = restored->contactAngular;
  }
  return true;
}

double RigidBody::MarginOf(const ObstacleSettings& settings) const {
  return settings.margin >= 0 ? settings.margin * mWorldToSim : -1;
}

void RigidBody::SetStart(const BodyPose& pose, const Vec3d& linear, const Vec3d& angular) {
  if (!mBody) return;
  const btTransform place(AxesToBullet(Turned(pose.turn, mMass.Axes())), ToBullet(pose.centre));
  mMotion->setWorldTransform(place);
  mBody->setCenterOfMassTransform(place);
  mBody->setInterpolationWorldTransform(place);
  mBody->setLinearVelocity(ToBullet(linear));
  mBody->setAngularVelocity(TurnToBullet(angular));
}

void RigidBody::Update(const ObstacleSettings& settings, bool isKeyed) {
  if (!mBody) return;
  mSettings = settings;
  if (const double margin = MarginOf(settings); margin != mMargin)
    mShape.SetMargin(mMargin = margin);
  mMass.Read(settings, true);
  const bool massChanged = mMass.HasChanged();
  if (massChanged) {
    mWorld.Remove(*mBody);
    mMass.PutOn(*mBody);
  }
  SetUp(false, isKeyed);
  if (massChanged) mWorld.Add(*mBody);
}

void RigidBody::SetVolume(double volume) {
  if (!IsDynamic() || !mMass.SetVolume(volume, mSettings)) return;
  mWorld.Remove(*mBody);
  mMass.PutOn(*mBody);
  SetUp(false, mIsKeyed);
  mWorld.Add(*mBody);
}

void RigidBody::SetUp(bool reset, bool isKeyed) {
  const ObstacleSettings& s = mSettings;
  mIsKeyed = isKeyed;
  mBody->setFriction(s.friction);
  mBody->setRollingFriction(0);
  mBody->setSpinningFriction(0);
  // The library takes the rolling friction of a contact as a length; see `BulletLibrary`.
  mBody->setRestitution(s.restitution);
  mBody->setLinearFactor({s.linearFactor.x, s.linearFactor.y, s.linearFactor.z});
  mBody->setAngularFactor(btVector3(s.angularFactor.x, s.angularFactor.y, s.angularFactor.z));
  mBody->setDamping(s.linearDamping, s.angularDamping);
  mBody->setSleepingThresholds(s.linearSleep, s.angularSleep);
  int flags = mBody->getCollisionFlags() | btCollisionObject::CF_CUSTOM_MATERIAL_CALLBACK;
  flags &= ~(btCollisionObject::CF_STATIC_OBJECT | btCollisionObject::CF_KINEMATIC_OBJECT |
             btCollisionObject::CF_NO_CONTACT_RESPONSE);
  if (s.isGhost) flags |= btCollisionObject::CF_NO_CONTACT_RESPONSE;
  const bool follows = s.baked && s.followsBake;
  mType = mMass.Acting() > 0 ? kDynamic : follows || isKeyed ? kKinematic : kStatic;
  if (mType == kStatic) flags |= btCollisionObject::CF_STATIC_OBJECT;
  if (mType == kKinematic) flags |= btCollisionObject::CF_KINEMATIC_OBJECT;
  mBody->setCollisionFlags(flags);

  if (!reset) {
    if ((mMass.HasChanged() && !mMass.IsFrozen() && mBody->getDeactivationTime() >= kCalm) ||
        (s.wakesOnContact && !mMass.IsFrozen() && IsTouched()))
      mBody->activate(true);
  } else {
    mForce = mTorque = {};
    mBody->forceActivationState(ACTIVE_TAG);
  }
  if (reset) mWaits = mType == kDynamic && (s.wakesOnContact || s.wakesOnForce);
  if ((reset && (s.wakesOnContact || s.wakesOnForce)) || mMass.IsFrozen()) {
    mBody->setDeactivationTime(kCalm);
    mBody->forceActivationState(ISLAND_SLEEPING);
  }
}

void RigidBody::SetPose(const BodyPose& pose, double dt) {
  if (!mBody || mType == kDynamic) return;
  const btTransform place(AxesToBullet(Turned(pose.turn, mMass.Axes())), ToBullet(pose.centre));
  const BodyPose before = Pose();
  mMotion->setWorldTransform(place);
  mBody->setCenterOfMassTransform(place);
  if (!(dt > 0)) return;
  mBody->setLinearVelocity(ToBullet((pose.centre - before.centre) / dt));
  mBody->setAngularVelocity(TurnToBullet(RotationVector(before.turn, pose.turn) / dt));
}

void RigidBody::Travel() {
  if (!mBody || mType == kDynamic) return;
  mType = kKinematic;
  mBody->setCollisionFlags((mBody->getCollisionFlags() & ~btCollisionObject::CF_STATIC_OBJECT) |
                           btCollisionObject::CF_KINEMATIC_OBJECT);
  mBody->setDeactivationTime(0);
  mBody->forceActivationState(ACTIVE_TAG);
}

void RigidBody::Disturb() {
  if (IsDynamic() && IsAsleep() && !mWaits) Wake();
}

void RigidBody::Halt() {
  if (!mBody || mType == kDynamic) return;
  mBody->forceActivationState(ISLAND_SLEEPING);
  mBody->setLinearVelocity({0, 0, 0});
  mBody->setAngularVelocity({0, 0, 0});
}

double RigidBody::Density() const { return mMass.Density(mSettings); }

BodyPose RigidBody::Pose() const {
  if (!mBody) return {};
  const btTransform& place = mBody->getCenterOfMassTransform();
  return {FromBullet(place.getOrigin()),
          Turned(AxesFromBullet(place.getBasis()), Transposed(mMass.Axes()))};
}

Vec3d RigidBody::LinearVelocity() const {
  return mBody ? FromBullet(mBody->getLinearVelocity()) : Vec3d{};
}
Vec3d RigidBody::AngularVelocity() const {
  return mBody ? TurnFromBullet(mBody->getAngularVelocity()) : Vec3d{};
}

bool RigidBody::IsAsleep() const { return mBody && !mBody->isActive(); }

Vec3d RigidBody::InverseMass() const {
  if (!mBody || !IsDynamic()) return {};
  const double inverse = mBody->getInvMass();
  return mSettings.linearFactor * inverse;
}

Matrix RigidBody::InverseInertia() const {
  if (!mBody || !IsDynamic()) return {{}, {}, {}, {}};
  Matrix inverse = AxesFromBullet(mBody->getInvInertiaTensorWorld());
  // Symmetric: an axis that is held takes no torque and makes no turn.
  Vec3d* column[3] = {&inverse.v1, &inverse.v2, &inverse.v3};
  const Vec3d& f = mSettings.angularFactor;
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i) (*column[j])[i] *= std::sqrt(std::fabs(f[i] * f[j]));
  return inverse;
}

void RigidBody::ApplyForceAtPoint(const Vec3d& force, const Vec3d& point) {
  if (!IsDynamic()) return;
  mForce += force;
  mTorque += Cross(point - Pose().centre, force * mSettings.linearFactor);
}
void RigidBody::ApplyCentralForce(const Vec3d& force) {
  if (IsDynamic()) mForce += force;
}
void RigidBody::ApplyTorque(const Vec3d& torque) {
  if (IsDynamic()) mTorque += torque;
}
void RigidBody::ApplyImpulseAtPoint(const Vec3d& impulse, const Vec3d& point) {
  if (!IsDynamic()) return;
  ApplyCentralImpulse(impulse);
  ApplyTorqueImpulse(Cross(point - Pose().centre, impulse * mSettings.linearFactor));
}
void RigidBody::ApplyCentralImpulse(const Vec3d& impulse) {
  if (IsDynamic()) AddVelocity(impulse * InverseMass());
}
void RigidBody::ApplyTorqueImpulse(const Vec3d& impulse) {
  if (IsDynamic())
    mBody->setAngularVelocity(TurnToBullet(AngularVelocity() + InverseInertia().Rotate(impulse)));
}

bool RigidBody::AwaitsTouch() const {
  return IsDynamic() && mSettings.wakesOnContact && !mMass.IsFrozen() && !mHasLeft && IsAsleep();
}

bool RigidBody::IsTouched() const {
  return std::any_of(mContacts.begin(), mContacts.end(),
                     [](const BodyContact& contact) { return contact.distance <= 0; });
}

void RigidBody::NoteHit() {
  if (AwaitsTouch()) Wake();
}

void RigidBody::Wake() {
  if (mBody && !mMass.IsFrozen() && !mHasLeft) mBody->activate();
}

void RigidBody::AddVelocity(const Vec3d& change) {
  if (mBody) mBody->setLinearVelocity(ToBullet(LinearVelocity() + change));
}

void RigidBody::StayAwake() {
  if (mBody) mBody->setDeactivationTime(0);
}

void RigidBody::BeginStep(double dt, const Vec3d& gravity) {
  mLinearBefore = LinearVelocity();
  mAngularBefore = AngularVelocity();
  if (!IsDynamic()) return;
  if (mLimits.Has(BodyLimits::kLinearDamping) || mLimits.Has(BodyLimits::kAngularDamping)) {
    const Vec3d centre = Pose().centre;
    mBody->setDamping(
        mSettings.linearDamping * mLimits.Factor(BodyLimits::kLinearDamping, centre),
        mSettings.angularDamping * mLimits.Factor(BodyLimits::kAngularDamping, centre));
  }
  mBody->clearForces();
  mFall = mMass.Mass() > 0 ? gravity * mSettings.linearFactor : Vec3d{};
  const Vec3d change = (mFall + mForce * InverseMass()) * dt;
  // What a contact holds would bounce off it with all of that at once.
  mIsAhead = mIsCarried && !IsAsleep() && Length(mContactLinear) <= kFree * Length(change);
  if (mIsAhead) {
    mBody->setGravity({0, 0, 0});
    mBody->setLinearVelocity(ToBullet(LinearVelocity() + change));
    const Vec3d spin = InverseInertia().Rotate(mTorque) * dt;
    mBody->setAngularVelocity(TurnToBullet(AngularVelocity() + spin));
    return;
  }
  mBody->setGravity(ToBullet(mMass.Mass() > 0 ? gravity : Vec3d{}));
  mBody->applyGravity();
  mBody->applyCentralForce(ToBullet(mForce));
  mBody->applyTorque(TurnToBullet(mTorque));
}

void RigidBody::EndStep(double dt) {
  mContactLinear = mContactAngular = {};
  if (!IsAsleep())
    mTouches = static_cast<i32>(
        std::count_if(mContacts.begin(), mContacts.end(), std::mem_fn(&BodyContact::IsTouch)));
  if (!IsDynamic()) return;
  mMotion->setWorldTransform(mBody->getCenterOfMassTransform());
  if (IsAsleep()) return void(mForce = mTorque = {});
  mWaits = false;
  const Vec3d free = mFall + mForce * InverseMass();
  const Vec3d spin = InverseInertia().Rotate(mTorque);
  mContactLinear = LinearVelocity() - mLinearBefore - free * dt;
  mContactAngular = AngularVelocity() - mAngularBefore - spin * dt;
  mForce = mTorque = {};
}

void RigidBody::Freeze() {
  if (!mBody) return;
  mHasLeft = true;
  mBody->setLinearVelocity({0, 0, 0});
  mBody->setAngularVelocity({0, 0, 0});
  mBody->forceActivationState(DISABLE_SIMULATION);
}

BodyMotion RigidBody::Motion() const {
  BodyMotion motion;
  motion.isKeyed = mIsKeyed;
  motion.linear = LinearVelocity();
  motion.angular = AngularVelocity();
  motion.hasLeft = mHasLeft;
  mMass.Keep(motion);
  motion.force = mForce;
  motion.torque = mTorque;
  motion.contactLinear = mContactLinear;
  motion.contactAngular = mContactAngular;
  if (!mBody) return motion;
  const btTransform& place = mBody->getCenterOfMassTransform();
  motion.centre = FromBullet(place.getOrigin());
  motion.axes = AxesFromBullet(place.getBasis());
  motion.waits = mWaits;
  motion.touches = mTouches;
  motion.calm = mBody->getDeactivationTime();
  motion.activation = mBody->getActivationState();
  return motion;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
