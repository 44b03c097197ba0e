#include <OpenEXR/ImfArray.h>
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>

#include <cmath>
#include <numbers>

#include "host/polygon_object.h"
#include "host/render_objects.h"
#include "host/worker_pool.h"
#include "render/camera.h"
#include "render/exr_file.h"
#include "render/render_scene.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

const char* const kBlackSky = R"("background": [[0, [0, 0, 0]]], "samples": 4, "size": [64, 48])";
const char* const kTopLight =
    R"({"type": "light", "name": "top", "position": [0, 500, 0],
        "parameters": {"kind": "distant", "target": [0, 0, 0]}})";
const char* const kView = R"({"type": "camera", "name": "view", "position": [0, 400, 400],
                              "parameters": {"target": [0, 0, 0]}})";

const char* const kFrontView = R"({"type": "camera", "name": "view", "position": [0, 0, 400],
                                   "parameters": {"target": [0, 0, 0], "field_of_view": 30}})";

std::string List(std::initializer_list<std::string> parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}

/// Where a point of the scene lies in its picture.
Vec3D<i32> PixelOf(const LoadedScene& scene, const Vec3d& point) {
  const Camera camera(*scene.render->camera, scene.render->width, scene.render->height);
  const auto seen = camera.Project(point).value();
  return {static_cast<i32>(seen.x), static_cast<i32>(seen.y), 0};
}

Vec3d LightAt(const LoadedScene& scene, const RenderedPicture& picture, const Vec3d& point) {
  const auto pixel = PixelOf(scene, point);
  return app::LightAt(picture, pixel.x, pixel.y);
}

/// A sheet of 40 host units that shines with 1, in front of black, under an open shutter.
LoadedScene LoadGlowingSheet() {
  return LoadRenderScene(
      std::string(kFrontView) +
          R"(, {"type": "plane", "name": "sheet", "size": [40, 40], "rotation": [90, 0, 0]})",
      R"("background": [[0.5, [0, 0, 0]]], "ground": false, "size": [64, 64], "samples": 128,
         "blur_samples": 32, "shutter": 1, "bounce_light": false, "materials": [
           {"type": "surface", "objects": ["sheet"],
            "parameters": {"colour": [0, 0, 0], "emission": [1, 1, 1]}}])");
}

}  // namespace

TEST(PictureTest, NothingButTheSky) {
  const LoadedScene scene = LoadRenderScene(
      kView, R"("background": [[0.5, [0.25, 0.5, 1]]], "ground": false, "size": [8, 8])");
  Slab slab;
  slab.hasContent = false;
  slab.density = 1;
  const RenderedPicture picture = Draw(scene, {&slab});
  EXPECT_EQ(picture.isDrawn, std::vector<bool>{false});
  EXPECT_EQ(slab.freed, 1);
  for (const auto& pixel : picture.pixels) {
    EXPECT_EQ(pixel.sky, (Vec3D<float>{0.25f, 0.5f, 1}));
    EXPECT_EQ(pixel.colour, (Vec3D<float>{}));
    EXPECT_EQ(pixel.alpha, 0);
    EXPECT_EQ(pixel.depth, RenderedPicture::kNoDepth);
  }
}

TEST(PictureTest, MeshesOfASimulationAreBlurredByTheirVelocities) {
  LoadedScene scene = LoadGlowingSheet();
  auto* sheet = dynamic_cast<host::PolygonObject*>(scene.document->FindByName("sheet"));
  ASSERT_NE(sheet, nullptr);
  const RenderedPicture still = Draw(scene);
  // 80 host units in the frame's time, to the right: twice the sheet's width.
  host::Geometry geometry = sheet->GetGeometry();
  geometry.velocities.assign(geometry.points.size(), {80 * scene.document->fps, 0, 0});
  sheet->WriteOutput(geometry);
  const RenderedPicture blurred = Draw(scene);
  double before = 0, after = 0, middle = 0;
  for (i32 x = 0; x < 64; ++x) {
    before += app::LightAt(still, x, 32).x;
    after += app::LightAt(blurred, x, 32).x;
    middle += x * app::LightAt(blurred, x, 32).x;
  }
  EXPECT_NEAR(after / before, 1, 0.02) << "the same light over a longer way";
  EXPECT_NEAR(middle / after, 31.5, 0.5) << "before and behind the frame alike";
  EXPECT_NEAR(app::LightAt(blurred, 32, 32).x, 0.5, 0.05) << "half of the time it is here";
}

