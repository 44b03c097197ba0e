// What keys move, and what rests on others.
#include <gtest/gtest.h>

#include "rigid/body_scene.h"

namespace MELDO_GLOBAL::app {
namespace {

/// A plate of 4 x 0.2 x 2 m whose top starts at 0, and a box of 20 cm on it.
std::string PlateAndBox(const std::string& keys, const std::string& obstacle = R"("mass": 1)") {
  return R"({"name": "plate", "type": "box", "size": [400, 20, 200], "obstacle": {"friction": 1},
             "position": {"keys": [)" +
         keys + R"(], "interpolation": "linear"}},
            {"name": "a", "type": "box", "size": [20, 20, 20], "position": [0, 20, 0],
             "obstacle": {"friction": 1, )" +
         obstacle + "}}";
}
constexpr const char* kPlateAndBox = R"("plate", "a")";

TEST(KeyedBodies, ASlowPlateCarriesWhatLiesOnIt) {
  // 5 cm/s: slower than what falls asleep.
  BodyScene lift(PlateAndBox("[0, [0, 0, 0]], [125, [0, 25, 0]]"), kPlateAndBox);
  lift.RunTo(125);
  EXPECT_NEAR(lift.HeightOf("a"), 0.45, 2e-3);
  BodyScene belt(PlateAndBox("[0, [0, 0, 0]], [125, [25, 0, 0]]"), kPlateAndBox);
  belt.RunTo(125);
  EXPECT_NEAR(belt.Body("a").Pose().centre.x, 0.25, 2e-3);
}

TEST(KeyedBodies, WhatSleepsOnAPlateGoesWhereItGoes) {
  BodyScene lift(PlateAndBox("[0, [0, 0, 0]], [90, [0, 0, 0]], [115, [0, 50, 0]]"), kPlateAndBox);
  lift.RunTo(90);
  ASSERT_FALSE(lift.IsAwake("a"));
  lift.RunTo(115);
  EXPECT_NEAR(lift.HeightOf("a"), 0.7, 0.02);
  BodyScene jump(PlateAndBox("[0, [0, 0, 0]], [90, [0, 0, 0]], [91, [0, 0, 1000]]"), kPlateAndBox);
  jump.RunTo(90);
  ASSERT_FALSE(jump.IsAwake("a"));
  jump.RunTo(101);
  EXPECT_LT(jump.HeightOf("a"), 0.2 - 0.4) << "10 frames without a hold";
}

TEST(KeyedBodies, AFingerThatComesLatePushesASleeper) {
  for (const char* obstacle : {R"("mass": 1)", R"("mass": 1, "wake_on_contact": true)"}) {
    FloorScene scene(R"({"name": "finger", "type": "box", "size": [20, 20, 60],
                         "obstacle": {}, "position": {"keys": [[0, [-60, 15, 0]],
                         [90, [-60, 15, 0]], [115, [40, 15, 0]]], "interpolation": "linear"}}, )" +
                         Object("a", kCube, {0, 10, 0}, obstacle),
                     R"("finger", "a")");
    scene.RunTo(97);
    EXPECT_FALSE(scene.IsAwake("a")) << "the finger is 12 cm off; " << obstacle;
    EXPECT_NEAR(scene.Body("a").Pose().centre.x, 0, 1e-3);
    scene.RunTo(120);
    EXPECT_GT(scene.Body("a").Pose().centre.x, 0.59) << obstacle;
  }
}

TEST(KeyedBodies, OtherGravityWakes) {
  FloorScene scene(Object("a", kCube, {0, 10, 0}, R"("mass": 1)"), R"("a")", "",
                   R"("gravity": {"keys": [[0, [0, -9.81, 0]], [90, [0, 9.81, 0]]],
                                 "interpolation": "step"})");
  scene.RunTo(89);
  ASSERT_FALSE(scene.IsAwake("a"));
  scene.RunTo(100);
  EXPECT_GT(scene.HeightOf("a"), 0.5);
}

TEST(KeyedBodies, WhatLosesItsHoldFalls) {
  BodyScene scene(PlateAndBox("[0, [0, 0, 0]]"), kPlateAndBox);
  scene.RunTo(90);
  ASSERT_FALSE(scene.IsAwake("a"));
  scene.loaded->document->FindByName("plate")->RemoveTag(host::kObstacleTag);
  scene.RunTo(101);
  EXPECT_LT(scene.HeightOf("a"), -0.2);
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
