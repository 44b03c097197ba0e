#include "render/lights.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using host::RenderLight;

namespace {

/// A half space that blocks all that passes x = 10 below y = 0.
struct HalfWall : Blockers {
  bool IsBlocked(const Vec3d& a, const Vec3d& b) const override {
    if ((a.x - 10) * (b.x - 10) >= 0) return false;
    return a.y + (b.y - a.y) * (10 - a.x) / (b.x - a.x) < 0;
  }
};

class LightTest : public testing::Test {
 protected:
  LightTest() {
    node.SetTable(&host::LightParameters());
    node.Set(host::kLightColour, Vec3d{1, 0.5, 0.25});
    node.Set(host::kLightBrightness, 2.0);
    node.Set(host::kLightFalloffDistance, 200.0);
  }
  void Set(host::LightKind kind) { node.Set(host::kLightKind, static_cast<i32>(kind)); }
  SceneLight Make() const { return SceneLight(node, wall); }
  double RedAt(const Vec3d& point, bool withShadows = false) const {
    return Make().Illuminate(point, withShadows).colour.x;
  }

  HalfWall wall;
  host::Document document;
  host::BaseNode& node = document.Create<host::BaseNode>(host::kLightObject, "light", nullptr);
};

}  // namespace

TEST_F(LightTest, FallsOffWithDistance) {
  EXPECT_DOUBLE_EQ(RedAt({0, 0, -200}), 2) << "its brightness at the falloff distance";
  EXPECT_DOUBLE_EQ(RedAt({0, 0, -400}), 2 / 4.0);
  node.Set(host::kLightFalloff, static_cast<i32>(host::Falloff::Inverse));
  EXPECT_DOUBLE_EQ(RedAt({0, 0, -400}), 2 / 2.0);
  node.Set(host::kLightFalloff, static_cast<i32>(host::Falloff::None));
  EXPECT_DOUBLE_EQ(RedAt({0, 0, -400}), 2);
  node.Set(host::kLightFalloff, static_cast<i32>(host::Falloff::InverseSquare));
  EXPECT_TRUE(std::isfinite(RedAt({0, 0, 0}))) << "at the light itself";
  const RenderLight::Illumination light = Make().Illuminate({0, 100, 0}, false);
  EXPECT_EQ(light.direction, (Vec3d{0, 1, 0})) << "away from the light";
  EXPECT_EQ(light.distance, 100);
  EXPECT_DOUBLE_EQ(light.colour.z, 2 * 0.25 * 4);
}

TEST_F(LightTest, SpotKeepsToItsCone) {
  Set(host::LightKind::Spot);
  node.Set(host::kLightFalloff, static_cast<i32>(host::Falloff::None));
  node.Set(host::kLightConeAngle, 60.0);
  node.Set(host::kLightConeEdge, 0.5);
  const auto at = [&](double degrees) {
    const double a = degrees * M_PI / 180;
    return RedAt(Vec3d{std::sin(a), 0, -std::cos(a)} * 300.0);
  };
  EXPECT_DOUBLE_EQ(at(0), 2);
  EXPECT_DOUBLE_EQ(at(14.9), 2);
  EXPECT_LT(at(25), 2);
  EXPECT_GT(at(25), 0);
  EXPECT_EQ(at(30.1), 0);
  EXPECT_EQ(at(180), 0);
}

TEST_F(LightTest, DistantLightIsTheSameEverywhere) {
  Set(host::LightKind::Distant);
  node.SetPlacement({0, 300, 0}, {}, {1, 1, 1});
  node.Set(host::kLightTarget, Vec3d{300, 0, 0});
  for (const Vec3d& point : {Vec3d{0, 0, 0}, Vec3d{5000, -20, 7}}) {
    const RenderLight::Illumination light = Make().Illuminate(point, false);
    EXPECT_DOUBLE_EQ(light.colour.x, 2);
    EXPECT_NEAR(light.direction.x, std::sqrt(0.5), 1e-12);
    EXPECT_NEAR(light.direction.y, -std::sqrt(0.5), 1e-12);
    EXPECT_EQ(Make().DirectionTo(point), light.direction);
  }
}

TEST_F(LightTest, AreaLightShinesForwardAndHasHalfShadows) {
  Set(host::LightKind::Area);
  node.Set(host::kLightSize, Vec3d{100, 100, 0});
  // It stands at x = 20 and looks along -x, through the wall's edge.
  node.SetPlacement({20, 0, 0}, {0, 90, 0}, {1, 1, 1});
  EXPECT_GT(RedAt({-80, 0, 0}), 0);
  EXPECT_EQ(RedAt({120, 0, 0}), 0) << "behind it";
  const double half = RedAt({-80, 0, 0}, true) / RedAt({-80, 0, 0});
  EXPECT_NEAR(half, 0.5, 0.13) << "the wall hides its lower half";
  const RenderLight::Illumination light = Make().Illuminate({-80, 0, 0}, true);
  EXPECT_NEAR(light.shadow.x, 1 - half, 1e-12);
  EXPECT_EQ(RedAt({-80, 0, 0}, true), RedAt({-80, 0, 0}, true)) << "the same each time";
  node.Set(host::kLightShadows, i32{0});
  EXPECT_EQ(RedAt({-80, 0, 0}, true), RedAt({-80, 0, 0}));
}
