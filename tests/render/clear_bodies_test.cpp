#include "render/clear_bodies.h"

#include <fmt/format.h>

#include <cmath>
#include <numbers>

#include "host/image.h"
#include "render/environment.h"
#include "render/exr_file.h"
#include "render/render_scene.h"
#include "render/render_world.h"
#include "render/surface.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

constexpr double kIndex = 1.5;

/// A view from above at nothing but a sky of one brightness.
std::string Under(const std::string& more) {
  return R"("background": [[0.5, [1, 1, 1]]], "ground": false, "size": [32, 32], "samples": 8)" +
         more;
}
const char* const kFront = R"({"type": "camera", "name": "view", "position": [0, 0, 500],
                              "parameters": {"target": [0, 0, 0], "field_of_view": 30}})";

std::string Clear(const std::string& name, const std::string& objects, const std::string& rows) {
  return R"({"type": "dielectric", "name": ")" + name + R"(", "objects": [)" + objects +
         R"(], "parameters": {)" + rows + "}}";
}

double MeanOf(const RenderedPicture& picture) {
  double sum = 0;
  for (i32 y = 0; y < picture.height; ++y)
    for (i32 x = 0; x < picture.width; ++x) sum += app::LightAt(picture, x, y).y;
  return sum / (picture.width * picture.height);
}

/// Part of light that a plate lets through straight ahead: rays between its sides go to and fro.
double PlatePasses(double index, double depth) {
  const double mirrored = FresnelOf(1, index), inside = std::exp(-depth);
  return (1 - mirrored) * (1 - mirrored) * inside / (1 - mirrored * mirrored * inside * inside);
}

}  // namespace

TEST(ClearBodiesTest, LightObeysSnellAndFresnel) {
  const Vec3d up{0, 1, 0};
  for (const double degrees : {0.0, 20.0, 45.0, 70.0, 89.0}) {
    const double angle = degrees * std::numbers::pi / 180;
    const Vec3d in{std::sin(angle), -std::cos(angle), 0};
    const Vec3d out = Refracted(in, up, kIndex);
    EXPECT_NEAR(out.x * kIndex, in.x, 1e-12);
    EXPECT_NEAR(Length(out), 1, 1e-12);
    // The same boundary the other way mirrors as much, and turns the light back.
    EXPECT_NEAR(FresnelOf(-in.y, kIndex), FresnelOf(-out.y, 1 / kIndex), 1e-12);
    EXPECT_NEAR(Length(Refracted(-out, -up, 1 / kIndex) + in), 0, 1e-9);
  }
  EXPECT_NEAR(FresnelOf(1, kIndex), 0.04, 1e-12);
  // At Brewster's angle all that is mirrored swings across: half of sin^2 of twice the angle's gap.
  const double brewster = std::atan(kIndex), behind = std::asin(std::sin(brewster) / kIndex);
  EXPECT_NEAR(FresnelOf(std::cos(brewster), kIndex), 0.5 * std::pow(std::sin(brewster - behind), 2),
              1e-12);
  const double beyond = std::asin(1 / kIndex) + 0.01;
  EXPECT_EQ(FresnelOf(std::cos(beyond), 1 / kIndex), 1);
  EXPECT_EQ(Refracted({std::sin(beyond), std::cos(beyond), 0}, -up, 1 / kIndex), Vec3d{});
}

TEST(ClearBodiesTest, HighestPriorityFillsThePlace) {
  Surface water, glass, drop;
  water.index = 1.33;
  glass.index = 1.5;
  glass.priority = 1;
  drop.index = 1.4;
  ClearBodies inside;
  EXPECT_EQ(inside.Index(), 1);
  inside.Enter(&glass);
  inside.Enter(&water);
  EXPECT_EQ(inside.Filling(), &glass);
  EXPECT_TRUE(inside.Leave(&glass));
  EXPECT_EQ(inside.Filling(), &water);
  inside.Enter(&drop);
  EXPECT_EQ(inside.Filling(), &drop);
  EXPECT_FALSE(inside.Leave(&glass));
  EXPECT_TRUE(inside.Leave(&water));
  EXPECT_EQ(inside.Filling(), &drop);
}

