#include "app/render/path_tracer.h"

#include <algorithm>
#include <numbers>

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kEndless = 1e6;  ///< host units; as far as rays go into the sky
constexpr i32 kMaxReflections = 3;
/// Bounced light brighter than this comes from single lucky rays and only makes specks.
constexpr double kBrightestBounce = 50;
/// A mirror shows no highlight of lights that are points; this keeps it visible.
constexpr double kLeastRoughness = 0.08;

/// Rays are aimed at no more than so many parts of the media.
constexpr std::size_t kMostBalls = 256;

/// What a point sees of a ball.
struct Cone {
  Vec3d axis{0, 1, 0};
  double cosLimit = -1;  ///< all round from inside

  Cone(const GlowingBall& ball, const Vec3d& point) {
    const Vec3d way = ball.centre - point;
    const double distance = Length(way);
    if (distance <= ball.radius) return;
    axis = way / distance;
    // No narrower than single precision tells from a line.
    cosLimit = std::min(std::sqrt(1 - std::pow(ball.radius / distance, 2)), 1 - 1e-7);
  }
};

/// Light that a point gets from a ball, in comparison with other balls.
double LightOf(const GlowingBall& ball, const Vec3d& point) {
  const Vec3d way = ball.centre - point;
  return ball.power / (Dot(way, way) + ball.radius * ball.radius);
}

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
  for (const VolumeMaterial* medium : mMedia)
    for (const GlowingBall& ball : medium->Glow()) mGlow.push_back(ball);
  std::stable_sort(mGlow.begin(), mGlow.end(),
                   [](const auto& a, const auto& b) { return a.power > b.power; });
  if (mGlow.size() > kMostBalls) mGlow.resize(kMostBalls);
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

/// `hit` is where the ray ends; null for one that goes on into the sky.
void PathTracer::AddMedia(const RenderRay& ray, const SurfaceHit* hit, RaySample& sample) const {
  HitRecord record{HitKind::Background, ray.origin + ray.direction * kEndless, -ray.direction,
                   kEndless};
  if (hit) record = {HitKind::Surface, hit->point, hit->normal, hit->distance};
  for (const VolumeMaterial* medium : mMedia) {
    VolumeRecord volume{ray};
    volume.hit = &record;
    medium->Volumetric(volume, mData);
    sample.colour = sample.colour * volume.transmission + volume.colour;
    sample.scattering = sample.scattering * volume.transmission + volume.scattering;
    sample.emission = sample.emission * volume.transmission + volume.emission;
    sample.transmission = sample.transmission * volume.transmission;
    sample.depth = std::min(sample.depth, volume.depth);
  }
}

RaySample PathTracer::TraceCamera(const Vec2D<double>& pixel, Sampler& sampler, i32 thread) const {
  const Camera& camera = mWorld.GetCamera();
  const Vec3d direction = camera.Direction(pixel.x, pixel.y);
  const double near = camera.NearAlong(direction), far = camera.FarAlong(direction) - near;
  const Vec3d start = camera.Origin() + direction * near;
  const Path path{sampler, thread};
  const RenderRay ray = MakeRay(start, direction, path);
  SurfaceHit hit;
  const bool isHit = mWorld.Trace(start, direction, 0, far, hit);
  RaySample sample;
  double behind = 1;  // part of the sky that surfaces leave open
  if (isHit) {
    sample.colour = Shade(hit, direction, path);
    sample.depth = hit.distance;
    behind = hit.fade;
  } else {
    hit.distance = far;
    hit.point = start + direction * far;
  }
  AddMedia(ray, isHit || far < kEndless ? &hit : nullptr, sample);
  sample.depth += near;
  const Vec3d& t = sample.transmission;
  if (behind > 0) sample.sky = mWorld.Background(direction) * t * behind;
  sample.alpha = 1 - behind * std::clamp((t.x + t.y + t.z) / 3, 0.0, 1.0);
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
  AddMedia(ray, isHit ? &hit : nullptr, sample);
  return sample.colour;
}

Vec3d PathTracer::Shade(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const {
  if (hit.fade >= 1) return {};
  const Vec3d view = -direction;
  Vec3d colour = hit.surface->emission + DirectLight(hit, view, path, true);
  const bool isDiffuse = hit.surface->colour != Vec3d{};
  if (mBounceLight && isDiffuse) colour += hit.surface->colour * BouncedLight(hit, path);
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
    Vec3d answer = surface.colour * cosine;
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

/// A ray at a ball, chosen by the light that it sends to the point, evenly over what is seen of it.
Vec3d PathTracer::AimAtGlow(const Vec3d& point, double choice, const Vec2D<double>& u) const {
  double total = 0;
  for (const GlowingBall& ball : mGlow) total += LightOf(ball, point);
  double left = choice * total;
  std::size_t i = 0;
  for (; i + 1 < mGlow.size(); ++i) {
    left -= LightOf(mGlow[i], point);
    if (left < 0) break;
  }
  const Cone cone(mGlow[i], point);
  return AroundAxis(cone.axis, 1 - u.x * (1 - cone.cosLimit), u.y);
}

/// How densely `AimAtGlow` picks a direction, per steradian.
double PathTracer::GlowDensity(const Vec3d& point, const Vec3d& direction) const {
  double total = 0, sum = 0;
  for (const GlowingBall& ball : mGlow) {
    const double light = LightOf(ball, point);
    total += light;
    const Cone cone(ball, point);
    if (Dot(direction, cone.axis) >= cone.cosLimit) sum += light / (2 * kPi * (1 - cone.cosLimit));
  }
  return sum / total;
}

/// Half of the rays aim at what glows, the others follow the cosine; each ray's weight is that of
/// the mixture (Veach and Guibas, "Optimally Combining Sampling Techniques", 1995: the balance
/// heuristic with one sample).
Vec3d PathTracer::BounceDirection(const SurfaceHit& hit, Sampler& sampler, double& weight) const {
  const double choice = sampler.Next1D();
  const Vec2D<double> u = sampler.Next2D();
  const double aimed = mGlow.empty() ? 0 : 0.5;
  const Vec3d direction = choice < aimed ? AimAtGlow(hit.point, choice / aimed, u)
                                         : AroundAxis(hit.normal, std::sqrt(1 - u.x), u.y);
  const double cosine = Dot(direction, hit.normal);
  if (cosine <= 0 || Dot(direction, hit.facing) <= 0) {
    weight = 0;
    return direction;
  }
  const double glow = aimed > 0 ? GlowDensity(hit.point, direction) : 0;
  const double density = aimed * glow + (1 - aimed) * cosine / kPi;
  weight = cosine / kPi / density;
  return direction;
}

Vec3d PathTracer::BouncedLight(const SurfaceHit& hit, const Path& path) const {
  double weight = 0;
  const Vec3d direction = BounceDirection(hit, path.sampler, weight);
  if (weight == 0) return {};
  Path bounce = path;
  bounce.flags |= kRayGlobalIllumination;
  return Limited(Incoming(hit, direction, bounce) * weight);
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
    sample.colour = other.surface->emission + DirectLight(other, -direction, path, false) +
                    other.surface->colour * ambience;
    const Vec3d sky = mWorld.Background(direction) * mWorld.Environment();
    sample.colour = sample.colour * (1 - other.fade) + sky * other.fade;
  } else {
    sample.colour = mWorld.Background(direction) * mWorld.Environment();
  }
  const RenderRay ray = MakeRay(origin, direction, path);
  const Vec3d before = sample.colour;
  AddMedia(ray, isHit ? &other : nullptr, sample);
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
