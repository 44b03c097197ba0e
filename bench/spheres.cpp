// bench_spheres [N]: N particles (1000000) as the pictures see them: the time to set them up, and
// rays a second on one thread, beside the sphere primitive of the library that traces meshes.
#include <embree3/rtcore.h>
#include <fmt/format.h>

#include <cmath>
#include <cstdlib>

#include "grids/random_stream.h"
#include "host/render_objects.h"
#include "render/sphere_scene.h"
#include "timing.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

constexpr i32 kSide = 400;  ///< rays on an edge of the picture

host::SphereCloud MakeCloud(i32 count) {
  RandomStream random;
  random.Seed(1);
  const auto unit = [&] { return static_cast<float>(random.NextUnit() - 0.5); };
  host::SphereCloud cloud;
  cloud.leastPixels = 0;
  const auto radius = static_cast<float>(30 / std::cbrt(double(count)));
  for (i32 i = 0; i < count; ++i) {
    const float x = unit(), y = unit();
    cloud.positions.push_back({x * 100, y * 100, unit() * 100});
    const float u = unit(), v = unit();
    cloud.moves.push_back({u * 20 * radius, v * 20 * radius, unit() * 20 * radius});
    cloud.radii.push_back(radius);
    cloud.colours.push_back({1, 1, 1});
  }
  return cloud;
}

template <class F>
void ForEachRay(const Camera& camera, F&& f) {
  for (i32 y = 0; y < kSide; ++y)
    for (i32 x = 0; x < kSide; ++x) f(camera.Direction(x + 0.5, y + 0.5));
}

/// Nanoseconds a ray; the sum of the distances shows that both find the same.
template <class F>
void Time(const char* name, const Camera& camera, double build, F&& distanceOf) {
  double sum = 0;
  i32 hits = 0;
  const double seconds = Best(
      [&] {
        sum = 0;
        hits = 0;
        ForEachRay(camera, [&](const Vec3d& direction) {
          if (const double d = distanceOf(direction); d > 0) sum += d, ++hits;
        });
      },
      3);
  fmt::print("{:34} set-up {:6.3f} s, {:6.0f} ns a ray, {:5.1f} % hit, mean {:.3f}\n", name, build,
             seconds * 1e9 / (kSide * kSide), 100.0 * hits / (kSide * kSide), sum / hits);
}

void TimeOwn(const char* name, const host::SphereCloud& cloud, const Camera& camera, double shutter,
             bool everyOne) {
  std::unique_ptr<SphereScene> scene;
  const double build =
      Best([&] { scene = std::make_unique<SphereScene>(std::vector{cloud}, camera, shutter); }, 2);
  Time(name, camera, build, [&](const Vec3d& direction) {
    SphereHit hit;
    return scene->Trace(camera.Origin(), direction, 0, 1e6, everyOne, hit) ? hit.distance : 0.0;
  });
}

void TimeLibrary(const host::SphereCloud& cloud, const Camera& camera) {
  RTCDevice device = rtcNewDevice("threads=1");
  RTCScene scene = nullptr;
  const double build = Best(
      [&] {
        if (scene) rtcReleaseScene(scene);
        scene = rtcNewScene(device);
        rtcSetSceneFlags(scene, RTC_SCENE_FLAG_ROBUST);
        RTCGeometry built = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_SPHERE_POINT);
        auto* to = static_cast<float*>(rtcSetNewGeometryBuffer(
            built, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT4, 16, cloud.positions.size()));
        for (std::size_t i = 0; i < cloud.positions.size(); ++i) {
          const auto& p = cloud.positions[i];
          for (const float x : {p.x, p.y, p.z, cloud.radii[i]}) *to++ = x;
        }
        rtcCommitGeometry(built);
        rtcAttachGeometry(scene, built);
        rtcReleaseGeometry(built);
        rtcCommitScene(scene);
      },
      2);
  const Vec3d from = camera.Origin();
  Time("spheres of the library at rest", camera, build, [&](const Vec3d& direction) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit ray{};
    ray.ray = {static_cast<float>(from.x),
               static_cast<float>(from.y),
               static_cast<float>(from.z),
               0,
               static_cast<float>(direction.x),
               static_cast<float>(direction.y),
               static_cast<float>(direction.z),
               0,
               1e6f,
               ~0u,
               0,
               0};
    ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context, &ray);
    return ray.hit.geomID == RTC_INVALID_GEOMETRY_ID ? 0.0 : double{ray.ray.tfar};
  });
  rtcReleaseScene(scene);
  rtcReleaseDevice(device);
}

}  // namespace

int main(int argc, char** argv) {
  const i32 count = argc > 1 ? std::clamp(std::atoi(argv[1]), 1000, 20000000) : 1000000;
  host::Document document;
  auto& node = document.Create<host::BaseNode>(host::kCameraObject, "eye", nullptr);
  node.SetTable(&host::CameraParameters());
  node.SetPlacement({0, 0, 200}, {}, {1, 1, 1});
  const Camera camera(node, kSide, kSide);
  const host::SphereCloud cloud = MakeCloud(count);
  fmt::print("{} particles, {} rays, 1 thread\n", count, kSide * kSide);
  TimeLibrary(cloud, camera);
  TimeOwn("at rest", cloud, camera, 0, false);
  TimeOwn("moving by ten radii", cloud, camera, 0.5, false);
  TimeOwn("moving, nearest layer", cloud, camera, 0.5, true);
  return 0;
}
