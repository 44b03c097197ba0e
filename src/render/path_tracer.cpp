#include "render/path_tracer.h"

#include <algorithm>
#include <numbers>

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kEndless = 1e6;  ///< host units; as far as rays go into the sky
constexpr i32 kMaxReflections = 3;
/// Particles that a camera ray looks through one by one; of those behind, chance picks one.
constexpr i32 kMostLayers = 12;
/// Bounced light brighter than this comes from single lucky rays and only makes specks.
constexpr double kBrightestBounce = 50;
/// A mirror shows no highlight of lights that are points; this keeps it visible.
constexpr double kLeastRoughness = 0.08;

/// Two axes at right angles to a unit vector and to each other.
/// Duff et al., "Building an Orthonormal Basis, Revisited" (JCGT 6/1, 2017).
void MakeAxes(const Vec3d& n, Vec3d& a, Vec3d& b) {
  const double sign = std::copysign(1.0, n.z);
  const double f = -1 / (sign + n.z);
  const double g = n.x * n.y * f;
  a = {1 + sign * n.x * n.x * f, sign * g, -sign * n.x};
  b = {g, sign + n.y * n.y * f, -n.y};
}

Vec3d AroundAxis(const Vec3d& axis, double cosine, double turn) {
  Vec3d a, b;
  MakeAxes(axis, a, b);
  const double sine = std::sqrt(std::max(0.0, 1 - cosine * cosine));
  return a * (sine * std::cos(2 * kPi * turn)) + b * (sine * std::sin(2 * kPi * turn)) +
         axis * cosine;
}

/// Schlick, "An Inexpensive BRDF Model for Physically-based Rendering" (1994), eq. 15.
double Fresnel(double straight, double cosine) {
  return straight + (1 - straight) * std::pow(1 - std::clamp(cosine, 0.0, 1.0), 5);
}

Vec3d Mirrored(const Vec3d& view, const Vec3d& n) { return n * (2 * Dot(view, n)) - view; }

Vec3d Limited(const Vec3d& colour) {
  const double most = std::max({colour.x, colour.y, colour.z});
  return most > kBrightestBounce ? colour * (kBrightestBounce / most) : colour;
}

/// Part of light that a rough surface mirrors from `light` to `view`, times the cosine, for a
/// light whose brightness is what a white surface shows.
/// Walter et al., "Microfacet Models for Refraction through Rough Surfaces" (2007), eq. 20, 33, 34.
double Highlight(const Surface& surface, const Vec3d& n, const Vec3d& light, const Vec3d& view) {
  const double nl = Dot(n, light), nv = Dot(n, view);
  if (nl <= 0 || nv <= 0) return 0;
  const double roughness = std::max(surface.roughness, kLeastRoughness);
  const double a2 = std::pow(roughness, 4);
  const Vec3d half = Normalised(light + view);
  const double nh = Dot(n, half);
  const double d = nh * nh * (a2 - 1) + 1;
  const double distribution = a2 / (kPi * d * d);
  const auto masking = [&](double c) { return 2 * c / (c + std::sqrt(a2 + (1 - a2) * c * c)); };
  return kPi * Fresnel(surface.reflection, Dot(half, view)) * distribution * masking(nl) *
         masking(nv) / (4 * nv);
}

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
  const Path path{sampler, samples, thread};
  RaySample sample = Look(camera.Origin() + direction * near, direction, 0, far, kMostLayers, path);
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
    sample.colour = Shade(hit, direction, path);
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

Vec3d PathTracer::Radiance(const Vec3d& origin, const Vec3d& direction, const Path& path) const {
  const RenderRay ray = MakeRay(origin, direction, path);
  SurfaceHit hit;
  const bool isHit = mWorld.Trace(origin, direction, 0, kInfinity, hit);
  RaySample sample;
  if (isHit) sample.colour = Shade(hit, direction, path);
  const double behind = isHit ? hit.fade : 1;
  if (behind > 0) sample.colour += mWorld.Background(direction) * behind;
  AddMedia(ray, isHit ? &hit : nullptr, path, sample);
  return sample.colour;
}