TEST(ClearPictureTest, GlassUnderAnEvenSkyIsAsBrightAsTheSky) {
  for (const std::string rough : {"0", "0.1", "0.3", "0.6", "1"}) {
    const LoadedScene scene = LoadRenderScene(
        std::string(kFront) + R"(, {"type": "sphere", "name": "ball", "radius": 90})",
        Under(R"(, "materials": [)" +
              Clear("glass", "\"ball\"",
                    R"("index": 1.5, "absorption": [0, 0, 0], "roughness": )" + rough) +
              "]"));
    const RenderedPicture picture = Draw(scene);
    double least = 2, most = 0;
    for (i32 y = 0; y < picture.height; ++y)
      for (i32 x = 0; x < picture.width; ++x) {
        const double light = app::LightAt(picture, x, y).y;
        least = std::min(least, light), most = std::max(most, light);
      }
    EXPECT_NEAR(least, 1, 1e-6) << rough;
    EXPECT_NEAR(most, 1, 1e-6) << rough;
  }
}

TEST(ClearPictureTest, PlatesTakeLightByTheirDepth) {
  // A plate 0.5 m thick before a white wall that shines, seen straight through.
  const std::string objects = R"({"type": "camera", "name": "view", "position": [0, 0, 500],
          "parameters": {"target": [0, 0, 0], "field_of_view": 2}}, {"type": "box", "name": "plate", "size": [400, 400, 50]},
      {"type": "box", "name": "wall", "size": [4000, 4000, 10], "position": [0, 0, -500]})";
  const auto seen = [&](const std::string& more, const std::string& shapes) {
    const LoadedScene scene = LoadRenderScene(
        objects + shapes,
        R"("background": [[0.5, [0, 0, 0]]], "ground": false, "size": [16, 16], "samples": 256,
           "bounce_light": false, "lights": [], "materials": [
             {"type": "surface", "objects": ["wall"],
              "parameters": {"colour": [0, 0, 0], "emission": [1, 1, 1]}}, )" +
            Clear("glass", "\"plate\"", R"("index": 1.5, "absorption": [0, 1.2, 0])") + more + "]");
    return MeanOf(Draw(scene));
  };
  const double plate = PlatePasses(1.5, 0.6);
  EXPECT_NEAR(seen("", ""), plate, 0.004);
  // A body of less priority in the plate isn't there; one of more pushes the plate aside.
  const std::string box = R"(, {"type": "box", "name": "core", "size": [200, 200, 20]})";
  EXPECT_NEAR(seen(", " + Clear("lost", "\"core\"", R"("index": 2, "priority": -1)"), box), plate,
              0.004);
  EXPECT_NEAR(seen(", " + Clear("core glass", "\"core\"",
                                R"("index": 1.5, "priority": 1, "absorption": [0, 4, 0])"),
                   box),
              PlatePasses(1.5, 0.36 + 0.8), 0.004);
}

TEST(ClearPictureTest, LampsShineThroughWaterAndCamerasSwimInIt) {
  const std::string lamp =
      R"(, {"type": "light", "name": "lamp", "position": [0, 1000, 0],
            "parameters": {"kind": "distant", "target": [0, 0, 0]}},
         {"type": "box", "name": "pool", "size": [4000, 100, 4000], "position": [0, 50.5, 0]})";
  const auto floor = [&](double height) {
    const std::string camera =
        R"({"type": "camera", "name": "view", "position": [0, )" + std::to_string(height) + R"(, 0],
                                "parameters": {"target": [0, 0, 0.001], "field_of_view": 2}})";
    const LoadedScene scene = LoadRenderScene(
        camera + lamp,
        R"("background": [[0.5, [0, 0, 0]]], "size": [4, 4], "samples": 64,
           "ground_height": 1, "ground_colour": [1, 1, 1], "ground_fade": 0, "bounce_light": false,
           "materials": [)" +
            Clear("water", "\"pool\"", R"("index": 1.333, "absorption": [0, 1, 0])") + "]");
    return MeanOf(Draw(scene));
  };
  // The lamp's light crosses one boundary and nearly a metre of water to the floor, whose light
  // spreads on its way out, as it does before the camera's lens.
  const double mirrored = FresnelOf(1, 1.333),
               down = (1 - mirrored) * std::exp(-0.995) / (1.333 * 1.333);
  EXPECT_NEAR(floor(61), down * std::exp(-0.6), 0.01);
}

