#include "fluids/rendering/ray_marcher.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "fluids/rendering/render_rig.h"
#include "threads.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {
namespace {

constexpr double kPi = 3.14159265358979323846;

double Blob(const Vec3d& p, const Vec3d& centre, double radius) {
  const Vec3d d = p - centre;
  return std::exp(-Dot(d, d) / (radius * radius));
}

// ---- extinction ---------------------------------------------------------------------------------

TEST(RayMarcher, ASlabLetsThroughExpOfItsDepthForAnyStepAndJitter) {
  const double known[][2] = {
      {0.1, 0.904837}, {0.5, 0.606531}, {1, 0.367879}, {2, 0.135335}, {5, 0.006738}};
  RenderRig rig({20, 12, 12});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 0.5; });
  for (const auto& [depth, transmittance] : known)
    for (const double step : {0.3, 1.0, 7.0, 50.0})
      for (const bool trapezoid : {false, true}) {
        rig.node->Set(2351, depth / (rig.size.x * 0.5));
        rig.node->Set(2154, step);
        rig.node->Set(2159, i32{trapezoid});
        ASSERT_TRUE(rig.Init());
        for (const double u : {0.0, 0.37, 0.99}) {
          const Vec3d t = rig.See(u).transmission;
          for (int a = 0; a < 3; ++a)
            EXPECT_NEAR(t[a], transmittance, 1e-4) << depth << " step " << step << " u " << u;
        }
      }
}

TEST(RayMarcher, AbsorbsByColourAndWithGreyAllAlike) {
  RenderRig rig({10, 10, 10});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  const Vec3d colour{1, 0.5, 0};
  rig.node->Set(2227, host::Gradient{{{0, colour}, {1, colour}}});
  rig.node->Set(2351, 0.01);
  ASSERT_TRUE(rig.Init());
  const Vec3d t = rig.See().transmission;
  EXPECT_NEAR(t.x, std::exp(-1.0), 1e-4);
  EXPECT_NEAR(t.y, std::exp(-0.5), 1e-4);
  EXPECT_NEAR(t.z, 1, 1e-12);
  rig.node->Set(2456, i32{1});
  ASSERT_TRUE(rig.Init());
  for (int a = 0; a < 3; ++a) EXPECT_NEAR(rig.See().transmission[a], std::exp(-1.0), 1e-4);
}

TEST(RayMarcher, ARayEndsAtASurfaceAndStartsInsideTheSmoke) {
  RenderRig rig({20, 10, 10});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2351, 0.01);
  ASSERT_TRUE(rig.Init());
  host::HitRecord hit;
  hit.point = {100, 50, 50};
  EXPECT_NEAR(rig.See({-50, 50, 50}, {1, 0, 0}, 0.5, 0, &hit).transmission.x, std::exp(-1.0), 2e-4);
  hit.point = {-10, 50, 50};
  EXPECT_EQ(rig.See({-50, 50, 50}, {1, 0, 0}, 0.5, 0, &hit).transmission.x, 1);
  EXPECT_NEAR(rig.See({150, 50, 50}, {1, 0, 0}).transmission.x, std::exp(-0.5), 1e-4);
  EXPECT_NEAR(rig.See({50, 50, 50}, {0, 1, 0}).transmission.x, std::exp(-0.5), 1e-4);
  EXPECT_EQ(rig.See({-50, 150, 50}, {1, 0, 0}).transmission, (Vec3d{1, 1, 1}));
  EXPECT_NEAR(rig.See().depth, 50, 10);
}

TEST(RayMarcher, AnEmptyBoxCostsLongStepsOnly) {
  RenderRig rig({64, 16, 16});
  ASSERT_TRUE(rig.Init());
  const RenderRig::Seen seen = rig.See();
  EXPECT_EQ(seen.colour, Vec3d{});
  EXPECT_EQ(seen.transmission, (Vec3d{1, 1, 1}));
  MarchResult result;
  MarchRecord record;
  const VolumeRay ray({0, 80, 80}, {640, 80, 80});
  rig.material->Marcher()->MarchRay(result, record, ray, 0.5, rig.data, 0);
  EXPECT_LE(record.places, 640 / 25 + 3);
  EXPECT_LT(record.firstDepth, 0);
  EXPECT_EQ(record.count[0], 0);
}

