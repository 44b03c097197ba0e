#include "render/lights.h"

#include <algorithm>
#include <bit>
#include <numbers>

#include "render/camera.h"
#include "render/parameters.h"
#include "render/sampler.h"

namespace MELDO_GLOBAL::app {

using namespace host;

namespace {

/// Nearer than this part of the falloff distance a light gets no brighter.
constexpr double kNearest = 0.01;
/// Soft shadows in media are seen from so many places on an area light, squared.
constexpr int kShadowGrid = 4;

double SmoothStep(double low, double high, double x) {
  const double t = std::clamp((x - low) / (high - low), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

u64 HashOf(const Vec3d& p) {
  return MixBits(MixBits(std::bit_cast<u64>(p.x), std::bit_cast<u64>(p.y)),
                 std::bit_cast<u64>(p.z));
}

}  // namespace

SceneLight::SceneLight(const BaseNode& node, const Blockers& blockers)
    : mNode(node.Id()), mBlockers(blockers), mPlacement(AimedPlacement(node, kLightTarget)) {
  const ParameterReader read(node);
  mKind = static_cast<LightKind>(read.Long(kLightKind));
  mFalloff = static_cast<Falloff>(read.Long(kLightFalloff));
  mColour = read.Vector(kLightColour) * read.Real(kLightBrightness);
  mFalloffDistance = read.Real(kLightFalloffDistance);
  const double half = read.Real(kLightConeAngle) * std::numbers::pi / 360;
  mCosOuter = std::cos(half);
  mCosInner = std::cos(half * (1 - read.Real(kLightConeEdge)));
  mSize = read.Vector(kLightSize);
  mVolumes = read.Bool(kLightVolumes);
  mShadows = read.Bool(kLightShadows);
}

double SceneLight::Attenuation(const Vec3d& direction, double distance) const {
  if (mKind == LightKind::Distant) return 1;
  const double forward = -Dot(direction, mPlacement.v3);
  double factor = 1;
  if (mKind == LightKind::Spot)
    factor = mCosInner > mCosOuter ? SmoothStep(mCosOuter, mCosInner, forward)
                                   : double(forward >= mCosOuter);
  if (mKind == LightKind::Area) factor = std::max(forward, 0.0);
  const double nearer = mFalloffDistance / std::max(distance, kNearest * mFalloffDistance);
  if (mFalloff == Falloff::Inverse) factor *= nearer;
  if (mFalloff == Falloff::InverseSquare) factor *= nearer * nearer;
  return factor;
}

Vec3d SceneLight::PlaceOf(const Vec3d& point, const Vec2D<double>& u) const {
  if (mKind == LightKind::Distant) return point + mPlacement.v3 * kFarLight;
  if (mKind != LightKind::Area) return mPlacement.offset;
  return mPlacement.offset + mPlacement.v1 * (mSize.x * (u.x - 0.5)) +
         mPlacement.v2 * (mSize.y * (u.y - 0.5));
}

SceneLight::Sample SceneLight::At(const Vec3d& point, const Vec2D<double>& u) const {
  if (mKind == LightKind::Distant) return {mColour, mPlacement.v3, kFarLight};
  const Vec3d way = PlaceOf(point, u) - point;
  const double distance = Length(way);
  if (distance == 0) return {};
  const Vec3d direction = way / distance;
  return {mColour * Attenuation(-direction, distance), direction, distance};
}

/// Of a light's surface; 0 or 1 for a light that is a point.
double SceneLight::BlockedPart(const Vec3d& point) const {
  const auto blocked = [&](const Vec2D<double>& u) {
    return double(mBlockers.IsBlocked(point, PlaceOf(point, u)));
  };
  if (mKind != LightKind::Area) return blocked({0.5, 0.5});
  const u64 seed = HashOf(point);
  double sum = 0;
  for (u32 i = 0; i < kShadowGrid * kShadowGrid; ++i) sum += blocked(Sampler(seed, i).Next2D());
  return sum / (kShadowGrid * kShadowGrid);
}

RenderLight::Illumination SceneLight::Illuminate(const Vec3d& point, bool withShadows) const {
  const Sample sample = At(point, {0.5, 0.5});
  Illumination light{sample.colour, -sample.direction, sample.distance, {}};
  if (!withShadows || !mShadows || light.colour == Vec3d{}) return light;
  const double part = BlockedPart(point);
  light.shadow = {part, part, part};
  light.colour *= 1 - part;
  return light;
}

Vec3d SceneLight::DirectionTo(const Vec3d& point) const {
  return mKind == LightKind::Distant ? -mPlacement.v3 : Normalised(point - mPlacement.offset);
}

}  // namespace MELDO_GLOBAL::app
