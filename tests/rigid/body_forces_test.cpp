// What fluids and forces do to a body between two steps of the world.
#include <gtest/gtest.h>

#include "fluids/volume/mesh_solid.h"
#include "rigid/body_home.h"
#include "rigid/rigid_body_variational.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kStep = 0.04, kMass = 2;
const Vec3d kGravity{0, -10, 0};
constexpr i32 kAwake = 1, kAsleep = 2;  // states of the library

struct Nowhere : BodyHome {
  void Add(btRigidBody&) override {}
  void Remove(btRigidBody&) override {}
};

/// A cube of 2 kg in a world that doesn't move it.
struct Cube {
  Nowhere home;
  RigidBody_Variational body{home, "cube"};
  ObstacleSettings settings;

  explicit Cube(i32 state, const ObstacleSettings& given = {}, bool waits = false)
      : settings(given) {
    settings.mass = kMass;
    if (settings.linearFactor == Vec3d{}) settings.linearFactor = {1, 1, 1};
    settings.angularFactor = {1, 1, 1};
    const TurnedBox box({0, 0, 0}, {0.2, 0.2, 0.2}, 0, 0, 1);
    BodyMotion motion;
    motion.mass = motion.previousMass = kMass;
    motion.activation = state;
    motion.waits = waits;
    EXPECT_TRUE(body.Create({box.mesh.GetVertices(), box.mesh.GetTriangles(), true}, settings, 1,
                            false, &motion));
    body.Foresee(kStep, kGravity);
  }
  /// A step of the world, then fluids that press with these forces upwards.
  void Step(std::initializer_list<double> forces) {
    body.BeginStep(kStep, kGravity);
    body.EndStep(kStep);
    body.Foresee(kStep, kGravity);
    Press(forces);
  }
  void Press(std::initializer_list<double> forces) {
    for (const double force : forces) body.TakeFluidImpulse({0, force * kStep, 0}, {}, kStep);
  }
};

}  // namespace

TEST(BodyForces, WhatCarriesABodyIsWhatAllFluidsDoTogether) {
  for (const auto& forces : {std::initializer_list<double>{19, 0}, {0, 19}, {1.5, 1.5}}) {
    Cube cube(kAwake);
    cube.Press(forces);
    EXPECT_TRUE(cube.body.Motion().isCarried);
    cube.Step({});
    EXPECT_FALSE(cube.body.Motion().isCarried) << "no fluid presses any more";
  }
  Cube held(kAwake);
  held.Press({19, -18.5});
  EXPECT_FALSE(held.body.Motion().isCarried);
  EXPECT_NEAR(held.body.FluidForce().y, 0.5, 1e-12);
}

TEST(BodyForces, TwoFluidsLetASleeperSleepUntilTheirPushChanges) {
  for (const bool swapped : {false, true}) {
    Cube cube(kAsleep);
    cube.Press({12.5});
    const auto step = [&](double a, double b) { swapped ? cube.Step({b, a}) : cube.Step({a, b}); };
    for (int i = 0; i < 5; ++i) {
      step(12, 0.5);
      EXPECT_TRUE(cube.body.IsAsleep()) << i;
      EXPECT_NEAR(cube.body.FluidForce().y, 12.5, 1e-12) << "it is pressed all the same";
    }
    step(0.5, 12);
    step(1, 12.5);
    EXPECT_TRUE(cube.body.IsAsleep()) << "other fluids, the same push";
    step(0, 0);
    EXPECT_TRUE(cube.body.IsAsleep()) << "half a newton more";
    step(0, 0);
    EXPECT_FALSE(cube.body.IsAsleep());
  }
}

TEST(BodyForces, AGustWakesASleeperAndAWindLetsItSleep) {
  for (const bool waits : {false, true}) {
    ObstacleSettings settings;
    settings.wakesOnContact = waits;
    Cube cube(kAsleep, settings, waits);
    const auto blow = [&](double force) {
      cube.body.ApplyCentralForce({force, 0, 0});
      cube.Step({});
    };
    for (int i = 0; i < 3; ++i) {
      blow(1);
      EXPECT_TRUE(cube.body.IsAsleep()) << "it blew when the body fell asleep";
    }
    blow(1.5);
    EXPECT_EQ(cube.body.IsAsleep(), waits);
  }
}

TEST(BodyForces, ASleeperWaitsForWhatItsSettingsTellUntilItWasAwake) {
  ObstacleSettings settings;
  settings.wakesOnContact = true;
  for (const bool waits : {true, false}) {
    Cube cube(kAsleep, settings, waits);
    for (const double force : {15.0, 15.0, 0.0, 0.0}) cube.Step({force});
    EXPECT_EQ(cube.body.IsAsleep(), waits);
  }
}

TEST(BodyForces, AllForcesTogetherWakeAlongTheWaysThatAreFree) {
  ObstacleSettings settings;
  settings.wakesOnForce = true;
  settings.wakeForce = 10;
  for (const Vec3d& factor : {Vec3d{1, 1, 1}, Vec3d{1, 0, 1}})
    for (const double force : {3.0, 6.0}) {
      settings.linearFactor = factor;
      Cube cube(kAsleep, settings, true);
      cube.Step({6});
      cube.body.ApplyCentralForce({0, force, 0});
      cube.Step({});
      EXPECT_EQ(cube.body.IsAsleep(), factor.y == 0 || force == 3) << factor.y << " " << force;
    }
}

// A body made anew in a step whose projection presses it already lacks nothing.
TEST(BodyForces, OnlyAStepWithoutAProjectionBeforeItIsMadeUpFor) {
  for (const bool isForeseen : {true, false}) {
    Nowhere home;
    RigidBody_Variational body(home, "cube");
    ObstacleSettings settings;
    settings.mass = kMass;
    settings.linearFactor = settings.angularFactor = {1, 1, 1};
    const TurnedBox box({0, 0, 0}, {0.2, 0.2, 0.2}, 0, 0, 1);
    ASSERT_TRUE(body.Create({box.mesh.GetVertices(), box.mesh.GetTriangles(), true}, settings, 1,
                            false, nullptr));
    body.Foresee(isForeseen ? kStep : 0, kGravity);
    body.BeginStep(kStep, kGravity);
    body.EndStep(kStep);
    body.Foresee(kStep, kGravity);
    const Vec3d before = body.LinearVelocity();
    body.TakeFluidImpulse({0, 1, 0}, {}, kStep);
    EXPECT_NEAR(body.LinearVelocity().y - before.y, isForeseen ? 0 : 1 / kMass, 1e-12);
  }
}

// What keys play has no mass, however much there is of it.
TEST(BodyForces, AVolumeGivesNoMassToWhatPlaysAMotion) {
  ObstacleSettings settings;
  settings.massMode = MassMode::FromDensity;
  settings.density = 500;
  settings.baked = true;
  for (const bool follows : {true, false}) {
    settings.followsBake = follows;
    const TurnedBox box({0, 0, 0}, {0.2, 0.2, 0.2}, 0, 0, 1);
    BodyGeometry solid{box.mesh.GetVertices(), box.mesh.GetTriangles(), true};
    BodyMass mass;
    ASSERT_TRUE(mass.Find(solid, settings, 1));
    EXPECT_TRUE(mass.SetVolume(0.007, settings));
    EXPECT_NEAR(mass.Mass(), follows ? 0 : 3.5, 1e-12);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