TEST(RayMarcher, LongStepsMissNothingOfABlobAndSaveSamples) {
  RenderRig rig({64, 16, 16});
  rig.Fill(*rig.smoke, [](const Vec3d& p) { return std::abs(p.x - 405) < 30 ? 1.0 : 0.0; });
  rig.node->Set(2351, 0.02);
  ASSERT_TRUE(rig.Init());
  // Seven cells wide with linear flanks of a cell.
  for (const double u : {0.1, 0.5, 0.9})
    EXPECT_NEAR(rig.See(u).transmission.x, std::exp(-0.02 * 50), 0.02);
  MarchResult result;
  MarchRecord record;
  const VolumeRay ray({0, 80, 80}, {640, 80, 80});
  rig.material->Marcher()->MarchRay(result, record, ray, 0.5, rig.data, 0);
  EXPECT_LT(record.places, 40);
  EXPECT_NEAR(record.firstDepth, 375, 15);
}

// ---- light --------------------------------------------------------------------------------------

TEST(RayMarcher, AnEvenGlowHasItsRadiance) {
  // Nothing absorbs: intensity times density times length.
  RenderRig rig({20, 8, 8});
  rig.LinkFire();
  rig.node->Set(2200, host::Link{});
  rig.Fill(*rig.heat, [](const Vec3d&) { return 1500.0; });
  rig.node->Set(2750, 0.6);
  rig.node->Set(2201, 0.02);
  rig.node->Set(2600, i32{1});
  rig.node->Set(2602, host::Gradient{{{0, {1, 0.5, 0.25}}}});
  ASSERT_TRUE(rig.Init());
  const RenderRig::Seen thin = rig.See();
  EXPECT_NEAR(thin.colour.x, 0.6 * 0.02 * 200, 1e-9);
  EXPECT_NEAR(thin.colour.z, 0.25 * 0.6 * 0.02 * 200, 1e-9);
  EXPECT_EQ(thin.emission, thin.colour);
  EXPECT_EQ(thin.transmission, (Vec3d{1, 1, 1}));
  // With extinction: e / k (1 - exp(-k rho l)), reached by halving the step with order 2.
  rig.node->Set(2756, 1.0);
  const double exact = 0.6 * (1 - std::exp(-0.02 * 200));
  double error[2];
  for (int i = 0; i < 2; ++i) {
    rig.node->Set(2154, i ? 0.5 : 1.0);
    rig.node->Set(2153, 0.0);
    ASSERT_TRUE(rig.Init());
    error[i] = std::abs(rig.See().colour.x - exact);
  }
  EXPECT_LT(error[0], 0.01 * exact);
  EXPECT_LT(error[1], error[0] / 3.5);
}

TEST(RayMarcher, EvenSmokeHasItsBrightnessForAnyThicknessAndStep) {
  RenderRig rig({20, 8, 8});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2350, Vec3d{1, 1, 1});
  rig.node->Set(2351, 0.02);
  rig.node->Set(2352, 0.01);
  for (const double density : {0.01, 1.0, 100.0})
    for (const double step : {0.3, 1.0, 7.0})
      for (const bool trapezoid : {false, true}) {
        rig.node->Set(2251, density);
        rig.node->Set(2154, step);
        rig.node->Set(2159, i32{trapezoid});
        ASSERT_TRUE(rig.Init());
        const double exact = 0.5 * (1 - std::exp(-0.02 * density * 200));
        EXPECT_NEAR(rig.See().colour.x, exact, 1e-3 * exact) << density << " step " << step;
      }
}

