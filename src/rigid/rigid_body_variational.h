// Bodies that act with fluids.
#pragma once
#include <optional>

#include "rigid/rigid_body.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A rigid body as the variational coupling of a projection takes it (Batty, Bertails and Bridson
/// 2007): with the velocities that it would have without the fluid, and what an impulse changes of
/// them.
///
/// The fluid is projected after its forces have acted on it for a step, the body has its own before
/// it in the next step of the world. So that both stand at the same moment, the velocities that the
/// fluid sees hold gravity, forces and contacts of that step already. A contact that pushed in the
/// last step is expected to push again, but by no more than what drives the body.
class RigidBody_Variational : public RigidBody {
 public:
  using RigidBody::RigidBody;

  void GetFlowVelocities(Vec3d& linear, Vec3d& angular) const override;
  Vec3d FlowInverseMass() const override;
  Matrix FlowInverseInertia() const override;
  void TakeFluidImpulse(const Vec3d& impulse, const Vec3d& torque, double dt) override;

  bool Create(const BodyGeometry& geometry, const ObstacleSettings& settings, double worldToSim,
              bool isKeyed, const BodyMotion* restored) override;
  BodyMotion Motion() const override;
  void BeginStep(double dt, const Vec3d& gravity) override;
  void EndStep(double dt) override;
  /// Gravity and forces that wait for the next step will act for `dt` seconds: before a projection.
  void Foresee(double dt, const Vec3d& gravity);

  /// What all fluids pressed with in the last step, newtons and newton metres.
  const Vec3d& FluidForce() const { return mFluidForce; }
  const Vec3d& FluidTorque() const { return mFluidTorque; }

 private:
  struct Change {
    Vec3d linear{}, angular{};
  };
  /// What gravity, forces and contacts will have changed when the step to come is over.
  Change Expected() const;

  /// All fluids have pressed a body that sleeps: with what they do together it may wake.
  void WakeByForces(const Vec3d& gravity);
  /// The first step lacked this impulse.
  void MendFirstStep(const Vec3d& impulse);

  bool mIsLulled = false;
  Vec3d mLull{};    ///< while it sleeps: what the fluids pressed with when it fell asleep
  Vec3d mBreeze{};  ///< and the forces of the scene, newtons
  /// It stood still until now. The first step of the world has to do without what a fluid round it
  /// presses; the projection behind it makes up for that.
  bool mIsNew = true;
  /// In the first step: how far its velocity is ahead of that from which the fluid sees it start,
  /// and how far it was before any projection.
  std::optional<Vec3d> mFirst;
  Vec3d mFirstUntold{};
  bool mWasAtRest = false;   ///< when that step began
  bool mIsUnderWay = false;  ///< the start frame is over
  bool mIsForeseen = false;  ///< the fluid moves it in this step
  double mAhead = 0;         ///< seconds of it
  Vec3d mGravity{};
  Vec3d mPressed{};           ///< sum of all impulses of this step, before the transfer factor
  Vec3d mImpulse{}, mTurn{};  ///< of all fluids, for the next step
  Vec3d mFluidForce{}, mFluidTorque{};
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
