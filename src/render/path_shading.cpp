// Light of surfaces: what lamps, the sky and other surfaces throw on them, and what goes through.
#include <algorithm>
#include <numbers>

#include "render/path_tracer.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr i32 kMostMirrors = 3;
/// Rays that cross more boundaries of clear bodies than this find the sky.
constexpr i32 kMostBoundaries = 16;
/// Surfaces in a clear body that light bounces between, behind the first one.
constexpr i32 kMostBounces = 4;
/// Bounced light brighter than this comes from single lucky rays and only makes specks.
constexpr double kBrightestBounce = 50;
/// A mirror shows no highlight of lights that are points; this keeps it visible.
constexpr double kLeastRoughness = 0.08;

/// Schlick, "An Inexpensive BRDF Model for Physically-based Rendering" (1994), eq. 15.
double Schlick(double straight, double cosine) {
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
  return kPi * Schlick(surface.reflection, Dot(half, view)) * distribution *
         Masking(nl, roughness) * Masking(nv, roughness) / (4 * nv);
}

/// Light that leaves a body spreads: what it shows of a surface in it is less by the square of its
/// index. Rays that are followed the other way carry what is seen from the air, and what lamps
/// throw on the surface is brought to that.
double SeenFromAir(const ClearBodies& inside) { return 1 / (inside.Index() * inside.Index()); }

/// Where a ray from a surface begins, on the side that it goes to.
Vec3d StartOf(const SurfaceHit& hit, const Vec3d& direction) {
  const double off = std::max(1e-3, 1e-5 * Length(hit.point));
  return hit.point + hit.facing * (Dot(direction, hit.facing) < 0 ? -off : off);
}

}  // namespace

