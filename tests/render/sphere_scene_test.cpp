#include "render/sphere_scene.h"

#include <cstring>
#include <numbers>

#include "grids/random_stream.h"
#include "render/render_scene.h"
#include "threads.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

using FloatVec = host::SphereCloud::Value;
constexpr double kPi = std::numbers::pi;

const char* const kAhead = R"({"type": "camera", "name": "view", "position": [0, 0, 400],
                               "parameters": {"target": [0, 0, 0]}})";
const char* const kDark =
    R"("background": [[0, [0, 0, 0]]], "ground": false, "bounce_light": false, "size": [60, 60])";

/// A cloud that a test fills.
class TestCloud : public host::ParticleMaterial {
 public:
  host::SphereCloud Spheres(const host::RenderData&) const override { return cloud; }
  void Add(const Vec3d& p, double radius, const Vec3d& emission = {}, const Vec3d& move = {}) {
    const auto value = [](const Vec3d& v) { return FloatVec{float(v.x), float(v.y), float(v.z)}; };
    cloud.positions.push_back(value(p));
    cloud.radii.push_back(static_cast<float>(radius));
    cloud.colours.push_back({0.5f, 0.5f, 0.5f});
    cloud.emissions.push_back(value(emission));
    cloud.moves.push_back(value(move));
  }
  host::SphereCloud cloud;
};

RenderedPicture DrawCloud(const LoadedScene& scene, const TestCloud& cloud,
                          const std::vector<host::VolumeMaterial*>& media = {}) {
  host::HostThread thread;
  return RenderPicture(*scene.render, 0, {media, {}, {&cloud}}, thread);
}

/// The red light of all pixels.
double AllLight(const RenderedPicture& picture) {
  double sum = 0;
  for (const auto& pixel : picture.pixels) sum += pixel.colour.x;
  return sum;
}

/// Where a ray first enters a ball at rest.
double EntryOf(const host::SphereCloud& cloud, std::size_t i, const Vec3d& from, const Vec3d& way) {
  const Vec3d centre{cloud.positions[i].x, cloud.positions[i].y, cloud.positions[i].z};
  const double along = Dot(centre - from, way), r = cloud.radii[i];
  const Vec3d foot = from + way * along - centre;
  const double half2 = r * r - Dot(foot, foot);
  return half2 > 0 ? along - std::sqrt(half2) : -1;
}

Vec3d RandomIn(RandomStream& random, double size) {
  const auto next = [&] { return (random.NextUnit() - 0.5) * size; };
  const double x = next(), y = next();
  return {x, y, next()};
}

}  // namespace

TEST(SphereSceneTest, MeetsWhatASearchThroughAllOfThemMeets) {
  const LoadedScene scene = LoadRenderScene(kAhead, kDark);
  RandomStream random;
  random.Seed(7);
  TestCloud cloud;
  cloud.cloud.leastPixels = 0;
  for (i32 i = 0; i < 3000; ++i) cloud.Add(RandomIn(random, 200), 0.2 + 5 * random.NextUnit());
  for (i32 i = 0; i < 50; ++i) cloud.Add({10, 10, 10}, 4);  // equal ones
  cloud.Add({0, 0, 0}, -1);
  cloud.Add({std::nan(""), 0, 0}, 1);
  const SphereScene spheres({cloud.cloud}, Camera(*scene.render->camera, 60, 60), 0);
  EXPECT_EQ(spheres.Count(), 3050u);
  i32 hits = 0;
  for (i32 k = 0; k < 2000; ++k) {
    const Vec3d from = RandomIn(random, 300), way = Normalised(RandomIn(random, 2));
    const double near = 20 * random.NextUnit();
    double nearest = 200;
    for (std::size_t i = 0; i < 3050; ++i)
      if (const double d = EntryOf(cloud.cloud, i, from, way); d > near && d < nearest) nearest = d;
    SphereHit hit;
    const bool isHit = spheres.Trace(from, way, near, 200, false, hit);
    ASSERT_EQ(isHit, nearest < 200) << k;
    ASSERT_EQ(spheres.IsBlocked(from, way, near, 200), isHit) << k;
    if (!isHit) continue;
    ++hits;
    ASSERT_NEAR(hit.distance, nearest, 1e-9);
    ASSERT_LT(Dot(hit.normal, way), 0);
    ASSERT_NEAR(Length(hit.normal), 1, 1e-5);
  }
  EXPECT_GT(hits, 400);
}

TEST(SphereSceneTest, LargeSmallAndMovingOnesGiveTheirLight) {
  std::string look = kDark;
  look += R"(, "samples": 64, "blur_samples": 1, "shutter": 0.5)";
  const LoadedScene scene = LoadRenderScene(kAhead, look);
  const double pixel = Camera(*scene.render->camera, 60, 60).PixelAt(400);
  const auto lightOf = [&](double radius, const Vec3d& move) {
    TestCloud cloud;
    cloud.Add({13, -7, 0}, radius, {3, 2, 1}, move);
    return AllLight(DrawCloud(scene, cloud));
  };
  const auto expected = [&](double radius) { return 3 * kPi * radius * radius / (pixel * pixel); };
  EXPECT_NEAR(lightOf(60, {}) / expected(60), 1, 0.03) << "perspective makes it a little larger";
  EXPECT_NEAR(lightOf(10, {}) / expected(10), 1, 0.04);
  EXPECT_NEAR(lightOf(0.1, {}) / expected(0.1), 1, 0.12) << "far smaller than a pixel";
  EXPECT_NEAR(lightOf(0.1, {120, 50, 0}) / expected(0.1), 1, 0.08) << "a streak";
  EXPECT_NEAR(lightOf(10, {120, 50, 0}) / expected(10), 1, 0.04);
}

