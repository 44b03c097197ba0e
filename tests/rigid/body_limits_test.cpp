// Constraints on what a body's settings say.
#include <gtest/gtest.h>

#include "rigid/body_scene.h"

namespace MELDO_GLOBAL::app {
namespace {

constexpr const char* kNodes =
    R"({"type": "constraint_quadratic", "name": "half", "parameters": {"output_low": 0.5, "output_high": 0.5}},
       {"type": "constraint_gradient", "name": "right", "parameters": {"mode": "x", "one_sided": true, "length": 1, "gradient": [[0, [0, 0, 0]], [1, [1, 1, 1]]]}},
       {"type": "alignment", "name": "ahead", "parameters": {"mode": "fixed", "vector": [1, 0, 0]}},)";

/// A body that flies off over a floor by the settings of its tag.
BodyScene Scene(const std::string& shape, const std::string& settings) {
  return BodyScene(
      R"({"name": "floor", "type": "box", "size": [2000, 20, 400], "position": [0, -10, 0],
          "obstacle": {"friction": 1, "rolling_friction": 1, "restitution": 1}},
         {"name": "a", )" +
          shape + R"(, "obstacle": {"mass": 1, "start_direction": "ahead", )" + settings + "}}",
      R"("floor", "a")", kNodes);
}

TEST(BodyLimits, HalfOfASettingIsThatOfHalfTheNumber) {
  const std::string box = R"("type": "box", "size": [40, 20, 20], "position": [-100, 10, 0])";
  const std::string ball =
      R"("type": "sphere", "radius": 10, "segments": 32, "position": [-100, 10, 0])";
  const std::string high =
      R"("type": "sphere", "radius": 10, "segments": 32, "position": [-100, 80, 0])";
  const struct {
    std::string shape, setting, others;
    i32 frame;
  } cases[] = {{box, "friction", R"("start_speed": 2)", 6},
               {ball, "rolling_friction", R"("start_speed": 2, "friction": 0.5)", 6},
               {high, "restitution", R"("start_speed": 0, "friction": 0)", 18},
               {high, "linear_damping", R"("start_speed": 3, "friction": 0)", 8},
               {ball, "angular_damping", R"("start_speed": 2, "friction": 0.8)", 8}};
  for (const auto& c : cases) {
    const auto end = [&](const std::string& number, const std::string& limits) {
      BodyScene scene =
          Scene(c.shape, "\"" + c.setting + "\": " + number + ", " + c.others + limits);
      scene.RunTo(c.frame);
      return scene.Body("a").LinearVelocity();
    };
    const Vec3d limited = end("0.6", ", \"" + c.setting + "_constraints\": [\"half\"]");
    const Vec3d half = end("0.3", ""), whole = end("0.6", "");
    EXPECT_NEAR(Length(limited - half), 0, 1e-9) << c.setting;
    EXPECT_GT(Length(limited - whole), 0.02) << c.setting;
  }
}

TEST(BodyLimits, FrictionCountsWhereAContactIs) {
  BodyScene scene =
      Scene(R"("type": "box", "size": [40, 20, 20], "position": [-100, 10, 0])",
            R"("friction": 0.5, "start_speed": 3, "friction_constraints": ["right"])");
  scene.RunTo(6);
  EXPECT_NEAR(scene.Body("a").LinearVelocity().x, 3, 0.03) << "on the icy half it goes on";
  scene.RunTo(60);
  EXPECT_NEAR(Length(scene.Body("a").LinearVelocity()), 0, 1e-3);
  // v^2 / (2 mu g) behind the middle, and some more while a part of it is still on the ice.
  const double brake = 3 * 3 / (2 * 0.5 * 9.81);
  EXPECT_GT(scene.Body("a").Pose().centre.x, 0.8 * brake);
  EXPECT_LT(scene.Body("a").Pose().centre.x, brake + 0.3);
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
