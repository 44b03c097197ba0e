#include "fluids/flow/gap_probe.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {
constexpr double kMet = 0.02, kLook = 0.05, kFarthestSide = 1.5;  // cells
constexpr double kSideBySide = 0.02;                              // of two unit normals' sum
constexpr i32 kMostLooks = 48;
constexpr i32 kWays = 8, kSteps = 6;  // round a gap, of half a cell each
constexpr i32 kMostSteps = 400;       // along it, likewise

Vec3d UnitOf(i32 axis) {
  Vec3d unit{};
  unit[axis] = 1;
  return unit;
}

std::array<Vec3d, 4> WaysAlong(const GapProbe::Gap& gap) {
  const Vec3d& n = gap.normal;
  const Vec3d u = Normalised(Cross(n, UnitOf(std::abs(n.x) < 0.6 ? 0 : 1))), v = Cross(n, u);
  return {u, v, u * -1.0, v * -1.0};
}

}  // namespace

/// The gap straight across from the side nearest to `p`.
std::optional<GapProbe::Across> GapProbe::Measure(Vec3d p) const {
  SolidSurfaces::Nearest near = mSolids.Find(p);
  if (near.distance <= 0) {
    // The middle bends away from a straight way.
    p += near.normal * (kLook * mCell - near.distance);
    near = mSolids.Find(p);
  }
  if (near.solid == SolidSurfaces::kNone || !(near.distance > 0)) return {};
  for (double t = kLook * mCell; t < kFarthestSide * mCell; t += kLook * mCell) {
    const SolidSurfaces::Nearest far = mSolids.Find(p + near.normal * t);
    if (far.distance > 0 || far.solid == SolidSurfaces::kNone) continue;
    const double width = near.distance + t + far.distance;
    return Across{{.at = near.at + near.normal * (width / 2),
                   .width = width,
                   .one = near.solid,
                   .other = far.solid,
                   .normal = near.normal},
                  near.normal + far.normal};
  }
  return {};
}

/// Its sides run on beside each other: of the four ways along it two at least stay open.
bool GapProbe::GoesOn(const Gap& gap) const {
  i32 open = 0;
  for (const Vec3d& way : WaysAlong(gap)) open += mSolids.DistanceAt(gap.at + way * mCell) > 0;
  return open >= 2;
}

/// On some way along it comes out: where a gap ends at solids all round, such as one behind a
/// piston that begins to move, nothing could pass.
bool GapProbe::LeadsOut(const Gap& gap) const {
  for (const Vec3d& way : WaysAlong(gap)) {
    Vec3d at = gap.at;
    for (i32 step = 0; step < kMostSteps; ++step) {
      at += way * (0.5 * mCell);
      const auto across = Measure(at);
      if (!across && mSolids.DistanceAt(at) > 0) return true;
      if (!across || across->gap.width < kMet * mCell) break;
    }
  }
  return false;
}

/// On some way along the gap its sides meet. Sides that run on beside each other as far as another
/// solid don't. Where solids cross each other by a hair, facets leave places that look narrowest
/// some way beside the crease.
bool GapProbe::EndsNearby(const Gap& gap) const {
  const auto [u, v, back, down] = WaysAlong(gap);
  for (i32 i = 0; i < kWays; ++i) {
    const double angle = 2 * std::numbers::pi * i / kWays;
    Vec3d way = u * std::cos(angle) + v * std::sin(angle), at = gap.at;
    double opening = gap.isParallel ? 0 : 1;
    for (i32 step = 0; step < kSteps; ++step) {
      const Vec3d next = at + way * (0.5 * mCell);
      const auto across = Measure(next);
      if (!across && (mSolids.DistanceAt(next) > 0 || opening < kSideBySide)) break;
      if (!across || across->gap.width < kMet * mCell) return true;
      opening = Length(across->opening);
      // The way bends with the gap.
      at = across->gap.at;
      const Vec3d upright = mSolids.Find(at).normal;
      way = Normalised(way - upright * Dot(way, upright));
    }
  }
  return false;
}

std::optional<GapProbe::Gap> GapProbe::Look(const Vec3d& p) const {
  const auto gap = Narrowest(p);
  return gap && !EndsNearby(*gap) && LeadsOut(*gap) ? gap : std::nullopt;
}

std::optional<GapProbe::Gap> GapProbe::Narrowest(const Vec3d& p) const {
  auto here = Measure(p);
  for (i32 step = 0; here && step < kMostLooks; ++step) {
    const auto [gap, opening] = *here;
    if (gap.width < kMet * mCell) return {};
    const double rise = Length(opening);
    if (rise < kSideBySide) {
      if (!GoesOn(gap)) return {};
      here->gap.isParallel = true;
      return here->gap;
    }
    // Two sides whose normals' sum is `rise` come nearer by about that much on a way of one.
    const double way = std::min(0.5 * gap.width / rise, 0.5 * mCell);
    const Vec3d next = gap.at - opening * (way / rise);
    here = Measure(next);
    // It may end in the open, narrow as it is.
    if (!here) return mSolids.DistanceAt(next) > 0 ? std::optional(gap) : std::nullopt;
    if (here->gap.width >= gap.width || Dot(here->opening, opening) < 0) return gap;
  }
  return {};
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