/// Under half a metre of water, which gives back much of what its floor throws.
TEST(ClearPictureTest, FloorsInWaterAreAsBrightAsTheyAre) {
  // Part of a floor's light that leaves the water, which is that of an even sky that comes in,
  // times the square of the index.
  double leaves = 0;
  constexpr i32 kSteps = 20000;
  for (i32 i = 0; i < kSteps; ++i)
    leaves += (1 - FresnelOf(std::sqrt((i + 0.5) / kSteps), 1 / 1.333)) / kSteps;
  const double mirrored = FresnelOf(1, 1.333), slant = std::sqrt(0.5);
  for (const double white : {0.3, 0.8})
    for (const bool isLit : {false, true}) {
      const std::string lamp =
                            R"(, {"type": "light", "name": "lamp", "position": [1000, 1000, 0],
                "parameters": {"kind": "distant", "target": [0, 0, 0]}})",
                        colour = fmt::format("[{0}, {0}, {0}]", white);
      const LoadedScene scene = LoadRenderScene(
          R"({"type": "camera", "name": "view", "position": [0, 400, 0],
              "parameters": {"target": [0, 0, 0.001], "field_of_view": 2}},
             {"type": "box", "name": "pool", "size": [90000, 50, 90000], "position": [0, 25.5, 0]})" +
              (isLit ? lamp : ""),
          R"("size": [16, 16], "samples": 64, "ground_height": 1, "ground_fade": 0,
             "ground_colour": )" +
              colour + R"(, "background": [[0.5, )" + (isLit ? "[0, 0, 0]" : "[1, 1, 1]") +
              R"(]], "materials": [)" +
              Clear("water", "\"pool\"", R"("index": 1.333, "absorption": [0, 0, 0])") + "]");
      const double falls = isLit ? slant * (1 - FresnelOf(slant, 1.333)) / (1.333 * 1.333) : leaves;
      const double floor = white * falls / (1 - (1 - leaves) * white);
      EXPECT_NEAR(MeanOf(Draw(scene)), (1 - mirrored) * floor + (isLit ? 0 : mirrored),
                  0.02 * floor)
          << white << isLit;
    }
}

TEST(ClearPictureTest, BodiesThatShareAFaceAndCamerasInThemLoseNothing) {
  // Two bodies of index 1 before a white wall: only what they take away is seen.
  const auto seen = [](const std::string& shapes, const std::string& from, double red) {
    const LoadedScene scene = LoadRenderScene(
        R"({"type": "camera", "name": "view", "position": )" + from +
            R"(, "parameters": {"target": [0, 0, 0], "field_of_view": 4}},
           {"type": "box", "name": "wall", "size": [900, 900, 10], "position": [0, 0, -500]}, )" +
            shapes,
        R"("background": [[0.5, [0, 0, 0]]], "ground": false, "size": [4, 4], "samples": 16,
           "bounce_light": false, "lights": [], "materials": [
             {"type": "surface", "objects": ["wall"],
              "parameters": {"colour": [0, 0, 0], "emission": [1, 1, 1]}}, )" +
            Clear("water", "\"a\"", R"("index": 1, "absorption": [0, 1, 0])") + ", " +
            Clear("glass", "\"b\"", R"("index": 1, "absorption": [0, 0.5, 0], "priority": 1)") +
            "]");
    EXPECT_NEAR(MeanOf(Draw(scene)), red, 1e-3 * red);
  };
  const std::string front = "[0, 0, 900]", a = R"({"type": "box", "name": "a", )",
                    b = R"({"type": "box", "name": "b", )";
  // Side by side, one in the other with a face in common, and with a camera in both, from its near
  // clip on.
  seen(a + R"("size": [100, 100, 100], "position": [0, 0, -50]}, )" + b +
           R"("size": [100, 100, 100], "position": [0, 0, 50]})",
       front, std::exp(-1.5));
  seen(a + R"("size": [100, 100, 200]}, )" + b +
           R"("size": [100, 100, 100], "position": [0, 0, 50]})",
       front, std::exp(-1.5));
  seen(a + R"("size": [100, 100, 200]}, )" + b +
           R"("size": [100, 100, 100], "position": [0, 0, 50]})",
       "[0, 0, 50]", std::exp(-1.245));
}

TEST(ClearPictureTest, OpenMeshesAreTold) {
  const auto faults = [](const std::string& shape) {
    const LoadedScene scene =
        LoadRenderScene(std::string(kFront) + R"(, {"name": "film", "type": )" + shape + "}",
                        Under(R"(, "materials": [)" + Clear("water", "\"film\"", "") + "]"));
    return FaultsOfClearBodies(*scene.render);
  };
  EXPECT_TRUE(faults(R"("box", "size": [10, 10, 10])").empty());
  const auto open = faults(R"("plane", "size": [10, 10])");
  ASSERT_EQ(open.size(), 1u);
  EXPECT_NE(open[0].find("\"film\" isn't closed (4 open edges)"), std::string::npos) << open[0];
}

