// Finds where a way meets a solid at rest.
#pragma once
#include <algorithm>
#include <cmath>

#include "fluids/advection/particle_contact.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// What the search for contacts is made of.
namespace meeting {

// Cells: the least step with which a way is searched.
inline constexpr double kStep = 0.25;
// Of a search: whoever goes that far in a step has left its scene.
inline constexpr i32 kMostSteps = 1000;
// The sine below which a way is one along the surface.
inline constexpr double kAlong = 1e-6;
// Normals on both sides of a part turn away from each other by more than this cosine.
inline constexpr double kBehind = -0.5;
inline constexpr i32 kProjections = 4;
// Of a way, to find where it meets a surface.
inline constexpr i32 kHalvings = 24;

/// Moves a point out along the normals until it is `radius` off; false where that doesn't help, or
/// where it would end behind a thin part whose normal is `side` where the point came from.
template <class Solid>
bool Project(const Solid& solid, f32 radius, const Vec3d& side, Vec3d& p, Vec3d& normal) {
  const auto isGood = [&](const SolidDistance& at) {
    return at.distance >= 0 && Dot(at.thinNormal, side) >= kBehind;
  };
  for (i32 i = 0; i < kProjections; ++i) {
    const SolidDistance at = solid.At(p);
    // The first pass brings the point to its distance, the others only out of the solid.
    if (i > 0 && at.distance >= 0) return isGood(at);
    const Vec3d n = solid.NormalAt(p, at);
    if (Dot(n, n) == 0) return false;
    normal = n;
    p -= n * (at.distance - radius);
  }
  return isGood(solid.At(p));
}

/// Whether two places lie before surfaces that look away from each other: from the middle of a slab
/// the normals lead out on either side.
template <class Solid>
bool AreBehind(const Solid& solid, const Vec3d& a, const Vec3d& b) {
  return Dot(solid.NormalAt(a, solid.At(a)), solid.NormalAt(b, solid.At(b))) < kBehind;
}

/// Where a way enters a solid. Shares of the way.
struct Entry {
  bool isFound = false;
  double clear = 0;         ///< the last place that is far enough off it
  double outside = 0;       ///< the last place before it
  double at = 1;            ///< the first place in it; the same where it is too thin for one
  bool staysInside = true;  ///< up to the end of the way
};

/// Searches a way for its first place in the solid, and for parts that are thinner than a step of
/// the search: before and behind one its normals turn away from each other.
template <class Solid>
Entry FindEntry(const Solid& solid, const Vec3d& from, const Vec3d& to, f32 radius) {
  const Vec3d way = to - from;
  const double length = Length(way);
  const double least = std::max(kStep * solid.CellSize(), length / kMostSteps);
  SolidDistance before = solid.At(from);
  Entry entry;
  for (double gone = 0; gone < length && entry.staysInside;) {
    gone = std::min(gone + std::max(least, before.distance / kSteepestSample), length);
    const double share = gone / length;
    const SolidDistance at = solid.At(from + way * share);
    if (entry.isFound) {
      entry.staysInside = at.distance < 0;
    } else if (at.distance < 0) {
      entry.isFound = true;
      entry.at = share;
    } else if (Dot(before.thinNormal, at.thinNormal) < kBehind) {
      entry.isFound = true;
      entry.at = share;
      entry.staysInside = false;
    } else {
      entry.outside = share;
      if (at.distance >= radius) entry.clear = share;
    }
    before = at;
  }
  return entry;
}

/// The share of a way up to where it comes nearer to the solid than `radius`, or behind a thin part
/// of it.
template <class Solid>
double FindTouch(const Solid& solid, const Vec3d& from, const Vec3d& to, f32 radius,
                 const Entry& entry) {
  double low = entry.clear, high = entry.isFound ? entry.at : 1;
  const Vec3d side = solid.At(from + (to - from) * entry.outside).thinNormal;
  for (i32 i = 0; i < kHalvings; ++i) {
    const double middle = 0.5 * (low + high);
    const SolidDistance at = solid.At(from + (to - from) * middle);
    (at.distance < radius || Dot(side, at.thinNormal) < kBehind ? high : low) = middle;
  }
  return low;
}

}  // namespace meeting

/// Finds where the straight way from `begin` to `to` comes nearer to a solid than the touch's
/// radius at its end, or passes through the solid before it. A solid tells its cell size and, of
/// any place, its distance (`At`) and its normal (`NormalAt`).
template <class Solid>
bool MeetSolid(const Solid& solid, const Vec3d& begin, const Vec3d& to, const Touch& touch,
               ParticleContact& contact) {
  using namespace meeting;
  const f32 radius = touch.radius;
  const SolidDistance end = solid.At(to);
  if (end.distance - radius >= kSteepestSample * Length(to - begin)) return false;

  contact = {.hit = true,
             .position = begin,
             .normal = {0, 1, 0},
             .depth = end.distance - radius,
             .entry = begin};
  // What distances between nodes put into the solid goes on from its surface.
  Vec3d from = begin;
  if (const SolidDistance at = solid.At(from); at.distance < 0) {
    contact.buried = -at.distance / solid.CellSize();
    if (!Project(solid, radius, at.thinNormal, from, contact.normal)) return true;
  }

  const Entry entry = FindEntry(solid, from, to, radius);
  if (!entry.isFound && static_cast<f32>(end.distance - radius) >= 0.0f) {
    contact = {};
    return false;
  }
  const Vec3d way = to - from;
  const auto faces = [&](const Vec3d& normal) { return Dot(normal, way) <= kAlong * Length(way); };
  const Vec3d side =
      entry.isFound ? solid.At(from + way * entry.outside).thinNormal : end.thinNormal;
  // From an end before the solid, or in its near half, it slides along the surface; what has come
  // farther stops where it went in.
  const bool isNear = !entry.isFound || (entry.staysInside && faces(solid.NormalAt(to, end)));
  contact.share = entry.clear;
  if (isNear) {
    contact.position = to;
    contact.slides =
        Project(solid, radius, side, contact.position, contact.normal) &&
        !(entry.isFound && AreBehind(solid, from + way * entry.outside, contact.position));
  }
  if (contact.slides && !touch.isExact) return true;
  contact.share = FindTouch(solid, from, to, radius, entry);
  contact.entry = from + way * contact.share;
  const Vec3d normal = solid.NormalAt(contact.entry, solid.At(contact.entry));
  if (Dot(normal, normal) > 0 && faces(normal))
    contact.normal = normal;
  else if (!contact.slides)
    contact.normal = way == Vec3d{} ? Vec3d{0, 1, 0} : Normalised(way) * -1.0;
  if (!contact.slides) contact.position = contact.entry;
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
