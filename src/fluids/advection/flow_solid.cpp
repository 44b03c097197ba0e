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

double FlowSolid::DistanceToWalls(const Vec3d& p) const {
  const GridLayout& layout = mBoundary->GetLevelSet()->mLayout;
  double nearest = std::numeric_limits<double>::max();
  for (i32 axis = 0; axis < 3; ++axis) {
    if (mBoundary->mWalls & kLowWall[axis])
      nearest = std::min(nearest, p[axis] - layout.simOrigin[axis]);
    if (mBoundary->mWalls & kHighWall[axis])
      nearest = std::min(nearest, layout.simMax[axis] - p[axis]);
  }
  return nearest - layout.cellSize;  // a wall stands a cell inside of the grid
}

FlowSolid::Gap FlowSolid::GapAt(const Vec3d& p, double sampled) const {
  const double h = CellSize();
  if (mObstacles.empty() || sampled >= kGapLook * h) return {};
  // Walls end ways by themselves: of a gap beside one the obstacle tells how far, and which way.
  constexpr double kFar = std::numeric_limits<double>::max();
  double nearest = kFar, next = DistanceToWalls(p);
  const VolumeBase* owner = nullptr;
  for (const VolumeSolid& obstacle : mObstacles) {
    if (obstacle.IsSheet() || !obstacle.Volume().IsInBounds(p)) continue;
    const double own = obstacle.Volume().DistanceAtWorld(p);
    if (own < nearest) {
      next = std::min(next, nearest);
      nearest = own;
      owner = &obstacle.Volume();
    } else {
      next = std::min(next, own);
    }
  }
  const bool isThere = owner && next > 0 && std::max(nearest, next) < h;
  return isThere && nearest > std::max(sampled, 0.0) ? Gap{nearest, owner} : Gap{};
}

SolidDistance FlowSolid::At(const Vec3d& p) const {
  SolidDistance at{mBoundary->SampleWorld(p)};
  if (const Gap gap = GapAt(p, at.distance); gap.owner) at.distance = gap.distance;
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

Vec3d FlowSolid::NormalAt(const Vec3d& p, const SolidDistance& at) const {
  if (at.isOfThin) return at.thinNormal;
  const Gap gap = GapAt(p, mBoundary->SampleWorld(p));
  return Normalised(gap.owner ? gap.owner->GradientAtWorld(p) : mBoundary->GradientWorld(p));
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
  return MeetSolid(*this, leg.from, hitsWall ? walls.position + origin : leg.to, touch, contact);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