Vec3d PathTracer::Shade(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const {
  if (hit.fade >= 1) return {};
  const Vec3d view = -direction;
  Vec3d colour = hit.emission + DirectLight(hit, view, path, true);
  const bool isDiffuse = hit.colour != Vec3d{};
  if (mBounceLight && isDiffuse) colour += hit.colour * BouncedLight(hit, path);
  if (hit.surface->reflection > 0 && path.depth < kMaxReflections)
    colour += Reflection(hit, view, path);
  return colour * (1 - hit.fade);
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

Vec3d PathTracer::DirectLight(const SurfaceHit& hit, const Vec3d& view, const Path& path,
                              bool withHighlights) const {
  const Surface& surface = *hit.surface;
  Vec3d sum;
  for (const SceneLight& light : mWorld.Lights()) {
    const SceneLight::Sample sample = light.At(hit.point, path.sampler.Next2D());
    const double cosine = Dot(hit.normal, sample.direction);
    if (cosine <= 0 || sample.colour == Vec3d{}) continue;
    Vec3d answer = hit.colour * cosine;
    if (withHighlights && surface.reflection > 0) {
      const double shine = Highlight(surface, hit.normal, sample.direction, view);
      answer += {shine, shine, shine};
    }
    Vec3d colour = sample.colour * answer;
    if (light.CastsShadows()) {
      if (Dot(hit.facing, sample.direction) <= 0) continue;
      if (mWorld.IsBlocked(hit.point, hit.point + sample.direction * sample.distance)) continue;
      colour = colour * Transparency(hit.point, sample.direction, sample.distance, path);
    }
    sum += colour;
  }
  return sum;
}

Vec3d PathTracer::GlowLight(const SurfaceHit& hit, const Path& path) const {
  if (mGlow.IsEmpty()) return {};
  const double choice = path.sampler.Next1D(), depth = path.sampler.Next1D();
  const Vec2D<double> place = path.sampler.Next2D();
  const GlowTree::Pick pick = mGlow.Choose(hit.point, choice, {place.x, place.y, depth});
  const Vec3d way = pick.point - hit.point;
  const double distance = Length(way);
  const double cosine = distance > 0 ? Dot(hit.normal, way) / distance : 0;
  if (cosine <= 0 || Dot(hit.facing, way) <= 0) return {};
  if (mWorld.IsBlocked(hit.point, pick.point)) return {};
  const Vec3d passes = Transparency(hit.point, way / distance, distance, path);
  return pick.light * passes * (cosine / kPi * mData.brightness);
}

Vec3d PathTracer::BouncedLight(const SurfaceHit& hit, const Path& path) const {
  Path bounce = path;
  bounce.flags |= kRayGlobalIllumination;
  const Vec3d glow = Limited(GlowLight(hit, bounce));
  const Vec2D<double> u = path.sampler.Next2D();
  const Vec3d direction = AroundAxis(hit.normal, std::sqrt(1 - u.x), u.y);
  if (Dot(direction, hit.facing) <= 0) return glow;
  return glow + Limited(Incoming(hit, direction, bounce));
}

/// Light that a surface gets from one direction: the sky or a mesh, through the media, and what
/// the media give themselves.
Vec3d PathTracer::Incoming(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const {
  constexpr double kStart = 1e-3;
  const Vec3d origin = hit.point + hit.facing * std::max(kStart, 1e-5 * Length(hit.point));
  SurfaceHit other;
  const bool isHit = mWorld.Trace(origin, direction, 0, kInfinity, other);
  RaySample sample;
  if (isHit) {
    // Beyond the second surface the sky stands for all that bounces on.
    const Vec3d ambience = mWorld.Background(other.normal) * mWorld.Environment();
    // Of tiny bright things few rays in random directions find any, and those would be specks.
    const Vec3d glow = other.isSphere ? Vec3d{} : other.emission;
    sample.colour = glow + DirectLight(other, -direction, path, false) + other.colour * ambience;
    const Vec3d sky = mWorld.Background(direction) * mWorld.Environment();
    sample.colour = sample.colour * (1 - other.fade) + sky * other.fade;
  } else {
    sample.colour = mWorld.Background(direction) * mWorld.Environment();
  }
  const RenderRay ray = MakeRay(origin, direction, path);
  const Vec3d before = sample.colour;
  AddMedia(ray, isHit ? &other : nullptr, path, sample);
  // A medium that doesn't take part in bounced light still throws its shadow.
  if (sample.transmission == Vec3d{1, 1, 1}) {
    const double length = isHit ? other.distance : kEndless;
    sample.colour += before * (Transparency(origin, direction, length, path) - Vec3d{1, 1, 1});
  }
  return sample.colour;
}

Vec3d PathTracer::Reflection(const SurfaceHit& hit, const Vec3d& view, const Path& path) const {
  const Surface& surface = *hit.surface;
  const Vec2D<double> u = path.sampler.Next2D();
  const double a2 = std::pow(surface.roughness, 4);
  // Walter et al. (2007), eq. 35 and 36: a facet of the rough surface.
  const double cosine = std::sqrt((1 - u.x) / (1 + (a2 - 1) * u.x));
  const Vec3d facet = AroundAxis(hit.normal, cosine, u.y);
  const Vec3d direction = Mirrored(view, facet);
  if (Dot(direction, hit.facing) <= 0) return {};
  Path mirrored = path;
  ++mirrored.depth;
  mirrored.flags |= kRayReflection;
  const Vec3d origin = hit.point + hit.facing * std::max(1e-3, 1e-5 * Length(hit.point));
  return Limited(Radiance(origin, direction, mirrored) *
                 Fresnel(surface.reflection, Dot(view, facet)));
}

}  // namespace MELDO_GLOBAL::app