TEST(EnvironmentTest, RaysAreAimedAtBrightPixels) {
  host::Document document;
  auto& image = document.Create<host::ImageObject>(host::kImageObject, "sky", nullptr);
  image.SetTable(&host::ImageParameters());
  image.picture = {16, 8, std::vector<Vec3D<f32>>(128, {0.1f, 0.1f, 0.1f})};
  image.picture.pixels[2 * 16 + 5] = {400, 300, 200};
  host::RenderSettings settings;
  const host::Link link{image.Id()};
  settings.environmentImage = &link;
  settings.environmentTurn = 30;
  const Environment sky(settings, document);
  ASSERT_TRUE(sky.IsAimedAt());
  // Means of light over its density are the light of the whole sphere; so are plain sums.
  Vec3d aimed;
  double whole = 0, bright = 0;
  constexpr i32 kRays = 50000;
  Sampler sampler(7, 0);
  for (i32 i = 0; i < kRays; ++i) {
    const Environment::Aim aim = sky.Choose(sampler.Next2D());
    ASSERT_GT(aim.density, 0);
    EXPECT_NEAR(Length(aim.direction), 1, 1e-12);
    aimed += sky.Light(aim.direction) / (aim.density * kRays);
    bright += aim.density > 0.01 ? 1.0 / kRays : 0;
  }
  Vec3d plain;
  constexpr i32 kRows = 400, kColumns = 800;
  for (i32 row = 0; row < kRows; ++row)
    for (i32 column = 0; column < kColumns; ++column) {
      const double down = std::numbers::pi * (row + 0.5) / kRows;
      const double turn = 2 * std::numbers::pi * (column + 0.5) / kColumns;
      const Vec3d way{std::sin(down) * std::cos(turn), std::cos(down),
                      std::sin(down) * std::sin(turn)};
      const double angle = std::sin(down) * 2 * std::pow(std::numbers::pi, 2) / (kRows * kColumns);
      plain += sky.Light(way) * angle;
      whole += sky.DensityOf(way) * angle;
    }
  EXPECT_NEAR(whole, 1, 5e-3);
  EXPECT_GT(bright, 0.9);
  for (i32 c = 0; c < 3; ++c) EXPECT_NEAR(aimed[c] / plain[c], 1, 0.02);
  // The turn takes the picture to the left edge's side: the bright pixel lies where it says.
  const double turn = 2 * std::numbers::pi * (5.5 / 16 - 0.5 + 30.0 / 360);
  const double down = std::numbers::pi * 2.5 / 8;
  const Vec3d there{std::sin(down) * std::sin(turn), std::cos(down),
                    -std::sin(down) * std::cos(turn)};
  EXPECT_NEAR(sky.Light(there).x, 400, 1e-3);
}

TEST(EnvironmentTest, PictureLightsTheFloor) {
  // A small sun: its pixels' light times their solid angle times the cosine, over pi.
  RenderFolder folder;
  host::Image picture{64, 32, std::vector<Vec3D<f32>>(64 * 32, {0, 0, 0})};
  const i32 row = 8;
  for (i32 y = row - 1; y <= row + 1; ++y)
    for (i32 x = 30; x <= 32; ++x) picture.pixels[y * 64 + x] = {50, 50, 50};
  const auto file = folder / "sky.exr";
  {
    RenderedPicture out;
    out.width = 64;
    out.height = 32;
    out.pixels.resize(64 * 32);
    for (std::size_t i = 0; i < out.pixels.size(); ++i) out.pixels[i].colour = picture.pixels[i];
    std::ofstream(file, std::ios::binary) << EncodeExr(out, {});
  }
  const LoadedScene scene = LoadRenderScene(
      R"({"type": "camera", "name": "view", "position": [0, 300, 1],
          "parameters": {"target": [0, 0, 0], "field_of_view": 2}},
         {"type": "image", "name": "sky", "file": ")" +
          file.string() + "\"}",
      R"("environment_image": "sky", "size": [8, 8], "samples": 256, "ground_colour": [1, 1, 1])");
  double expected = 0;
  for (i32 step = 0; step < 4000; ++step)
    for (i32 side = 0; side < 200; ++side) {
      const double v = (row - 3 + 6 * (step + 0.5) / 4000) / 32,
                   u = (27 + 8 * (side + 0.5) / 200) / 64;
      const double down = std::numbers::pi * v;
      const double area = std::numbers::pi * 6 / 32 / 4000 * 2 * std::numbers::pi * 8 / 64 / 200;
      expected +=
          picture.At(u, 1 - v).x * std::cos(down) * std::sin(down) * area / std::numbers::pi;
    }
  EXPECT_NEAR(MeanOf(Draw(scene)) / expected, 1, 0.03);
}