TEST(RayMarcher, ColdFireIsNotSeenHoweverBright) {
  RenderRig rig({8, 8, 8});
  rig.LinkFire();
  rig.Fill(*rig.heat, [](const Vec3d&) { return 526.0; });  // 799.5 K
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(rig.See().colour, Vec3d{});
  rig.Fill(*rig.heat, [](const Vec3d&) { return 527.0; });
  ASSERT_TRUE(rig.Init());
  EXPECT_GT(rig.See().colour.x, 0);
}

TEST(RayMarcher, ScattersALampThroughThePhaseFunctionTowardsTheViewer) {
  // Thin smoke, no shadow: density * scattering * phase * length.
  RenderRig rig({20, 8, 8});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2351, 0.0);
  rig.node->Set(2352, 0.001);
  rig.node->Set(2453, 0.0);
  rig.node->Set(2354, 0.5);
  TestLight& light = rig.AddLight({0, -1, 0});
  light.colour = {1, 2, 3};
  ASSERT_TRUE(rig.Init());
  const double side = 0.75 / std::pow(1.25, 1.5);
  EXPECT_NEAR(rig.See().colour.x, 0.2 * side, 1e-6);
  EXPECT_NEAR(rig.See().colour.z, 0.6 * side, 1e-6);
  // Light that comes towards the viewer is scattered straight on.
  light.direction = {-1, 0, 0};
  EXPECT_NEAR(rig.See().colour.x, 0.2 * 0.75 / std::pow(0.25, 1.5), 1e-6);
  light.direction = {1, 0, 0};
  EXPECT_NEAR(rig.See().colour.x, 0.2 * 0.75 / std::pow(2.25, 1.5), 1e-6);
  // The isotropic kind is 1 / (4 pi); one that is none gives no light.
  rig.node->Set(2353, i32{0});
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(rig.See().colour.x, 0.2 / (4 * kPi), 1e-6);
  rig.node->Set(2353, i32{9});
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(rig.See().colour, Vec3d{});
}

TEST(RayMarcher, SmokeShadowsItself) {
  // Light from above through even smoke: exp(-density * depth below the top).
  RenderRig rig({10, 40, 10});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2351, 0.0);
  rig.node->Set(2352, 0.001);
  rig.node->Set(2453, 0.005);
  rig.node->Set(2353, i32{0});
  rig.AddLight({0, -1, 0});
  ASSERT_TRUE(rig.Init());
  const double lit = 0.1 / (4 * kPi);
  for (const double y : {370.0, 210.0, 50.0})
    EXPECT_NEAR(rig.See({-50, y, 50}, {1, 0, 0}).colour.x, lit * std::exp(-0.005 * (400 - y)),
                0.01 * lit)
        << y;
}

TEST(RayMarcher, MeshesShadowTheSmokeAndListsChooseLights) {
  RenderRig rig({8, 8, 8});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2453, 0.0);
  TestLight& light = rig.AddLight({0, -1, 0});
  ASSERT_TRUE(rig.Init());
  const double open = rig.See().colour.x;
  light.blocked = {0.75, 0.75, 0.75};
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(rig.See().colour.x, 0.25 * open, 1e-5 * open);
  rig.node->Set(2500, i32{0});
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(rig.See().colour.x, open, 1e-9);
  light.volumes = false;
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(rig.See().colour.x, 0);
  light.volumes = true;
  light.node = rig.smoke->Node()->Id();
  rig.node->Set(2158, host::InExcludeData{{{rig.heat->Node()->Id(), 0}}});
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(rig.See().colour.x, 0);
}

