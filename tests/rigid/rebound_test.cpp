// Bodies that bounce and turn.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "rigid/body_scene.h"
#include "rigid/free_turn.h"

namespace MELDO_GLOBAL::app {
namespace {

constexpr double kGravity = 9.81;

std::string Steps(int count) { return R"("rigid_substeps": )" + std::to_string(count); }

/// A ball of 20 cm that falls by 1 m onto a block.
std::string FallingBall(double restitution) {
  return Object("block", R"("box", "size": [400, 100, 400])", {0, -50, 0},
                R"("restitution": 1, "friction": 0)") +
         ", " +
         Object("a", kBall, {0, 110, 0},
                R"("mass": 1, "friction": 0, "restitution": )" + std::to_string(restitution));
}

/// Of the ball of 20 cm above the block, as a height.
double Energy(const BodyScene& scene) {
  const double speed = Length(scene.Body("a").LinearVelocity());
  return scene.HeightOf("a") - 0.1 + 0.5 * speed * speed / kGravity;
}

TEST(Rebound, HeightsDontDependOnTheStep) {
  for (const int count : {2, 3, 4, 5, 7, 10, 13, 20, 30, 40, 70, 100}) {
    BodyScene scene(FallingBall(0.8), R"("block", "a")", "", Steps(count));
    // It lands at 0.45 s, and again at 1.17 s.
    scene.RunTo(20);
    EXPECT_NEAR(Energy(scene), 0.64, 0.02 * 0.64) << count;
    scene.RunTo(34);
    EXPECT_NEAR(Energy(scene), 0.64 * 0.64, 0.03 * 0.64 * 0.64) << count;
  }
}

// It goes 16 cm a step, with the wall in the middle between two of its places and elsewhere.
TEST(Rebound, AThinWallStopsWhatMovesLessThanItsSize) {
  for (const char* shape : {kBall, kCube})
    for (const double wall : {20.0, 26.0, 31.0}) {
      BodyScene scene(Object("wall", R"("box", "size": [2, 200, 200])", {wall, 0, 0}, "") + ", " +
                          Object("a", shape, {-40, 0, 0},
                                 R"("mass": 1, "start_direction": "ahead", "start_speed": 4)"),
                      R"("wall", "a")", R"({"type": "alignment", "name": "ahead"},)",
                      R"("gravity": [0, 0, 0], )" + Steps(1));
      scene.RunTo(12);
      EXPECT_LT(scene.Body("a").Pose().centre.x, wall / 100 - 0.1) << shape << " " << wall;
    }
}

TEST(Rebound, WhatBouncesWithoutLossKeepsItsEnergy) {
  for (const int count : {4, 10, 40}) {
    BodyScene scene(FallingBall(1), R"("block", "a")", "", Steps(count));
    double most = 0;
    for (i32 frame = 0; frame <= 500; frame += 5) {
      scene.RunTo(frame);
      most = std::max(most, Energy(scene));
    }
    EXPECT_LT(most, 1.0001) << count;
    EXPECT_GT(Energy(scene), 0.97) << count;
  }
}

TEST(Rebound, BallsExchangeTheirSpeeds) {
  for (const double e : {0.5, 1.0}) {
    const std::string settings = R"("mass": 1, "friction": 0, "restitution": )";
    BodyScene scene(
        Object("a", kBall, {-40, 0, 0},
               settings + R"(1, "start_direction": "x", "start_speed": 3)") +
            ", " + Object("b", kBall, {0, 0, 0}, settings + std::to_string(e)),
        R"("a", "b")",
        R"({"type": "alignment", "name": "x", "parameters": {"mode": "fixed", "vector": [1, 0, 0]}},)",
        R"("gravity": [0, 0, 0])");
    scene.RunTo(10);
    EXPECT_NEAR(scene.Body("a").LinearVelocity().x, 1.5 * (1 - e), 1e-6);
    EXPECT_NEAR(scene.Body("b").LinearVelocity().x, 1.5 * (1 + e), 1e-6);
  }
}

TEST(Rebound, APaddleThrowsABallAtTwiceItsSpeed) {
  for (const int extra : {0, 3}) {
    BodyScene scene(
        R"({"name": "paddle", "type": "box", "size": [20, 100, 100],
            "obstacle": {"restitution": 1, "friction": 0},
            "position": {"keys": [[0, [-100, 0, 0]], [50, [300, 0, 0]]], "interpolation": "linear"}}, )" +
            Object("a", kBall, {0, 0, 0}, R"("mass": 1, "friction": 0, "restitution": 1)"),
        R"("paddle", "a")", "",
        R"("gravity": [0, 0, 0], "time_mode": "fixed_substeps", "extra_substeps": )" +
            std::to_string(extra));
    scene.RunTo(25);
    EXPECT_NEAR(scene.Body("a").LinearVelocity().x, 4, 1e-3) << extra;
  }
}

