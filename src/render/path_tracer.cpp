#include "render/path_tracer.h"

#include <algorithm>

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

/// Particles that a camera ray looks through one by one; of those behind, chance picks one.
constexpr i32 kMostLayers = 12;

}  // namespace

PathTracer::PathTracer(const RenderWorld& world, const RenderData& data, Media media,
                       bool bounceLight)
    : mWorld(world), mData(data), mMedia(std::move(media)), mBounceLight(bounceLight) {
  std::vector<GlowingBox> boxes;
  for (const VolumeMaterial* medium : mMedia) {
    const std::vector<GlowingBox> some = bounceLight ? medium->Glow() : std::vector<GlowingBox>{};
    boxes.insert(boxes.end(), some.begin(), some.end());
    mIsAimedAt.push_back(!some.empty());
  }
  mGlow = GlowTree(std::move(boxes));
}

RenderRay PathTracer::MakeRay(const Vec3d& origin, const Vec3d& direction, const Path& path) const {
  RenderRay ray;
  ray.origin = origin;
  ray.direction = direction;
  ray.flags = path.flags;
  ray.thread = path.thread;
  ray.seed = path.sampler.NextSeed();
  ray.random = path.sampler.Next1D();
  return ray;
}

/// Bounced rays leave out the light that other rays are aimed at.
Vec3d PathTracer::ColourFor(const VolumeRecord& volume, std::size_t medium) const {
  if (!mIsAimedAt[medium] || !(volume.ray.flags & kRayGlobalIllumination)) return volume.colour;
  return Max(volume.colour - volume.glow, Vec3d{});
}

/// `hit` is where the ray ends; null for one that goes on into the sky. Media that overlap count as
/// one behind the other, by where the ray meets them first.
void PathTracer::AddMedia(const RenderRay& ray, const SurfaceHit* hit, const Path& path,
                          RaySample& sample) const {
  HitRecord record{HitKind::Background, ray.origin + ray.direction * kEndless, -ray.direction,
                   kEndless};
  if (hit) record = {HitKind::Surface, hit->point, hit->normal, hit->distance};
  const auto ask = [&](std::size_t medium) {
    VolumeRecord volume{ray};
    volume.hit = &record;
    mMedia[medium]->Volumetric(volume, mData);
    path.samples += volume.samples;
    return volume;
  };
  const auto putBefore = [&](const VolumeRecord& volume, std::size_t medium) {
    sample.colour = sample.colour * volume.transmission + ColourFor(volume, medium);
    sample.scattering = sample.scattering * volume.transmission + volume.scattering;
    sample.emission = sample.emission * volume.transmission + volume.emission;
    sample.transmission = sample.transmission * volume.transmission;
    sample.depth = std::min(sample.depth, volume.depth);
  };
  if (mMedia.size() == 1) return putBefore(ask(0), 0);
  std::vector<VolumeRecord> volumes;
  std::vector<std::size_t> farthestFirst;
  volumes.reserve(mMedia.size());
  for (std::size_t i = 0; i < mMedia.size(); ++i) {
    volumes.push_back(ask(i));
    farthestFirst.push_back(i);
  }
  std::stable_sort(farthestFirst.begin(), farthestFirst.end(), [&](std::size_t a, std::size_t b) {
    return volumes[a].depth > volumes[b].depth;
  });
  for (const std::size_t i : farthestFirst) putBefore(volumes[i], i);
}

RaySample PathTracer::TraceCamera(const Vec2D<double>& pixel, Sampler& sampler, i32 thread) const {
  const Camera& camera = mWorld.GetCamera();
  const Vec3d direction = camera.Direction(pixel.x, pixel.y);
  const double near = camera.NearAlong(direction), far = camera.FarAlong(direction) - near;
  i64 samples = 0;
  const Vec3d start = camera.Origin() + direction * near;
  const Path path{sampler, samples, thread, mWorld.BodiesAt(start)};
  RaySample sample = Look(start, direction, 0, far, kMostLayers, path);
  sample.depth += near;
  sample.samples = samples;
  return sample;
}