TEST(RayMarcher, TheStepMattersLittle) {
  RenderRig rig({32, 32, 32});
  rig.Fill(*rig.smoke, [](const Vec3d& p) { return 0.8 * Blob(p, {160, 160, 160}, 70); });
  rig.node->Set(2351, 0.01);
  rig.node->Set(2352, 0.01);
  rig.node->Set(2453, 0.01);
  rig.node->Set(2400, i32{1});
  rig.node->Set(2407, 2.0);
  rig.AddLight(Normalised(Vec3d{-1, -1, 0.4}));
  double values[2][9];
  double mean = 0;
  for (int fine = 0; fine < 2; ++fine) {
    rig.node->Set(2154, fine ? 0.5 : 1.0);
    rig.node->Set(2409, fine ? 0.5 : 1.0);
    ASSERT_TRUE(rig.Init());
    for (int i = 0; i < 9; ++i) {
      const Vec3d c = rig.See({-50, 100.0 + 60 * (i % 3), 100.0 + 60 * (i / 3)}, {1, 0, 0}).colour;
      values[fine][i] = c.x;
      mean += c.x / 18;
    }
  }
  double square = 0;
  for (int i = 0; i < 9; ++i) square += std::pow(values[0][i] - values[1][i], 2) / 9;
  EXPECT_LT(std::sqrt(square), 0.02 * mean);
}

TEST(RayMarcher, MultipleScatteringBrightensThickSmokeOnTheLitSide) {
  RenderRig rig({24, 24, 24});
  rig.Fill(*rig.smoke, [](const Vec3d& p) {
    return Length(p - Vec3d{120, 120, 120}) < 70 ? 1.0 : 0.0;
  });
  rig.node->Set(2351, 0.02);
  rig.node->Set(2352, 0.02);
  rig.node->Set(2453, 0.02);
  rig.node->Set(2405, 0.002);
  rig.node->Set(2406, 0.02);
  rig.AddLight({0, -1, 0});
  ASSERT_TRUE(rig.Init());
  const double once = rig.See().colour.x;
  rig.node->Set(2400, i32{1});
  ASSERT_TRUE(rig.Init());
  const double more = rig.See().colour.x;
  EXPECT_GT(more, once);
  const auto gain = [&](double y) { return rig.See({-50, y, 120}, {1, 0, 0}).colour.x; };
  EXPECT_GT(gain(160), gain(80));
  rig.node->Set(2416, 0.0);
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(rig.See().colour.x, once);
}

TEST(RayMarcher, MultipleScatteringKeepsTheColourOfALampThatMissesTheMiddle) {
  RenderRig rig({16, 16, 16});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2400, i32{1});
  for (const i32 id : {2351, 2352, 2405, 2406, 2453}) rig.node->Set(id, 0.01);
  TestLight& light = rig.AddLight({0, -1, 0});
  light.colour = {1, 0, 0};
  light.darkBelow = 110;
  ASSERT_TRUE(rig.Init());
  const Vec3d seen = rig.See({-50, 130, 80}, {1, 0, 0}).colour;
  EXPECT_GT(seen.x, 0);
  EXPECT_EQ(seen.y, 0);
}

TEST(RayMarcher, CoarseLightMapsLoseNoThinSmoke) {
  // A sheet that the centres of the maps' cells miss.
  RenderRig rig({40, 40, 40});
  rig.node->Set(2453, 0.0);
  rig.node->Set(2155, 0.5);
  rig.AddLight({0, -1, 0});
  for (const double x : {45.0, 225.0, 375.0}) {
    rig.Fill(*rig.smoke, [&](const Vec3d& p) { return std::abs(p.x - x) < 10 ? 1.0 : 0.0; });
    double light[2];
    for (const bool coarse : {false, true}) {
      rig.node->Set(2455, coarse ? 0.1 : 1.0);
      ASSERT_TRUE(rig.Init());
      light[coarse] = rig.See().colour.x;
    }
    EXPECT_GT(light[1], 0.4 * light[0]) << x;
  }
}