Vec3d PathTracer::Shade(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const {
  if (hit.fade >= 1) return {};
  if (hit.surface->isClear) return ClearLight(hit, direction, path);
  const Vec3d view = -direction;
  Vec3d colour;
  if (path.IsBounced()) {
    // Of tiny bright things few rays in random directions find any, and those would be specks.
    colour = (hit.isSphere ? Vec3d{} : hit.emission) + DirectLight(hit, view, path, false);
    colour += hit.colour * LightBeyond(hit, path);
    return colour * (1 - hit.fade);
  }
  colour = hit.emission + DirectLight(hit, view, path, true);
  const bool isDiffuse = hit.colour != Vec3d{};
  if (mBounceLight && isDiffuse) colour += hit.colour * BouncedLight(hit, path);
  if (hit.surface->reflection > 0 && path.mirrors < kMostMirrors)
    colour += Reflection(hit, view, path);
  return colour * (1 - hit.fade);
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
    Vec3d colour = sample.colour * answer * SeenFromAir(path.inside);
    if (light.CastsShadows()) {
      if (Dot(hit.facing, sample.direction) <= 0) continue;
      const Vec3d place = hit.point + sample.direction * sample.distance;
      if (mWorld.IsBlocked(hit.point, place)) continue;
      colour = colour * mWorld.PassesClear(hit.point, place, path.inside);
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
  const Vec3d passes = mWorld.PassesClear(hit.point, pick.point, path.inside) *
                       Transparency(hit.point, way / distance, distance, path);
  return pick.light * passes * (cosine / kPi * mData.brightness * SeenFromAir(path.inside));
}

/// With bounced rays it shares out what both find; clear bodies before it leave it to those.
Vec3d PathTracer::AimedSkyLight(const SurfaceHit& hit, const Path& path) const {
  const Environment& sky = mWorld.Sky();
  if (!sky.IsAimedAt()) return {};
  const Environment::Aim aim = sky.Choose(path.sampler.Next2D());
  const double cosine = Dot(hit.normal, aim.direction);
  if (cosine <= 0 || Dot(hit.facing, aim.direction) <= 0 || aim.density <= 0) return {};
  SurfaceHit ignored;
  const Vec3d origin = StartOf(hit, aim.direction);
  if (mWorld.Trace(origin, aim.direction, 0, kInfinity, ignored) && ignored.fade <= 0) return {};
  const Vec3d passes = Transparency(origin, aim.direction, kEndless, path);
  return sky.Light(aim.direction) * mWorld.SkyFactor() * passes *
         (cosine / kPi / (aim.density + cosine / kPi));
}

/// The sky stands for all that bounces on, but not in a clear body, which gives back much of what
/// its floor throws and shows the sky in a part of all directions alone.
Vec3d PathTracer::LightBeyond(const SurfaceHit& hit, const Path& path) const {
  if (path.inside.Filling() && path.bounces < kMostBounces) {
    Path bounce = path;
    ++bounce.bounces;
    bounce.density = 0;
    const Vec2D<double> u = path.sampler.Next2D();
    const Vec3d direction = AroundAxis(hit.normal, std::sqrt(1 - u.x), u.y);
    if (Dot(direction, hit.facing) <= 0) return {};
    return Limited(Radiance(StartOf(hit, direction), direction, bounce));
  }
  return mWorld.Background(hit.normal) * (mWorld.SkyFactor() * SeenFromAir(path.inside));
}

/// The sky or a mesh from a direction by chance, through the media, and what the media give
/// themselves.
Vec3d PathTracer::BouncedLight(const SurfaceHit& hit, const Path& path) const {
  Path bounce = path;
  bounce.flags |= kRayGlobalIllumination;
  Vec3d light = Limited(GlowLight(hit, bounce)) + Limited(AimedSkyLight(hit, bounce));
  const Vec2D<double> u = path.sampler.Next2D();
  const double cosine = std::sqrt(1 - u.x);
  const Vec3d direction = AroundAxis(hit.normal, cosine, u.y);
  if (Dot(direction, hit.facing) <= 0) return light;
  bounce.density = mWorld.Sky().IsAimedAt() ? cosine / kPi : 0;
  return light + Limited(Radiance(StartOf(hit, direction), direction, bounce));
}

Vec3d PathTracer::Reflection(const SurfaceHit& hit, const Vec3d& view, const Path& path) const {
  const Surface& surface = *hit.surface;
  const Vec3d facet = FacetOf(hit.normal, surface.roughness, path.sampler.Next2D());
  const Vec3d direction = Mirrored(view, facet);
  if (Dot(direction, hit.facing) <= 0) return {};
  Path mirrored = path;
  ++mirrored.mirrors;
  mirrored.flags |= kRayReflection;
  return Limited(Radiance(StartOf(hit, direction), direction, mirrored) *
                 Schlick(surface.reflection, Dot(view, facet)));
}

Vec3d PathTracer::Beyond(const SurfaceHit& hit, const Vec3d& direction, const Path& path) const {
  return Limited(Radiance(StartOf(hit, direction), direction, path));
}

/// The camera's first boundary shows both of its ways; behind it chance takes one, so that a ray
/// through many drops stays one ray.
Vec3d PathTracer::ClearLight(const SurfaceHit& hit, const Vec3d& direction,
                             const Path& path) const {
  Path through = path;
  through.density = 0;
  if (++through.boundaries > kMostBoundaries) return SkyLight(direction, through);
  CrossAll(hit, through.inside);
  if (through.inside.Filling() == path.inside.Filling()) return Beyond(hit, direction, through);

  Path mirrored = path;
  mirrored.density = 0;
  mirrored.boundaries = through.boundaries;
  mirrored.flags |= kRayReflection;
  through.flags |= kRayRefraction;
  const Surface& surface = *hit.surface;
  const double step = through.inside.Index() / path.inside.Index();
  const bool isRough = surface.roughness > 0;
  const Vec3d axis = Dot(hit.normal, direction) < 0 ? hit.normal : hit.facing;
  Vec3d facet =
      isRough ? VisibleFacet(axis, -direction, surface.roughness, path.sampler.Next2D()) : axis;
  // A smooth normal that the flat side contradicts would lead light into nothing.
  const bool isAstray = Dot(Mirrored(-direction, facet), hit.facing) <= 0 ||
                        Dot(Refracted(direction, facet, step), hit.facing) > 0;
  if (isAstray && !isRough) facet = hit.facing;
  const double fresnel = FresnelOf(-Dot(facet, direction), step);
  const auto follow = [&](bool isBehind) {
    Vec3d way = isBehind ? Refracted(direction, facet, step) : Mirrored(-direction, facet);
    if (way == Vec3d{}) return Vec3d{};
    if (isRough) {
      LeaveRough({axis, surface.roughness, step}, path.sampler, way, isBehind);
      const Vec3d side = isBehind ? -hit.facing : hit.facing;
      if (const double off = Dot(way, side); off < 0) way -= side * (2 * off);
    }
    return Beyond(hit, way, isBehind ? through : mirrored);
  };
  Vec3d colour;
  if (!hit.isFromInside && !path.IsBounced()) colour = DirectLight(hit, -direction, path, true);
  if (path.boundaries == 0 && !path.IsBounced() && fresnel < 1)
    return colour + follow(false) * fresnel + follow(true) * (1 - fresnel);
  return colour + follow(path.sampler.Next1D() >= fresnel);
}

}  // namespace MELDO_GLOBAL::app
