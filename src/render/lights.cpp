#include "render/lights.h"

#include <algorithm>
#include <bit>
#include <numbers>

#include "render/camera.h"
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
    : mNode(node.Id()), mBlockers(blockers) {
  FillMembers(LightParameters(), &node, mSettings);
  mPlacement = AimedPlacement(node, mSettings.target);
  mColour = mSettings.colour * mSettings.brightness;
  const double half = mSettings.coneAngle * std::numbers::pi / 360;
  mCosOuter = std::cos(half);
  mCosInner = std::cos(half * (1 - mSettings.coneEdge));
}

double SceneLight::Attenuation(const Vec3d& direction, double distance) const {
  if (mSettings.kind == LightKind::Distant) return 1;
  const double forward = -Dot(direction, mPlacement.v3);
  double factor = 1;
  if (mSettings.kind == LightKind::Spot)
    factor = mCosInner > mCosOuter ? SmoothStep(mCosOuter, mCosInner, forward)
                                   : double(forward >= mCosOuter);
  if (mSettings.kind == LightKind::Area) factor = std::max(forward, 0.0);
  const double nearer =
      mSettings.falloffDistance / std::max(distance, kNearest * mSettings.falloffDistance);
  if (mSettings.falloff == Falloff::Inverse) factor *= nearer;
  if (mSettings.falloff == Falloff::InverseSquare) factor *= nearer * nearer;
  return factor;
}

Vec3d SceneLight::PlaceOf(const Vec3d& point, const Vec2D<double>& u) const {
  if (mSettings.kind == LightKind::Distant) return point + mPlacement.v3 * kFarLight;
  if (mSettings.kind != LightKind::Area) return mPlacement.offset;
  return mPlacement.offset + mPlacement.v1 * (mSettings.size.x * (u.x - 0.5)) +
         mPlacement.v2 * (mSettings.size.y * (u.y - 0.5));
}

SceneLight::Sample SceneLight::At(const Vec3d& point, const Vec2D<double>& u) const {
  if (mSettings.kind == LightKind::Distant) return {mColour, mPlacement.v3, kFarLight};
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
  if (mSettings.kind != LightKind::Area) return blocked({0.5, 0.5});
  const u64 seed = HashOf(point);
  double sum = 0;
  for (u32 i = 0; i < kShadowGrid * kShadowGrid; ++i) sum += blocked(Sampler(seed, i).Next2D());
  return sum / (kShadowGrid * kShadowGrid);
}

RenderLight::Illumination SceneLight::Illuminate(const Vec3d& point, bool withShadows) const {
  const Sample sample = At(point, {0.5, 0.5});
  Illumination light{sample.colour, -sample.direction, sample.distance, {}};
  if (!withShadows || !mSettings.shadows || light.colour == Vec3d{}) return light;
  const double part = BlockedPart(point);
  light.shadow = {part, part, part};
  light.colour *= 1 - part;
  return light;
}

Vec3d SceneLight::DirectionTo(const Vec3d& point) const {
  return mSettings.kind == LightKind::Distant ? -mPlacement.v3
                                              : Normalised(point - mPlacement.offset);
}

}  // namespace MELDO_GLOBAL::app