TEST(RayMarcher, FireLightsTheSmokeRoundIt) {
  RenderRig rig({30, 30, 30});
  rig.LinkFire();
  const Vec3d hot{150, 40, 150};
  rig.Fill(*rig.heat, [&](const Vec3d& p) { return 2000 * Blob(p, hot, 25); });
  rig.Fill(*rig.smoke, [](const Vec3d& p) { return p.y > 90 ? 0.5 : 0.0; });
  rig.node->Set(2453, 0.001);
  rig.node->Set(2752, 100.0);
  const auto at = [&](double y) { return rig.See({-50, y, 150}, {1, 0, 0}).scattering; };
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(at(110), Vec3d{});
  for (const bool directed : {false, true}) {
    rig.node->Set(2757, 1.0);
    rig.node->Set(2760, i32{directed});
    ASSERT_TRUE(rig.Init());
    EXPECT_GT(at(110).x, 0) << directed;
    EXPECT_GT(at(110).x, 2 * at(270).x) << directed;
    EXPECT_GT(at(110).x, at(110).z) << directed;  // the light of fire is warm
  }
}

TEST(RayMarcher, DirectedLightOfFireFavoursNoSide) {
  RenderRig rig({24, 24, 24});
  rig.LinkFire();
  const Vec3d middle = rig.size * 0.5;
  rig.Fill(*rig.heat, [&](const Vec3d& p) { return 3000 * Blob(p, middle, 60); });
  rig.Fill(*rig.smoke, [&](const Vec3d& p) { return Length(p - middle) < 95 ? 0.5 : 0.0; });
  rig.node->Set(2453, 0.0);
  rig.node->Set(2752, 30.0);
  rig.node->Set(2757, 1.0);
  rig.node->Set(2760, i32{1});
  ASSERT_TRUE(rig.Init());
  const auto along = [&](const Vec3d& way) {
    const Vec3d d = Normalised(way);
    return rig.See(middle - d * 300, d, 1).scattering.x;
  };
  for (const Vec3d& way : {Vec3d{1, 1, 1}, Vec3d{1, 0.8, 0.9}, Vec3d{1, 0, 0}}) {
    EXPECT_GT(along(way), 0);
    EXPECT_NEAR(along(way) / along(-way), 1, 1e-3);
  }
}

// What leaves the boxes to all sides is what parallel rays find of fire and of smoke that it
// lights.
TEST(RayMarcher, GlowingBoxesHoldAllLightOfTheFire) {
  RenderRig rig({25, 20, 18});
  rig.LinkFire();
  const Vec3d hot{130, 60, 90};
  rig.Fill(*rig.heat, [&](const Vec3d& p) { return 2500 * Blob(p, hot, 50); });
  rig.Fill(*rig.smoke, [&](const Vec3d& p) { return 0.4 * Blob(p, {110, 120, 90}, 60); });
  for (const i32 id : {2351, 2453}) rig.node->Set(id, 0.0);  // no light is lost on the way
  rig.node->Set(2757, 1.5);
  rig.node->Set(2752, 40.0);
  rig.node->Set(2554, 2.0);
  ASSERT_TRUE(rig.Init());
  constexpr double kEvery = 2.5;
  Vec3d seen, sent;
  for (double y = kEvery / 2; y < rig.size.y; y += kEvery)
    for (double z = kEvery / 2; z < rig.size.z; z += kEvery)
      seen += rig.See({-50, y, z}, {1, 0, 0}).colour * (kEvery * kEvery);
  for (const host::GlowingBox& box : rig.material->Glow()) {
    sent += box.power;
    EXPECT_GT(box.weight, 0);
    for (int a = 0; a < 3; ++a) EXPECT_TRUE(box.min[a] >= 0 && box.max[a] <= rig.size[a] + 1e-9);
  }
  ASSERT_GT(seen.x, 0);
  EXPECT_NEAR(sent.x / (2 * seen.x), 1, 0.02) << "gi_scale is 2";
  EXPECT_NEAR(sent.y / (2 * seen.y), 1, 0.02);

  // A lamp adds nothing to them, and what they hold is told apart on every ray.
  rig.AddLight({0, -1, 0});
  ASSERT_TRUE(rig.Init());
  const auto ray = host::RenderRay{{-50, 90, 90}, {1, 0, 0}, 0, 0, 17, 0.5};
  host::VolumeRecord record{ray};
  rig.material->Volumetric(record, rig.data);
  EXPECT_GT(record.glow.x, record.emission.x);
  EXPECT_GT(record.colour.x, record.glow.x);
  Vec3d again;
  for (const host::GlowingBox& box : rig.material->Glow()) again += box.power;
  EXPECT_EQ(again, sent);
  rig.node->Set(2863, i32{0});
  ASSERT_TRUE(rig.Init());
  EXPECT_TRUE(rig.material->Glow().empty()) << "indirect light doesn't see it";
}