RaySample PathTracer::Look(const Vec3d& start, const Vec3d& direction, double near, double far,
                           i32 layers, const Path& path) const {
  const Vec3d origin = near > 0 ? start + direction * near : start;
  const RenderRay ray = MakeRay(origin, direction, path);
  SurfaceHit hit;
  const bool isHit = mWorld.Trace(start, direction, near, far, hit,
                                  layers > 0 ? SphereLayers::OneByOne : SphereLayers::AtOnce);
  RaySample sample, behind;
  double open = 1;  // part of the sky that surfaces leave open
  const bool isLayer = isHit && layers > 0 && hit.cover < 1;
  if (isHit) {
    sample.colour = Shade(hit, direction, path) * path.inside.Passes(hit.distance);
    open = hit.fade;
  } else {
    hit.distance = far;
    hit.point = start + direction * far;
  }
  if (isLayer) {
    behind = Look(start, direction, hit.distance, far, layers - 1, path);
    const double rest = 1 - hit.cover;
    sample.colour = sample.colour * hit.cover + behind.colour * rest;
    sample.scattering = behind.scattering * rest;
    sample.emission = behind.emission * rest;
    open = rest * (1 - behind.alpha);
  }
  hit.distance -= near;
  if (isHit) sample.depth = hit.distance;
  AddMedia(ray, isHit || far < kEndless ? &hit : nullptr, path, sample);
  sample.depth += near;
  const Vec3d& t = sample.transmission;
  if (isLayer)
    sample.sky = behind.sky * t * (1 - hit.cover);
  else if (open > 0)
    sample.sky = mWorld.Background(direction) * t * open;
  sample.alpha = 1 - open * std::clamp((t.x + t.y + t.z) / 3, 0.0, 1.0);
  sample.transmission = t * behind.transmission;
  return sample;
}

/// What bounced rays find of the sky's picture counts as much as they were likely to find it beside
/// the rays that are aimed at it (Veach, "Optimally Combining Sampling Techniques", 1995: balance).
Vec3d PathTracer::SkyLight(const Vec3d& direction, const Path& path) const {
  const Vec3d light = mWorld.Background(direction);
  if (!path.IsBounced()) return light;
  double part = 1;
  if (path.density > 0) part = path.density / (path.density + mWorld.Sky().DensityOf(direction));
  return light * mWorld.SkyFactor() * part;
}

Vec3d PathTracer::Radiance(const Vec3d& origin, const Vec3d& direction, const Path& path) const {
  const RenderRay ray = MakeRay(origin, direction, path);
  SurfaceHit hit;
  const bool isHit = mWorld.Trace(origin, direction, 0, kInfinity, hit);
  RaySample sample;
  if (isHit) sample.colour = Shade(hit, direction, path);
  const double behind = isHit ? hit.fade : 1;
  if (behind > 0) sample.colour += SkyLight(direction, path) * behind;
  const Vec3d before = sample.colour;
  AddMedia(ray, isHit ? &hit : nullptr, path, sample);
  // A medium that doesn't take part in bounced light still throws its shadow.
  if (path.IsBounced() && sample.transmission == Vec3d{1, 1, 1}) {
    const double length = isHit ? hit.distance : kEndless;
    sample.colour += before * (Transparency(origin, direction, length, path) - Vec3d{1, 1, 1});
  }
  return isHit ? sample.colour * path.inside.Passes(hit.distance) : sample.colour;
}

Vec3d PathTracer::Transparency(const Vec3d& origin, const Vec3d& direction, double length,
                               const Path& path) const {
  Vec3d passes{1, 1, 1};
  for (const VolumeMaterial* medium : mMedia) {
    const RenderRay ray = MakeRay(origin, direction, path);
    TransparencyRecord record{ray, length};
    medium->Transparency(record, mData);
    path.samples += record.samples;
    passes = passes * record.transparency;
  }
  return passes;
}

}  // namespace MELDO_GLOBAL::app
