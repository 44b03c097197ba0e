// A body of its own for tests of the pressure.
#pragma once
#include "framework/body_state.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A free body that remembers what pressed it.
struct FreeBody : BodyState {
  double mass = 1, inertia = 1, density = 0;
  Vec3d linear{}, angular{};
  Vec3d impulse{}, turn{};

  bool IsDynamic() const override { return true; }
  bool IsKinematic() const override { return false; }
  bool IsStatic() const override { return false; }
  double Mass() const override { return mass; }
  double Density() const override { return density; }
  BodyPose Pose() const override { return {}; }
  Vec3d LinearVelocity() const override { return linear; }
  Vec3d AngularVelocity() const override { return angular; }
  void GetFlowVelocities(Vec3d& v, Vec3d& w) const override {
    v = linear + impulse / mass;
    w = angular + turn / inertia;
  }
  Vec3d FlowInverseMass() const override { return Vec3d{1, 1, 1} / mass; }
  Matrix FlowInverseInertia() const override {
    return {{}, {1 / inertia, 0, 0}, {0, 1 / inertia, 0}, {0, 0, 1 / inertia}};
  }
  void ApplyForceAtPoint(const Vec3d&, const Vec3d&) override {}
  void ApplyCentralForce(const Vec3d&) override {}
  void ApplyTorque(const Vec3d&) override {}
  void ApplyImpulseAtPoint(const Vec3d&, const Vec3d&) override {}
  void ApplyCentralImpulse(const Vec3d&) override {}
  void ApplyTorqueImpulse(const Vec3d&) override {}
  void TakeFluidImpulse(const Vec3d& p, const Vec3d& l, double) override { impulse = p, turn = l; }
  bool AwaitsTouch() const override { return false; }
  void NoteHit() override {}
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