TEST(Rebound, ACrateThatFallsFlatDoesntTwist) {
  FloorScene scene(Object("a", kCube, {0, 110, 0}, R"("mass": 1)"), R"("a")");
  scene.RunTo(90);
  const Matrix turn = scene.Body("a").Pose().turn;
  EXPECT_LT(std::hypot(turn.v1.z, turn.v3.x), 0.01);
  EXPECT_NEAR(scene.HeightOf("a"), 0.1, 1e-3);
  EXPECT_FALSE(scene.IsAwake("a"));
}

TEST(Rebound, StacksStand) {
  std::string objects, names;
  for (int i = 0; i < 5; ++i) {
    const std::string name = "box " + std::to_string(i), comma = i > 0 ? ", " : "";
    objects += comma + Object(name, kCube, {0, 10.0 + 20 * i, 0}, R"("mass": 1)");
    names += comma + "\"" + name + "\"";
  }
  FloorScene scene(objects, names);
  scene.RunTo(250);
  for (int i = 0; i < 5; ++i) {
    const Vec3d at = scene.Body("box " + std::to_string(i)).Pose().centre;
    EXPECT_LT(Length(at - Vec3d{0, 0.1 + 0.2 * i, 0}), 0.005) << i;
  }
}

TEST(Rebound, ABallThatSpinsOnTheSpotSleeps) {
  FloorScene scene(Object("a", kBall, {0, 10, 0}, R"("mass": 1)"), R"("a")");
  scene.RunTo(1);
  const_cast<MELDO_SULVA::BodyState&>(scene.Body("a")).ApplyTorqueImpulse({0, 0.02, 0});
  // I w = 0.02 against 0.3 x 0.3 x 0.1 m g takes 0.23 s, and calm 2 s.
  scene.RunTo(3);
  EXPECT_NEAR(scene.Body("a").AngularVelocity().y, 5 * (1 - 0.08 / 0.2265), 0.15);
  scene.RunTo(70);
  EXPECT_FALSE(scene.IsAwake("a"));
}

// Of a box that is spun about its middle axis, which tumbles.
TEST(FreeTurn, KeepsMomentumAndEnergy) {
  const btVector3 inertia(1, 2, 3);
  btQuaternion turn(btVector3(1, 2, 3).normalized(), 0.7);
  const auto momentum = [&](const btVector3& w) {
    return quatRotate(turn, inertia * quatRotate(turn.inverse(), w));
  };
  for (const double rate : {1.0, 50.0}) {
    btVector3 spin = quatRotate(turn, btVector3(0.01, 1, 0.01) * rate);
    const btVector3 before = momentum(spin);
    const double energy = before.dot(spin);
    double least = 1;
    for (int i = 0; i < 5000; ++i) {
      MELDO_SULVA::TurnFreely(inertia, 0.004, turn, spin);
      least = std::min(least, quatRotate(turn.inverse(), spin).y() / rate);
    }
    EXPECT_LT((momentum(spin) - before).length(), 1e-9 * before.length()) << rate;
    EXPECT_NEAR(momentum(spin).dot(spin), energy, 1e-6 * energy) << rate;
    EXPECT_LT(least, -0.99) << "it turns over; " << rate;
  }
}

TEST(FreeTurn, SteadySpinsTurnAtTheirRate) {
  btQuaternion turn = btQuaternion::getIdentity();
  btVector3 spin(0, 0, 10);
  for (int i = 0; i < 250; ++i) MELDO_SULVA::TurnFreely({1, 2, 3}, 0.04, turn, spin);
  EXPECT_NEAR(std::remainder(2 * std::atan2(turn.z(), turn.w()) - 100, 2 * M_PI), 0, 1e-9);
}

// A hundred seconds of a box without gravity in a scene.
TEST(FreeTurn, BodiesKeepTheirMomentum) {
  BodyScene scene(R"({"name": "b", "type": "box", "size": [10, 40, 20],
                      "obstacle": {"mass": 1, "linear_sleep_speed": 0, "angular_sleep_speed": 0}})",
                  R"("b")", "", R"("gravity": [0, 0, 0])");
  scene.RunTo(1);
  auto& body = const_cast<MELDO_SULVA::BodyState&>(scene.Body("b"));
  const Vec3d momentum{0.02, 0.01, 0.8};  // at 48 rad/s
  body.ApplyTorqueImpulse(momentum);
  for (const i32 frame : {2, 50, 500}) {
    scene.RunTo(frame);
    const Matrix turn = body.Pose().turn;
    const Vec3d w = body.AngularVelocity();
    const Vec3d own{Dot(turn.v1, w), Dot(turn.v2, w), Dot(turn.v3, w)};
    const Vec3d spun = own * Vec3d{0.2 / 12, 0.05 / 12, 0.17 / 12};
    EXPECT_LT(Length(turn.Rotate(spun) - momentum), 1e-6 * Length(momentum)) << frame;
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