// What bodies moved: 80 host units to the right in the frame, and half a turn about a middle that
// stands still.
TEST(PictureTest, ObjectsThatWereWrittenBackAreBlurredByTheirMotion) {
  LoadedScene scene = LoadGlowingSheet();
  auto* sheet = dynamic_cast<host::PolygonObject*>(scene.document->FindByName("sheet"));
  ASSERT_NE(sheet, nullptr);
  const auto lightAndMiddle = [](const RenderedPicture& picture) {
    double light = 0, middle = 0;
    for (i32 x = 0; x < 64; ++x) {
      light += app::LightAt(picture, x, 32).x;
      middle += x * app::LightAt(picture, x, 32).x;
    }
    return std::pair(light, middle / light);
  };
  const double still = lightAndMiddle(Draw(scene)).first;
  const Matrix placed = sheet->LocalMatrix();
  sheet->WriteBack(placed, {.way = {80, 0, 0}});
  const RenderedPicture moved = Draw(scene);
  EXPECT_NEAR(lightAndMiddle(moved).first / still, 1, 0.02);
  EXPECT_NEAR(lightAndMiddle(moved).second, 31.5, 0.5) << "before and behind the frame alike";
  EXPECT_NEAR(app::LightAt(moved, 32, 32).x, 0.5, 0.05) << "half of the time it is here";
  EXPECT_EQ(sheet->LocalMatrix(), placed) << "it is put back";
  const double corner = 20 * std::sqrt(2.0);
  sheet->WriteBack(placed, {.turn = {0, 0, std::numbers::pi}});
  const RenderedPicture turned = Draw(scene);
  const auto at = [&](double way) {
    return app::LightAt(turned, 32 + static_cast<i32>(way), 32).x;
  };
  const double pixel = still / 40;  // per host unit
  EXPECT_GT(at(18 * pixel), 0.9) << "inside of its circle it is there all the time";
  EXPECT_GT(at((corner - 3) * pixel), 0.1) << "corners come by";
  EXPECT_LT(at((corner + 3) * pixel), 0.01);
}

TEST(PictureTest, MeshThrowsItsShadowOnTheGround) {
  const LoadedScene scene = LoadRenderScene(
      List({kView, kTopLight,
            R"({"type": "box", "name": "lid", "size": [100, 2, 100], "position": [0, 150, 0]})"}),
      std::string(kBlackSky) + R"(, "ground_colour": [0.5, 0.25, 0.125])");
  const RenderedPicture picture = Draw(scene);
  // The lid hides nothing of these places from the camera.
  EXPECT_EQ(LightAt(scene, picture, {0, 0, 35}), (Vec3d{}));
  const Vec3d lit = LightAt(scene, picture, {0, 0, 80});
  EXPECT_NEAR(lit.x, 0.5, 1e-6) << "a light of 1 from above";
  EXPECT_NEAR(lit.z, 0.125, 1e-6);
  const Vec3d lid = LightAt(scene, picture, {0, 151, 0});
  EXPECT_NEAR(lid.x, 0.6, 1e-6) << "the standard surface";
}

TEST(PictureTest, SmokeThrowsItsShadowOnTheGroundAndVeilsIt) {
  const LoadedScene scene = LoadRenderScene(
      List({kView, kTopLight}), std::string(kBlackSky) + R"(, "ground_colour": [0.5, 0.5, 0.5])");
  Slab slab;
  slab.density = 0.004;  // 100 thick
  const RenderedPicture picture = Draw(scene, {&slab});
  const auto pixel = PixelOf(scene, {0, 0, 0});
  const double shadow = std::exp(-0.4), veil = std::exp(-0.4 * std::sqrt(2.0));
  EXPECT_NEAR(app::LightAt(picture, pixel.x, pixel.y).x, 0.5 * shadow * veil, 2e-3);
  const auto& middle = picture.pixels[static_cast<std::size_t>(pixel.y) * picture.width + pixel.x];
  EXPECT_NEAR(middle.transmittance.x, veil, 5e-3);
  EXPECT_EQ(middle.alpha, 1);
  EXPECT_NEAR(middle.depth, 11, 0.1) << "the smoke stands before the ground";
}