TEST(SphereSceneTest, AStreakIsAsLongAsTheShutterIsOpenAndOnlyThen) {
  const auto widthOf = [](const char* blur) {
    const LoadedScene scene = LoadRenderScene(kAhead, std::string(kDark) + blur);
    TestCloud cloud;
    cloud.Add({0, 0, 0}, 5, {1, 1, 1}, {200, 0, 0});
    const RenderedPicture picture = DrawCloud(scene, cloud);
    i32 first = 60, last = -1;
    for (i32 x = 0; x < 60; ++x)
      if (picture.pixels[30 * 60 + x].alpha > 0) {
        first = std::min(first, x);
        last = x;
      }
    return (last - first + 1) * Camera(*scene.render->camera, 60, 60).PixelAt(400);
  };
  EXPECT_NEAR(widthOf(R"(, "blur_samples": 4, "shutter": 0.5)"), 115, 15);
  EXPECT_NEAR(widthOf(R"(, "blur_samples": 0, "shutter": 0.5)"), 15, 12);
}

TEST(SphereSceneTest, OneBehindTheOtherAndSmokeBetweenThem) {
  const LoadedScene scene = LoadRenderScene(
      R"({"type": "camera", "name": "view", "position": [0, 400, 4],
          "parameters": {"target": [0, 0, 0], "field_of_view": 1}})",
      R"("background": [[0, [0.5, 0.5, 0.5]]], "ground": false, "bounce_light": false,
         "size": [3, 3], "samples": 1, "blur_samples": 1, "shutter": 1)");
  // Each covers the middle for half of the time.
  const auto middle = [&](const TestCloud& cloud, const std::vector<host::VolumeMaterial*>& media) {
    const RenderedPicture picture = DrawCloud(scene, cloud, media);
    return picture.pixels[4];
  };
  Slab slab;
  slab.low = -50;
  slab.high = 50;
  slab.density = std::log(2.0) / 100;
  TestCloud cloud;
  cloud.cloud.leastPixels = 0;
  cloud.Add({0, 100, 0}, 30, {1, 0, 0}, {120, 0, 0});
  cloud.Add({0, -100, 0}, 30, {0, 1, 0}, {120, 0, 0});
  const auto bare = middle(cloud, {});
  const double red = bare.colour.x, green = bare.colour.y, sky = bare.sky.x;
  EXPECT_NEAR(red, 0.5, 0.05);
  EXPECT_NEAR(green, (1 - red) * 0.5, 0.05);
  EXPECT_NEAR(bare.alpha, red + green, 1e-6);
  EXPECT_NEAR(sky, 0.5 * (1 - red - green), 1e-6);
  EXPECT_NEAR(bare.depth, 270, 3);
  const auto veiled = middle(cloud, {&slab});
  EXPECT_NEAR(veiled.colour.x, red, 1e-6) << "before the smoke";
  EXPECT_NEAR(veiled.colour.y, green / 2, 0.01) << "behind the smoke";
  EXPECT_NEAR(veiled.sky.x, sky / 2, 0.01);
  EXPECT_NEAR(veiled.transmittance.x, 0.5, 0.01);
}

TEST(SphereSceneTest, ThrowsShadowsAsDenseAsItCoversOnAnyNumberOfWorkers) {
  const LoadedScene scene = LoadRenderScene(
      R"({"type": "light", "name": "top", "position": [0, 500, 0],
          "parameters": {"kind": "distant", "target": [0, 0, 0]}},
         {"type": "camera", "name": "view", "position": [0, 400, 400],
          "parameters": {"target": [0, 0, 0]}})",
      R"("background": [[0, [0, 0, 0]]], "bounce_light": false, "size": [40, 30], "samples": 64,
         "ground_colour": [0.5, 0.5, 0.5], "ground_fade": 0)");
  // High above all that is seen, far smaller than a pixel, covering a quarter of the ground.
  RandomStream random;
  random.Seed(3);
  TestCloud cloud;
  constexpr i32 kCount = 100000;
  const double radius = std::sqrt(-std::log(0.75) * 1000 * 1000 / (kCount * kPi));
  for (i32 i = 0; i < kCount; ++i) {
    const Vec3d p = RandomIn(random, 1000);
    cloud.Add({p.x, 450, p.z}, radius);
  }
  std::vector<RenderedPicture> pictures;
  for (const i32 count : {1, 2, 3}) {
    const Threads threads(count);
    pictures.push_back(DrawCloud(scene, cloud));
  }
  EXPECT_EQ(pictures[0].spheres, std::vector<i64>{kCount});
  double mean = 0;
  for (i32 x = 10; x < 30; ++x) mean += LightAt(pictures[0], x, 20).x / 20;
  EXPECT_NEAR(mean, 0.5 * 0.75, 0.03);
  for (const RenderedPicture& other : pictures)
    EXPECT_EQ(std::memcmp(other.pixels.data(), pictures[0].pixels.data(),
                          pictures[0].pixels.size() * sizeof(RenderedPicture::Pixel)),
              0);
}
