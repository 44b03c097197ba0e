// Bodies of the rigid world.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "fluids/mesh/obstacle_settings.h"
#include "framework/body_state.h"
#include "rigid/body_limits.h"
#include "rigid/body_mass.h"
#include "rigid/body_motion.h"
#include "rigid/body_shape.h"

class btRigidBody;
struct btDefaultMotionState;

namespace MELDO_GLOBAL::MELDO_SULVA {

class BodyHome;
/// How a mesh moves as a rigid body. The world steps it; all that acts on it goes through here.
class RigidBody : public BodyState {
 public:
  RigidBody(BodyHome& world, std::string name);
  ~RigidBody() override;
  RigidBody(const RigidBody&) = delete;
  RigidBody& operator=(const RigidBody&) = delete;

  /// Makes the body anew of the mesh's vertices, which stand where `pose` says when it is
  /// restored, and at their own place else. Kinematic: keys move it unless it has a mass. False
  /// without triangles.
  virtual bool Create(const BodyGeometry& geometry, const ObstacleSettings& settings,
                      double worldToSim, bool isKeyed, const BodyMotion* restored);
  /// Takes changed parameters.
  void Update(const ObstacleSettings& settings, bool isKeyed);
  /// Puts a body that isn't dynamic where keys have it.
  void SetPose(const BodyPose& pose, double dt);
  /// Keys move it in this step: it wakes what touches it, and what rests on it stays awake.
  void Travel();
  /// Keys leave it where it is in this step.
  void Halt();
  /// What it rested on has gone or moves, or gravity is another: wakes it, unless it waits for a
  /// touch or a force of its own.
  void Disturb();
  /// Where a dynamic body starts, and how fast.
  void SetStart(const BodyPose& pose, const Vec3d& linear, const Vec3d& angular);

  bool IsDynamic() const override { return mType == kDynamic; }
  bool IsKinematic() const override { return mType == kKinematic; }
  bool IsStatic() const override { return mType == kStatic; }
  double Mass() const override { return mMass.Mass(); }
  double Density() const override;
  /// From its centre of mass to the point of it that is farthest off, simulation units.
  double Radius() const { return mShape.Radius(); }
  /// Cubed simulation units that its triangles enclose.
  double Volume() const { return mMass.Volume(); }
  /// From the voxels of a volume instead.
  void SetVolume(double volume);

  BodyPose Pose() const override;
  Vec3d LinearVelocity() const override;
  Vec3d AngularVelocity() const override;
  bool IsAsleep() const;

  void ApplyForceAtPoint(const Vec3d& force, const Vec3d& point) override;
  void ApplyCentralForce(const Vec3d& force) override;
  void ApplyTorque(const Vec3d& torque) override;
  void ApplyImpulseAtPoint(const Vec3d& impulse, const Vec3d& point) override;
  void ApplyCentralImpulse(const Vec3d& impulse) override;
  void ApplyTorqueImpulse(const Vec3d& impulse) override;

  void AddContact(const BodyContact& contact) { mContacts.push_back(contact); }
  const std::vector<BodyContact>& Contacts() const { return mContacts; }
  void ClearContacts() { mContacts.clear(); }
  /// How many of its contacts are touches; of a body asleep, when it was last awake.
  i32 Touches() const { return mTouches; }
  bool AwaitsTouch() const override;
  /// It has slept from the start, until what its settings tell wakes it.
  bool Waits() const { return mWaits; }
  void NoteHit() override;

  /// Where its settings count in a step of the world, from before `BeginStep` on.
  BodyLimits& Limits() { return mLimits; }
  const BodyLimits& Limits() const { return mLimits; }
  /// Before and after a step of the world of `dt` seconds.
  virtual void BeginStep(double dt, const Vec3d& gravity);
  virtual void EndStep(double dt);
  /// Stops it where it is, for good: it has left the world.
  void Freeze();
  bool HasLeft() const { return mHasLeft; }
  /// Its mass was taken away.
  bool IsFrozen() const { return mMass.IsFrozen(); }

  virtual BodyMotion Motion() const;
  const std::string& Name() const { return mName; }
  const ObstacleSettings& Settings() const { return mSettings; }
  btRigidBody* Get() const { return mBody.get(); }

 protected:
  enum Type { kStatic = 0, kKinematic = 1, kDynamic = 2 };
  void Wake();
  void AddVelocity(const Vec3d& change);
  /// It doesn't fall asleep in the next seconds.
  void StayAwake();
  /// 1 / kg along each axis, with the linear factor; 0 unless dynamic.
  Vec3d InverseMass() const;
  /// 1 / (kg m^2), with the angular factor, in the axes of the simulation.
  Matrix InverseInertia() const;
  Vec3d mForce{}, mTorque{};  ///< until the end of the next step
  Vec3d mFall{};              ///< what gravity does to it in a step, m/s^2
  /// Much of what drives it follows from where it is, as the buoyancy of what floats: then
  /// velocities take all of it ahead of the step, places follow the new ones, and what swings
  /// doesn't swing up (symplectic Euler). Else it acts evenly, so that what falls does so exactly.
  bool mIsCarried = false;
  bool mIsAhead = false;                      ///< it does so in this step
  Vec3d mContactLinear{}, mContactAngular{};  ///< what contacts changed in the last step
  Vec3d mLinearBefore{};                      ///< the velocity before it

 private:
  bool IsTouched() const;
  void SetUp(bool reset, bool isKeyed);
  void Remove();
  /// Simulation units; below 0 that of the library.
  double MarginOf(const ObstacleSettings& settings) const;

  BodyHome& mWorld;
  std::string mName;
  ObstacleSettings mSettings;
  BodyLimits mLimits;
  BodyShape mShape;
  BodyMass mMass;
  std::unique_ptr<btDefaultMotionState> mMotion;
  std::unique_ptr<btRigidBody> mBody;
  Type mType = kStatic;
  bool mIsKeyed = false;
  bool mHasLeft = false;
  bool mWaits = false;
  i32 mTouches = 0;
  double mMargin = -1;
  double mWorldToSim = 1;
  Vec3d mAngularBefore{};
  std::vector<BodyContact> mContacts;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
