#include "fluids/advection/flow_solid.h"

#include <algorithm>
#include <limits>

#include "fluids/advection/meet_solid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

FlowSolid::FlowSolid(const GridBoundary& boundary) : mBoundary(&boundary) {
  for (const VolumeBase* obstacle : boundary.mObstacles) {
    if (!obstacle->Has(FLAG_ENABLED) || !obstacle->HasGridData()) continue;
    const i32 index = static_cast<i32>(mObstacles.size());
    const VolumeSolid& solid = mObstacles.emplace_back(*obstacle);
    if (solid.HasThinParts()) mThin.push_back(index);
    if (solid.Moves() || solid.IsSheet()) mSpecial.push_back(index);
  }
  mIsPlain = !IsEmpty() && mThin.empty() && mSpecial.empty();
}

FlowSolid::Gap FlowSolid::NearestWall(const Vec3d& p) const {
  const GridLayout& layout = mBoundary->GetLevelSet()->mLayout;
  const double h = layout.cellSize;
  Gap nearest{.distance = std::numeric_limits<double>::max()};
  for (i32 axis = 0; axis < 3; ++axis)
    for (const bool high : {false, true}) {
      if (!(mBoundary->mWalls & (high ? kHighWall : kLowWall)[axis])) continue;
      // A wall stands a cell inside of the grid.
      const double off =
          (high ? layout.simMax[axis] - p[axis] : p[axis] - layout.simOrigin[axis]) - h;
      if (off >= nearest.distance) continue;
      nearest = {.distance = off};
      nearest.normal[axis] = high ? -1 : 1;
    }
  return nearest;
}

FlowSolid::Gap FlowSolid::GapAt(const Vec3d& p, double sampled, bool withNormal) const {
  const double h = CellSize();
  if (mObstacles.empty() || sampled >= kGapLook * h) return {};
  Gap nearest = NearestWall(p);
  double next = std::numeric_limits<double>::max();
  const VolumeBase* owner = nullptr;
  for (const VolumeSolid& obstacle : mObstacles) {
    if (obstacle.IsSheet() || !obstacle.Volume().IsInBounds(p)) continue;
    const double own = obstacle.Volume().DistanceAtWorld(p);
    next = std::min(next, std::max(own, nearest.distance));
    if (own >= nearest.distance) continue;
    nearest.distance = own;
    owner = &obstacle.Volume();
  }
  nearest.isThere = next < h && nearest.distance > std::max(sampled, 0.0);
  if (nearest.isThere && withNormal && owner)
    nearest.normal = Normalised(owner->GradientAtWorld(p));
  return nearest;
}

SolidDistance FlowSolid::At(const Vec3d& p, bool withGaps) const {
  SolidDistance at{mBoundary->SampleWorld(p)};
  if (const Gap gap = withGaps ? GapAt(p, at.distance, false) : Gap{}; gap.isThere) {
    at.distance = gap.distance;
    at.isOfGap = true;
  }
  double nearest = std::numeric_limits<double>::max();
  for (const i32 index : mThin) {
    const SolidDistance own = mObstacles[index].At(p);
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

Vec3d FlowSolid::NormalAt(const Vec3d& p, const SolidDistance& at, bool withGaps) const {
  if (at.isOfThin) return at.thinNormal;
  const Gap gap = withGaps ? GapAt(p, mBoundary->SampleWorld(p), true) : Gap{};
  return gap.isThere ? gap.normal : Normalised(mBoundary->GradientWorld(p));
}

bool FlowSolid::AsksObstacles(const Leg& leg) const {
  return std::any_of(mSpecial.begin(), mSpecial.end(),
                     [&](i32 index) { return mObstacles[index].MayMeet(leg); });
}

bool FlowSolid::IsFarFromOthers(const Leg& leg) const {
  return std::all_of(mThin.begin(), mThin.end(),
                     [&](i32 index) { return mObstacles[index].IsFarFrom(leg.to); }) &&
         !AsksObstacles(leg);
}

bool FlowSolid::MeetWall(const Leg& leg, const Touch& touch, ParticleContact& contact) const {
  if (IsEmpty()) return false;
  const Vec3d& origin = mBoundary->GetLevelSet()->mLayout.simOrigin;
  SolidContact walls;
  if (!mBoundary->CollideDomain(leg.to - origin, walls, touch.radius)) return false;
  // In a corner it passes one of the walls first.
  contact = {};
  contact.share = 2;
  for (i32 a = 0; a < 3; ++a) {
    if (walls.normal[a] == 0) continue;
    const double place = walls.position[a] + origin[a], way = leg.to[a] - leg.from[a];
    const double share = way == 0 ? 0 : std::clamp((place - leg.from[a]) / way, 0.0, 1.0);
    Vec3d clamped = leg.to;
    clamped[a] = place;
    if (share >= contact.share || IsSamePlace(clamped, leg.to)) continue;
    contact = {.hit = true, .position = clamped, .share = share, .slides = true};
    contact.normal[a] = walls.normal[a];
    contact.depth = -std::abs(leg.to[a] - place);
    contact.entry = leg.from + (leg.to - leg.from) * share;
    contact.entry[a] = place;
  }
  return contact.hit;
}

bool FlowSolid::MeetLevelSet(const Leg& leg, const Touch& touch, ParticleContact& contact) const {
  if (IsEmpty()) return false;
  const Vec3d& origin = mBoundary->GetLevelSet()->mLayout.simOrigin;
  SolidContact walls;
  const bool hitsWall = mBoundary->CollideDomain(leg.to - origin, walls, touch.radius);
  const View view{*this, Length(leg.to - leg.from) < kLongLeg * CellSize()};
  return MeetSolid(view, leg.from, hitsWall ? walls.position + origin : leg.to, touch, contact);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