TEST(PictureTest, NearSmokeHidesFarFireHoweverTheyAreListed) {
  const LoadedScene scene = LoadRenderScene(kView, kBlackSky);
  Slab smoke, fire;
  smoke.density = 1;
  fire.glow = {1, 0, 0};
  fire.depth = 20;
  for (const auto& media : {std::vector<host::VolumeMaterial*>{&smoke, &fire}, {&fire, &smoke}})
    EXPECT_NEAR(LightAt(scene, Draw(scene, media), {0, 0, 0}).x, 0, 1e-9);
}

// Under an even sky a convex body shows its colour times the sky's light.
TEST(PictureTest, EvenSkyLightsEvenly) {
  const LoadedScene scene = LoadRenderScene(
      List({kView, R"({"type": "sphere", "name": "ball", "radius": 150, "segments": 64})"}),
      R"("background": [[0, [1, 1, 1]]], "ground": false, "samples": 256, "size": [24, 16],
         "materials": [{"type": "surface", "parameters": {"colour": [0.5, 0.5, 0.5]}}])");
  const RenderedPicture picture = Draw(scene);
  Vec3d sum;
  for (i32 y = 6; y < 10; ++y)
    for (i32 x = 10; x < 14; ++x) sum += app::LightAt(picture, x, y);
  EXPECT_NEAR(sum.x / 16, 0.5, 2e-3);
}

TEST(PictureTest, GlowLightsTheGround) {
  const LoadedScene scene = LoadRenderScene(kView, kBlackSky);
  Slab slab;
  slab.glow = {2, 1, 0};
  const RenderedPicture picture = Draw(scene, {&slab});
  // Each way up leads through the slab, each view too: colour 0.3 of the glow, and the glow.
  const Vec3d light = LightAt(scene, picture, {0, 0, 0});
  EXPECT_NEAR(light.x, 2 * 1.3, 0.25);
  EXPECT_NEAR(light.y, 1.3, 0.13);
  EXPECT_EQ(light.z, 0);
  const auto pixel = PixelOf(scene, {0, 0, 0});
  const auto& middle = picture.pixels[static_cast<std::size_t>(pixel.y) * picture.width + pixel.x];
  EXPECT_NEAR(middle.emission.x, 2, 0.1);
}

// What a medium says of its light stands in the place of what bounced rays find, and smoke, meshes
// and distance weaken it.
TEST(PictureTest, GlowingBoxesLightTheGround) {
  const std::string render = R"("background": [[0, [0, 0, 0]]], "size": [64, 48], "samples": 64,
                                "ground_colour": [0.5, 0.5, 0.5])";
  Slab slab;
  slab.density = 0.004;  // 200 to 300 high
  slab.low = 200, slab.high = 300;
  slab.glow = {0, 0, 7};
  // 100 above the ground without smoke between; 400 above behind all of it.
  slab.boxes = {{{-1, 99, -1}, {1, 101, 1}, {4e4, 0, 0}, 4e4},
                {{-1, 399, -1}, {1, 401, 1}, {0, 4e4, 0}, 4e4}};
  const LoadedScene openScene = LoadRenderScene(kView, render);
  const RenderedPicture open = Draw(openScene, {&slab});
  const LoadedScene scene = LoadRenderScene(
      List({kView, R"({"type": "box", "size": [40, 2, 40], "position": [0, 350, 0]})"}), render);
  const double unit = 0.5 / std::numbers::pi, veil = std::exp(-0.4 * std::sqrt(2.0));
  const Vec3d below = LightAt(scene, open, {0, 0, 0}), aside = LightAt(scene, open, {100, 0, 0});
  EXPECT_NEAR(below.x, unit * 4 * veil, 0.05);
  EXPECT_NEAR(below.y, unit * 0.25 * std::exp(-0.4) * veil, 0.004);
  EXPECT_NEAR(aside.x / below.x, std::pow(2.0, -1.5), 0.05) << "cosine and square of the distance";
  EXPECT_NEAR(below.z, 7 * 1.0, 0.5) << "its view alone, no bounced ray";
  const Vec3d shaded = LightAt(scene, Draw(scene, {&slab}), {0, 0, 0});
  EXPECT_EQ(shaded.y, 0);
  EXPECT_NEAR(shaded.x, below.x, 0.02);
}

