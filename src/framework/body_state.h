// What a mesh, and the flow round it, ask of the rigid body that moves it.
#pragma once
#include "host/matrix.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Where a rigid body stands: its centre of mass, and how it has turned since it was made (a matrix
/// without offset). Simulation units.
struct BodyPose {
  Vec3d centre{};
  Matrix turn;
  friend bool operator==(const BodyPose&, const BodyPose&) = default;
};

/// How a rigid body takes part in the world of bodies. All vectors are in simulation units, seconds
/// and kilograms, in the axes of the simulation; nothing pushes a body that isn't dynamic.
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

  virtual BodyPose Pose() const = 0;
  virtual Vec3d LinearVelocity() const = 0;
  virtual Vec3d AngularVelocity() const = 0;
  /// The velocities that the fluid sees at present, times the transfer factors of the body: those
  /// that the body has when its forces have acted on it for the rest of the step, and behind a
  /// projection with what the fluid adds to them.
  virtual void GetFlowVelocities(Vec3d& linear, Vec3d& angular) const = 0;
  /// What an impulse changes of the velocities that the fluid sees: 1 / kg along each axis.
  virtual Vec3d FlowInverseMass() const = 0;
  /// The same of an impulse of torque about the centre of mass, a symmetric matrix whose columns
  /// are `v1` to `v3`, 1 / (kg m^2).
  virtual Matrix FlowInverseInertia() const = 0;

  /// Forces that act until the end of the next step of the world.
  virtual void ApplyForceAtPoint(const Vec3d& force, const Vec3d& point) = 0;
  virtual void ApplyCentralForce(const Vec3d& force) = 0;
  virtual void ApplyTorque(const Vec3d& torque) = 0;
  /// Changes of the velocities at once.
  virtual void ApplyImpulseAtPoint(const Vec3d& impulse, const Vec3d& point) = 0;
  virtual void ApplyCentralImpulse(const Vec3d& impulse) = 0;
  virtual void ApplyTorqueImpulse(const Vec3d& impulse) = 0;
  /// What the pressure of a fluid gave in a step of `dt` seconds, before the transfer factors: it
  /// acts over the next step of the world, however long that is, and counts in the velocities that
  /// the fluid sees from now on.
  virtual void TakeFluidImpulse(const Vec3d& impulse, const Vec3d& torque, double dt) = 0;
  /// It sleeps until something touches it.
  virtual bool AwaitsTouch() const = 0;
  /// A particle touched it: what awaits that wakes.
  virtual void NoteHit() = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