// ---- shadows on others, visibility, failures ----------------------------------------------------

TEST(RayMarcher, SmokeShadowsOtherObjects) {
  RenderRig rig({10, 20, 10});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2453, 0.005);
  ASSERT_TRUE(rig.Init());
  const auto shadow = [&] { return rig.Shadow({50, -20, 50}, {0, 1, 0}, 1000).x; };
  EXPECT_NEAR(shadow(), std::exp(-1.0), 1e-4);
  EXPECT_NEAR(rig.Shadow({50, -20, 50}, {0, 1, 0}, 120).x, std::exp(-0.5), 1e-4);
  EXPECT_EQ(rig.Shadow({150, -20, 50}, {0, 1, 0}, 1000).x, 1);
  rig.node->Set(2862, i32{0});  // unseen by the camera, the shadow stays
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(rig.See().transmission.x, 1);
  EXPECT_NEAR(shadow(), std::exp(-1.0), 1e-4);
  rig.node->Set(2502, 0.5);
  rig.node->Set(2506, Vec3d{0.2, 0.2, 0.2});
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(shadow(), 1 + 0.5 * (0.2 + 0.8 * std::exp(-1.0) - 1), 1e-4);
  rig.node->Set(2501, i32{0});
  ASSERT_TRUE(rig.Init());
  EXPECT_EQ(shadow(), 1);
}

TEST(RayMarcher, RaysOfAKindPassWhenSwitchedOff) {
  RenderRig rig({8, 8, 8});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.LinkFire();
  const std::pair<i32, u32> kinds[] = {{2863, host::kRayGlobalIllumination},
                                       {2864, host::kRayTransparency},
                                       {2865, host::kRayRefraction},
                                       {2866, host::kRayReflection},
                                       {2867, host::kRayAmbientOcclusion}};
  const auto sees = [&](u32 flag) {
    return rig.See({-50, 40, 40}, {1, 0, 0}, 0.5, flag).transmission.x < 1;
  };
  for (const auto& [id, flag] : kinds) {
    ASSERT_TRUE(rig.Init());
    EXPECT_TRUE(sees(flag)) << id;
    rig.node->Set(id, i32{0});
    ASSERT_TRUE(rig.Init());
    EXPECT_FALSE(sees(flag)) << id;
    EXPECT_TRUE(sees(0)) << id;
    rig.node->Set(id, i32{1});
  }
  ASSERT_TRUE(rig.Init());
  EXPECT_FALSE(sees(host::kRayVolumeLight));
  rig.node->Set(2551, host::Link{});  // smoke alone is no source of indirect light
  ASSERT_TRUE(rig.Init());
  EXPECT_FALSE(sees(host::kRayGlobalIllumination));
}

TEST(RayMarcher, NothingLinkedNothingDrawn) {
  RenderRig rig({8, 8, 8});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Erase(2227);
  EXPECT_FALSE(rig.Init());
  EXPECT_EQ(rig.See().transmission.x, 1);
  rig.node->Set(2227, host::Gradient{{{0, {1, 1, 1}}}});
  EXPECT_TRUE(rig.Init());
  rig.node->Erase(2651);
  EXPECT_FALSE(rig.Init());
  rig.node->Set(2651, host::SplineData{{{0, 0}, {1, 1}}});
  rig.node->Set(2200, host::Link{});
  EXPECT_FALSE(rig.Init());
  rig.node->Set(2200, host::Link{rig.smoke->Node()->Id()});
  rig.smoke->Release(true);
  EXPECT_FALSE(rig.Init());
  EXPECT_EQ(rig.Shadow({0, 0, 0}, {1, 1, 1}, 100).x, 1);
}