TEST(PictureTest, ClipDistancesCutMeshesAndSmoke) {
  const auto draw = [](const std::string& clip, const std::string& objects) {
    const LoadedScene scene =
        LoadRenderScene(List({R"({"type": "camera", "position": [0, 500, 0],
                  "parameters": {"target": [0, 0, 0], )" +
                              clip + "}}"}) +
                            objects,
                        R"("background": [[0, [0, 0, 0]]], "ground": false, "size": [9, 9])");
    Slab slab;  // 300 to 400 below the camera
    slab.density = 0.01;
    const RenderedPicture picture = Draw(scene, {&slab});
    return picture.pixels[4 * 9 + 4];
  };
  EXPECT_NEAR(draw("\"near_clip\": 1", "").transmittance.x, std::exp(-1), 0.01);
  EXPECT_NEAR(draw("\"near_clip\": 350", "").transmittance.x, std::exp(-0.5), 0.01);
  EXPECT_NEAR(draw("\"far_clip\": 325", "").transmittance.x, std::exp(-0.25), 0.01);
  const std::string box = R"(, {"type": "box", "size": [500, 100, 500]})";
  EXPECT_EQ(draw("\"far_clip\": 460", box).alpha, 1);
  EXPECT_NEAR(draw("\"far_clip\": 440", box).alpha, 1 - std::exp(-1), 0.01);
}

TEST(PictureTest, MirrorShowsTheSky) {
  const char* const mirror =
      R"(, "materials": [{"type": "surface", "objects": ["table"],
           "parameters": {"colour": [0, 0, 0], "reflection": 1, "roughness": 0}}])";
  const LoadedScene scene = LoadRenderScene(
      List({kView, R"({"type": "plane", "name": "table", "size": [300, 300]})"}),
      std::string(R"("background": [[0.5, [0, 0, 0]], [0.75, [0, 1, 0]], [1, [0, 0, 0]]],
                     "ground": false, "size": [33, 33])") +
          mirror);
  // Seen from 45 degrees the table shows the sky at 45 degrees, three quarters of the way up.
  EXPECT_GT(app::LightAt(Draw(scene), 16, 16).y, 0.97);
}

TEST(PictureTest, MovingMeshIsBlurredAndComesBack) {
  const LoadedScene scene = LoadRenderScene(
      List({R"({"type": "camera", "position": [0, 0, 500]})",
            R"({"type": "box", "name": "crate", "size": [100, 100, 100],
                "position": {"keys": [[0, [-200, 0, 0]], [4, [200, 0, 0]]]}})"}),
      R"("background": [[0, [0, 0, 0]]], "ground": false, "size": [64, 48], "samples": 64,
         "blur_samples": 8, "shutter": 1,
         "materials": [{"type": "surface", "parameters": {"emission": [1, 1, 1]}}])");
  scene.document->SetFrame(2);
  const host::BaseNode& crate = *scene.document->FindByName("crate");
  const Matrix before = crate.GlobalMatrix();
  const RenderedPicture picture = Draw(scene, {}, 2);
  EXPECT_EQ(crate.GlobalMatrix(), before);
  // While the shutter is open the front face moves from -100..0 to 0..100.
  const auto alpha = [&](double x) {
    const auto pixel = PixelOf(scene, {x, 0, 50});
    return picture.pixels[static_cast<std::size_t>(pixel.y) * picture.width + pixel.x].alpha;
  };
  EXPECT_EQ(alpha(-120), 0);
  EXPECT_NEAR(alpha(-50), 0.5, 0.15);
  EXPECT_GT(alpha(0), 0.9);
  EXPECT_NEAR(alpha(50), 0.5, 0.15);
  EXPECT_EQ(alpha(120), 0);
}

