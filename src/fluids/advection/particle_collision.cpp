#include "fluids/advection/particle_collision.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fluids/volume/thin_walls.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Trilinear samples of a distance change by at most one on each axis.
constexpr double kSteepest = 1.7320508075688772;
// Cells: the least step with which a way is searched.
constexpr double kStep = 0.25;
// Of a search: whoever goes that far in a step has left its scene.
constexpr i32 kMostSteps = 1000;
// The sine below which a way is one along the surface.
constexpr double kAlong = 1e-6;
// Normals on both sides of a thin part turn away from each other by more than this cosine.
constexpr double kBehind = -0.5;
constexpr i32 kProjections = 4;

bool HasThinParts(const VolumeBase& volume) {
  const ThinWalls* thin = volume.GetThinWalls();
  return thin && !thin->Faces().empty() && !volume.IsSheet();
}

/// The direction in which a point lies off the nearest place of a surface.
Vec3d NormalOff(const SharpSurface& sharp, const SharpSurface::Nearest& nearest, const Vec3d& p) {
  const Vec3d away = (p - nearest.at) * (nearest.distance < 0 ? -1.0 : 1.0);
  return Dot(away, away) > 0 ? Normalised(away) : sharp.NormalOf(nearest.triangle);
}

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

/// Where a way enters a solid.
struct Entry {
  bool isFound = false;
  Vec3d outside{};          ///< the last place before it
  Vec3d at{};               ///< the first place in the solid; the same where it is too thin for one
  bool staysInside = true;  ///< up to the end of the way
};

/// Searches a way for its first place in the solid, and for parts that are thinner than a step of
/// the search: before and behind one its normals turn away from each other.
template <class Solid>
Entry FindEntry(const Solid& solid, const Vec3d& from, const Vec3d& to) {
  const Vec3d way = to - from;
  const double length = Length(way);
  const double least = std::max(kStep * solid.CellSize(), length / kMostSteps);
  SolidDistance before = solid.At(from);
  Entry entry{.outside = from, .at = to};
  for (double gone = 0; gone < length && entry.staysInside;) {
    gone = std::min(gone + std::max(least, before.distance / kSteepest), length);
    const Vec3d p = from + way * (gone / length);
    const SolidDistance at = solid.At(p);
    if (entry.isFound) {
      entry.staysInside = at.distance < 0;
    } else if (at.distance < 0) {
      entry.isFound = true;
      entry.at = p;
    } else if (Dot(before.thinNormal, at.thinNormal) < kBehind) {
      return {.isFound = true, .outside = entry.outside, .at = entry.outside, .staysInside = false};
    } else {
      entry.outside = p;
    }
    before = at;
  }
  return entry;
}

template <class Solid>
bool Stop(const Solid& solid, const Vec3d& begin, const Vec3d& to, f32 radius,
          SolidContact& contact) {
  if (!solid.MayMeet(begin, to)) return false;
  const SolidDistance end = solid.At(to);
  if (end.distance - radius >= kSteepest * Length(to - begin)) return false;

  contact = {.hit = true, .position = begin, .normal = {0, 1, 0}, .depth = end.distance - radius};
  // What a solid has moved over, or distances between nodes put into it, goes on from its surface.
  Vec3d from = begin;
  if (const SolidDistance at = solid.At(from);
      at.distance < 0 && !Project(solid, radius, at.thinNormal, from, contact.normal))
    return true;

  const Entry entry = FindEntry(solid, from, to);
  if (!entry.isFound && static_cast<f32>(end.distance - radius) >= 0.0f) {
    contact = {};
    return false;
  }
  const Vec3d way = to - from;
  const auto faces = [&](const Vec3d& normal) { return Dot(normal, way) <= kAlong * Length(way); };
  const Vec3d side = entry.isFound ? solid.At(entry.outside).thinNormal : end.thinNormal;
  const auto slides = [&](const Vec3d& p) {
    contact.position = p;
    return Project(solid, radius, side, contact.position, contact.normal);
  };
  // From an end before the solid, or in its near half, it slides along the surface; what has come
  // farther stops where it went in.
  const bool isNear = entry.isFound ? entry.staysInside && faces(solid.NormalAt(to, end)) : true;
  if (isNear && slides(to)) return true;
  if (entry.isFound && faces(solid.NormalAt(entry.at, solid.At(entry.at))) && slides(entry.at))
    return true;
  contact.position = entry.outside;
  contact.normal = way == Vec3d{} ? Vec3d{0, 1, 0} : Normalised(way) * -1.0;
  return true;
}

}  // namespace

VolumeSolid::VolumeSolid(const VolumeBase& volume)
    : mVolume(&volume), mSharp(HasThinParts(volume) ? volume.GetSharpSurface() : std::nullopt) {}

bool VolumeSolid::MayMeet(const Vec3d& from, const Vec3d& to) const {
  return BoxesMeet(Min(from, to), Max(from, to), mVolume->mBoxMin, mVolume->mBoxMax);
}

SolidDistance VolumeSolid::At(const Vec3d& p) const {
  const double cell = CellSize();
  // Beyond its box a volume is a cell away at least.
  if (!mVolume->IsInBounds(p)) return {cell};
  const double distance = mVolume->DistanceAtWorld(p);
  if (!mSharp || distance > 2 * cell) return {distance};
  const SharpSurface::Nearest nearest = mSharp->Find(p);
  if (nearest.triangle < 0) return {distance};
  return {nearest.distance, NormalOff(*mSharp, nearest, p), true};
}

Vec3d VolumeSolid::NormalAt(const Vec3d& p, const SolidDistance& at) const {
  return at.isOfThin ? at.thinNormal : Normalised(mVolume->GradientAtWorld(p));
}

FlowSolid::FlowSolid(const GridBoundary& boundary) : mBoundary(&boundary) {
  for (const VolumeBase* obstacle : boundary.mObstacles) {
    if (obstacle->Has(FLAG_ENABLED) && obstacle->HasGridData() && HasThinParts(*obstacle))
      mThin.emplace_back(*obstacle);
  }
}

SolidDistance FlowSolid::At(const Vec3d& p) const {
  SolidDistance at{mBoundary->SampleWorld(p)};
  double nearest = std::numeric_limits<double>::max();
  for (const VolumeSolid& thin : mThin) {
    const SolidDistance own = thin.At(p);
    if (!own.isOfThin || own.distance >= nearest) continue;
    nearest = own.distance;
    at.thinNormal = own.thinNormal;
  }
  if (nearest < at.distance) {
    at.distance = nearest;
    at.isOfThin = true;
  }
  return at;
}

Vec3d FlowSolid::NormalAt(const Vec3d& p, const SolidDistance& at) const {
  return at.isOfThin ? at.thinNormal : Normalised(mBoundary->GradientWorld(p));
}

bool StopAt(const FlowSolid& solid, const Vec3d& from, const Vec3d& to, f32 radius,
            SolidContact& contact) {
  contact = {};
  if (solid.IsEmpty()) return false;
  const Vec3d origin = solid.Boundary().GetLevelSet()->mLayout.simOrigin;
  SolidContact wall;
  const bool hitsWall = solid.Boundary().CollideDomain(to - origin, wall, radius);
  const Vec3d end = hitsWall ? wall.position + origin : to;
  if (Stop(solid, from, end, radius, contact)) return true;
  if (!hitsWall) return false;
  contact = wall;
  contact.position = end;
  return true;
}

bool StopAt(const VolumeSolid& solid, const Vec3d& from, const Vec3d& to, f32 radius,
            SolidContact& contact) {
  contact = {};
  return !solid.IsEmpty() && Stop(solid, from, to, radius, contact);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
