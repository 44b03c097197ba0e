// How bodies come into the world, and what is told of them.
#include <gmock/gmock.h>

#include <BulletCollision/CollisionShapes/btSphereShape.h>
#include <BulletDynamics/Dynamics/btRigidBody.h>

#include <cmath>

#include "body_scene.h"
#include "rigid/bullet_library.h"

namespace MELDO_GLOBAL::app {
namespace {

using testing::HasSubstr;

i32 TouchesOf(const BodyScene& scene, const std::string& name) {
  return dynamic_cast<const MELDO_SULVA::RigidBody&>(scene.Body(name)).Touches();
}

}  // namespace

// Without gravity it goes on as the keys had it, wherever it might have flown off from rest, with
// another body in the world or as its first.
TEST(BodyStart, WhatKeysHaveMovedKeepsItsVelocityWhenItGetsAMass) {
  for (const char* other : {R"("mass": 1)", ""}) {
    BodyScene scene(R"({"name": "a", "type": "box", "size": [20, 20, 20],
      "position": {"keys": [[0, [0, 0, 0]], [100, [400, 0, 0]]], "interpolation": "linear"},
      "rotation": {"keys": [[0, [0, 0, 0]], [100, [0, 120, 0]]], "interpolation": "linear"},
      "obstacle": {"start_direction": "up", "start_speed": 5,
                   "mass": {"keys": [[0, 0], [20, 2]], "interpolation": "step"}}},)" +
                        Object("b", kCube, {0, 300, 0}, other),
                    R"("a", "b")",
                    R"({"type": "alignment", "name": "up", "parameters": {"mode": "fixed",
                      "vector": [0, 1, 0]}},)",
                    R"("gravity": [0, 0, 0])");
    scene.RunTo(19);
    ASSERT_TRUE(scene.Body("a").IsKinematic());
    scene.RunTo(45);
    ASSERT_TRUE(scene.Body("a").IsDynamic());
    EXPECT_LT(Length(scene.Body("a").LinearVelocity() - Vec3d{1, 0, 0}), 1e-6);
    EXPECT_LT(Length(scene.Body("a").AngularVelocity() - Vec3d{0, 120 * M_PI / 180 / 4, 0}), 1e-6);
    EXPECT_LT(Length(scene.Body("a").Pose().centre - Vec3d{0.04 * 45, 0, 0}), 1e-6);
  }
}

TEST(BodyStart, BodiesThatShareARandomDirectionFlyApart) {
  const std::string settings = R"("mass": 1, "start_direction": "any", "start_speed": 2)";
  BodyScene scene(
      Object("a", kCube, {0, 0, 0}, settings) + "," + Object("b", kCube, {500, 0, 0}, settings),
      R"("a", "b")", R"({"type": "alignment", "name": "any", "parameters": {"mode": "random"}},)",
      R"("gravity": [0, 0, 0])");
  scene.RunTo(1);
  const Vec3d a = scene.Body("a").LinearVelocity(), b = scene.Body("b").LinearVelocity();
  EXPECT_NEAR(Length(a), 2, 1e-9);
  EXPECT_NEAR(Length(b), 2, 1e-9);
  EXPECT_GT(Length(a - b), 0.1);
}

TEST(BodyStart, AnObjectThatTwoNodesReadIsToldOf) {
  BodyScene scene(Object("a", kCube, {0, 0, 0}, R"("mass": 1)"), R"("a")",
                  R"({"type": "mesh", "name": "other", "parameters": {"object": "a"}},)");
  const auto told = HasSubstr("\"a\" is a body twice, of \"other\" and of \"all\"");
  scene.RunTo(0);
  EXPECT_THAT(scene.record.warnings, testing::Contains(told));
  scene.RunTo(2);
  EXPECT_THAT(scene.record.warnings, testing::Not(testing::Contains(told))) << "once is enough";
}

// A crate that lies still tells the corners on which it lies, and one that hovers tells none.
TEST(BodyStart, SleepersTellWhereTheyLie) {
  FloorScene scene(
      Object("a", kCube, {0, 10, 0}, R"("mass": 1)") + "," +
          Object("near", kCube, {60, 10.5, 0}, R"("mass": 1, "linear_factor": [1, 0, 1])"),
      R"("a", "near")");
  scene.RunTo(5);
  EXPECT_EQ(TouchesOf(scene, "a"), 4);
  EXPECT_EQ(TouchesOf(scene, "near"), 0);
  scene.RunTo(80);
  ASSERT_FALSE(scene.IsAwake("a"));
  EXPECT_EQ(TouchesOf(scene, "a"), 4);
  EXPECT_EQ(TouchesOf(scene, "near"), 0);
}

TEST(BodyStart, ABodyThatIsNoLongerFiniteIsFound) {
  FrameRecord record;
  record.bodies.push_back({.name = "crate"});
  EXPECT_EQ(FindNonFinite(record), "");
  record.bodies.back().position.y = std::nan("");
  EXPECT_THAT(FindNonFinite(record), HasSubstr("\"crate\""));
}

// The sweeps have room for so many; more would be written past their end.
TEST(BodyStart, SweepsHoldAsManyBodiesAsThereAre) {
  constexpr std::size_t kCount = 17000;
  btSphereShape ball(0.1);
  std::vector<std::unique_ptr<btRigidBody>> bodies;
  MELDO_SULVA::BulletLibrary library(1, 10, kCount);
  ASSERT_GE(library.MostBodies(), kCount);
  for (std::size_t i = 0; i < kCount; ++i) {
    bodies.push_back(std::make_unique<btRigidBody>(0.0, nullptr, &ball));
    const double at = -2000 + 0.15 * static_cast<double>(i);
    bodies.back()->setWorldTransform(btTransform(btQuaternion::getIdentity(), {at, at, at}));
    library.Add(*bodies.back());
  }
  EXPECT_EQ(library.Neighbours(*bodies.back()).size(), 1u);
  library.DropPairs();
  for (std::size_t i = kCount; i-- > 0;) library.Remove(*bodies[i]);
}

}  // namespace MELDO_GLOBAL::app