TEST(PictureTest, SameBytesOnAnyNumberOfThreads) {
  const LoadedScene scene = LoadRenderScene(
      List({kView,
            R"({"type": "light", "position": [200, 300, 100],
                "parameters": {"kind": "area", "target": [0, 0, 0], "brightness": 2}})",
            R"({"type": "torus", "name": "ring", "position": {"keys": [[0, [0, 50, 0]],
                                                                       [4, [90, 50, 0]]]}})"}),
      R"("size": [70, 50], "samples": 3, "blur_samples": 3,
         "materials": [{"type": "surface", "parameters": {"reflection": 0.3}}])");
  Slab slab;
  slab.density = 0.002;
  slab.glow = {0.5, 0.2, 0.1};
  slab.boxes = {{{-50, 100, -50}, {50, 200, 50}, {1e5, 5e4, 0}, 1}};
  std::vector<std::string> bytes;
  for (const i32 threads : {1, 2, 1, 5}) {
    host::SetThreadCount(threads);
    const RenderedPicture picture = Draw(scene, {&slab});
    bytes.push_back(EncodePng(ToneMap(picture, *scene.render->settings)) + EncodeExr(picture));
  }
  host::SetThreadCount(0);
  for (const std::string& other : bytes) EXPECT_TRUE(other == bytes.front());
}

TEST(PictureTest, ExrHoldsItsLayers) {
  const LoadedScene scene = LoadRenderScene(
      kView, R"("background": [[0, [0.2, 0.3, 0.4]]], "ground": false, "size": [12, 9])");
  Slab slab;
  slab.density = 0.004;
  slab.glow = {2, 1, 0.5};
  const RenderedPicture picture = Draw(scene, {&slab});
  const RenderFolder folder;
  const auto path = folder / "picture.exr";
  std::ofstream(path, std::ios::binary) << EncodeExr(picture);

  Imf::InputFile file(path.c_str());
  ASSERT_EQ(file.header().dataWindow().max, Imath::V2i(11, 8));
  const auto read = [&](const char* channel) {
    EXPECT_TRUE(file.header().channels().findChannel(channel)) << channel;
    std::vector<float> values(12 * 9);
    Imf::FrameBuffer buffer;
    buffer.insert(channel, Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(values.data()),
                                      sizeof(float), sizeof(float) * 12));
    file.setFrameBuffer(buffer);
    file.readPixels(0, 8);
    return values;
  };
  const auto red = read("R"), alpha = read("A"), transmittance = read("transmittance.G"),
             emission = read("emission.B"), scattering = read("scattering.R"),
             depth = read("depth.Z");
  for (std::size_t i = 0; i < picture.pixels.size(); ++i) {
    const auto& pixel = picture.pixels[i];
    EXPECT_NEAR(red[i], pixel.colour.x, 2e-3);
    EXPECT_NEAR(alpha[i], 1 - transmittance[i], 1e-3);
    EXPECT_NEAR(emission[i], pixel.emission.z, 1e-3);
    EXPECT_EQ(scattering[i], 0);
    EXPECT_EQ(depth[i], pixel.depth);
  }
}

TEST(PictureTest, ToneCurveKeepsBrightLightApart) {
  const LoadedScene scene = LoadRenderScene(kView, R"("size": [3, 1], "ground": false)");
  RenderedPicture picture = Draw(scene);
  for (auto& pixel : picture.pixels) pixel = {};
  picture.pixels[0].colour = {0.5f, 0.5f, 0.5f};
  picture.pixels[1].colour = {2, 2, 2};
  picture.pixels[2].colour = {8, 8, 8};
  const Picture soft = ToneMap(picture, *scene.render->settings);
  EXPECT_NEAR(soft.rgb[0], 188, 1) << "below the shoulder sRGB alone";
  EXPECT_LT(soft.rgb[3], soft.rgb[6]);
  EXPECT_LT(soft.rgb[6], 255);
  picture.pixels[0].colour = {std::numeric_limits<float>::infinity(), 0, 0};
  EXPECT_EQ(ToneMap(picture, *scene.render->settings).rgb[0], 255);
  scene.render->settings->Set(host::kRenderTone, static_cast<i32>(host::ToneCurve::Linear));
  EXPECT_EQ(ToneMap(picture, *scene.render->settings).rgb[3], 255);
  scene.render->settings->Set(host::kRenderExposure, 0.25);
  EXPECT_NEAR(ToneMap(picture, *scene.render->settings).rgb[3], 188, 1);
}