// ---- output, sampling, repeatability ------------------------------------------------------------

TEST(RayMarcher, FinishOfTheColours) {
  RenderRig rig({10, 10, 10});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  rig.node->Set(2351, 0.01);
  rig.node->Set(2800, 2.0);
  rig.node->Set(2801, host::Gradient{{{0, {1, 0, 0}}}});
  rig.node->Set(2802, 0.5);
  rig.node->Set(2803, 0.2);
  rig.node->Set(2804, 0.0);
  ASSERT_TRUE(rig.Init());
  const RenderRig::Seen seen = rig.See();
  const double t = std::exp(-1.0), opacity = 1 - t;
  const double mean = (2 * opacity + 3 * 0.5 * opacity) / 3;
  for (int a = 0; a < 3; ++a) {
    EXPECT_NEAR(seen.colour[a], mean, 1e-4);
    EXPECT_NEAR(seen.transmission[a], (t - 0.5) * 1.2 + 0.5, 1e-4);
  }
  // Contrast and saturation lead to no light below black and to no smoke that amplifies.
  rig.node->Set(2803, 9.0);
  rig.node->Set(2804, 9.0);
  for (const double absorption : {0.002, 0.02}) {
    rig.node->Set(2351, absorption);
    ASSERT_TRUE(rig.Init());
    EXPECT_EQ(rig.See().transmission.x, absorption < 0.01 ? 1 : 0);
    EXPECT_GT(rig.See().colour.x, 0);
    EXPECT_EQ(rig.See().colour.y, 0);
  }
}

TEST(RayMarcher, CubicSamplesAtTheRimAndAnotherResolutionStayInTheGrid) {
  RenderRig rig({12, 12, 12});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 0.5; });
  rig.node->Set(2351, 0.01);
  rig.node->Set(2156, i32{1});
  for (const double factor : {1.0, 0.5, 1.7}) {
    rig.node->Set(2150, factor);
    ASSERT_TRUE(rig.Init());
    EXPECT_NEAR(rig.See({-1, 1, 1}, {1, 1, 1}).transmission.x,
                std::exp(-0.005 * 120 * std::sqrt(3)), 0.02)
        << factor;
  }
  rig.node->Set(2151, i32{1});
  rig.node->Set(2150, 0.25);
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(rig.See().transmission.x, std::exp(-0.6), 1e-4);
}

TEST(RayMarcher, SameBytesOnAnyNumberOfWorkers) {
  std::vector<Vec3d> pictures[2];
  for (const i32 count : {1, 3}) {
    Threads threads(count);
    RenderRig rig({20, 20, 20});
    rig.LinkFire();
    rig.Fill(*rig.smoke, [](const Vec3d& p) { return Blob(p, {100, 110, 90}, 60); });
    rig.Fill(*rig.heat, [](const Vec3d& p) { return 2500 * Blob(p, {100, 40, 100}, 30); });
    rig.node->Set(2400, i32{1});
    rig.node->Set(2757, 1.0);
    rig.node->Set(2457, i32{1});
    rig.node->Set(2253, i32{1});
    rig.node->Set(2301, i32{1});
    rig.node->Set(2306, 40.0);
    rig.AddLight(Normalised(Vec3d{-1, -2, 0.5}));
    ASSERT_TRUE(rig.Init());
    for (int i = 0; i < 36; ++i)
      pictures[count > 1].push_back(
          rig.See({-50, 20.0 + 30 * (i % 6), 20.0 + 30 * (i / 6)}, {1, 0.1, 0.05}).colour);
  }
  EXPECT_EQ(0, std::memcmp(pictures[0].data(), pictures[1].data(), 36 * sizeof(Vec3d)));
}

}  // namespace
}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
