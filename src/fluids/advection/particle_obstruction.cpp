#include "fluids/advection/particle_obstruction.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Of a substep: what is still on its way then has got stuck.
constexpr i32 kMostHits = 6;
// Cells: what begins deeper in a solid that moves hasn't got there by distances between nodes.
constexpr double kBuried = 0.25;
// Of the angle between two surfaces: in a flatter wedge nothing is pushed ahead.
constexpr double kLeastSine = 0.1;

/// What is left of a way along a surface, which moves on for `share` of the step.
Vec3d Slid(const ParticleContact& contact, const Vec3d& way, double share) {
  return way - contact.normal * std::min(Dot(contact.normal, way - contact.motion * share), 0.0);
}

bool IsOfMover(const ParticleContact& contact) { return contact.motion != Vec3d{}; }

/// Where a place on the surface of `contact` comes to lie before that of `held` too: the nearest
/// such place along the first one. Between surfaces that nearly face each other there is none:
/// `contact.position`.
Vec3d ToCrease(const ParticleContact& contact, const ParticleContact& held) {
  const double gap = Dot(held.normal, held.position - contact.position);
  const double cosine = Dot(held.normal, contact.normal), sine2 = 1 - cosine * cosine;
  if (gap <= 0 || sine2 < kLeastSine * kLeastSine) return contact.position;
  return contact.position + (held.normal - contact.normal * cosine) * (gap / sine2);
}

}  // namespace

ParticleObstruction::ParticleObstruction(const ParticleMotion& motion, ParticleColumns& particles,
                                         u32 worker)
    : mMotion(motion),
      mParticles(particles),
      mWorker(worker),
      mSolids(motion.volumes, motion.offset,
              motion.collision == ParticleMotion::kWallsAndVolumes && !motion.volumes.empty()),
      mDt(motion.step / motion.substeps) {
  if (!motion.operators.empty()) mFired.reserve(kMostHits);
}

i32 ParticleObstruction::Meet(const ParticleState& s, const Leg& leg, std::span<const i32> excluded,
                              bool movers, ParticleContact& contact) const {
  return mSolids.Meet(s.meetsFlow ? &s.flow->Solid() : nullptr, leg, AsksExactly(s), excluded,
                      movers, contact);
}

void ParticleObstruction::Stop(ParticleState& s, const Leg& leg, const Vec3d& a) {
  const ParticleState before = s;
  if (Solve(s, leg, a, true)) return;
  s = before;
  s.flags |= PF_COLLIDED;
  if (Solve(s, leg, a, false)) return;
  // Nothing lets it go anywhere.
  s.p = leg.from;
}

/// Brings a place, to which solids pushed the particle, before all that rest: no solid has anything
/// against it, and none lies between it and the start of the leg. False where there is no such
/// place nearby.
bool ParticleObstruction::Settle(const ParticleState& s, const Leg& leg, Vec3d& p) {
  // Of the distance that is kept from surfaces: closer than that a place is as good as another.
  constexpr double kNear = 1e-2;
  const auto isNear = [&](const Vec3d& at) {
    return Length(at - p) <= kNear * mMotion.offset || IsSamePlace(at, p);
  };
  mQuiet.clear();
  ParticleContact contact;
  for (i32 moves = 0; moves <= kMostHits;) {
    const Leg way{.from = leg.from, .to = p, .begin = leg.begin, .end = leg.end};
    const i32 solid = Meet(s, way, mQuiet, false, contact);
    if (solid == SolidsRound::kNone) return true;
    // Walls tell of no place that is theirs already.
    if (solid != SolidsRound::kWall && isNear(contact.position)) {
      mQuiet.push_back(solid);
      continue;
    }
    p = contact.position;
    mQuiet.clear();
    ++moves;
  }
  return false;
}

/// `Stop` with or without the solids that move; false where they leave no room.
bool ParticleObstruction::Solve(ParticleState& s, Leg leg, const Vec3d& a, bool withMovers) {
  ParticleContact contact, held;
  i32 solid = Meet(s, leg, {}, withMovers, contact), holder = SolidsRound::kNone;
  if (solid == SolidsRound::kNone) return true;
  const Leg whole = leg;
  bool isBuried = false, isHeld = false, isPushed = false, areSeveral = false, beganInside = false;
  const bool flies = s.way != ParticleWay::Carried;
  ParticleFlight flight(s.way == ParticleWay::Verlet ? s.v / mDt : s.v, a, mDt);
  double flown = 0;  // of the leg
  for (i32 hits = 0; solid != SolidsRound::kNone; ++hits) {
    s.flags |= PF_COLLIDED;
    if (mMotion.watch) mMotion.watch->Note(contact.position);
    isPushed |= IsOfMover(contact);
    beganInside |= contact.buried > 0;
    isHeld |= !IsOfMover(contact);
    isBuried |= IsOfMover(contact) && contact.buried > kBuried;
    if (isBuried && isHeld) return false;
    const bool isThere = hits > 0 && contact.slides && IsSamePlace(contact.position, leg.to);
    const double met = contact.share, time = leg.begin + met * (leg.end - leg.begin);
    // The flight counts in what is left of it.
    contact.share = flown < 1 ? std::max((met - flown) / (1 - flown), 0.0) : 0;
    if (hits < kMostHits && FiresOperators(solid)) React(s, contact, flight);
    if (flies) flight.Meet(contact, mMotion.restitution, contact.motion / mMotion.step);
    if (hits == kMostHits) {
      // What is wedged stays where it was, unless something moves over it.
      leg.to = isPushed ? contact.position : whole.from;
      break;
    }
    flown = std::max(met, flown);
    // Where it is on the surface already only other solids count.
    if (contact.slides && !isThere) {
      const bool isCrease = isPushed && holder != SolidsRound::kNone && holder != solid;
      leg.to = isCrease ? ToCrease(contact, held) : contact.position;
      held = contact;
      holder = solid;
      if (AsksExactly(s)) {
        leg.from = contact.entry;
        leg.begin = time;
        flown = 0;
      }
    }
    if (!contact.slides && !isThere) {
      const Vec3d rest =
          flies ? flight.Way() : Slid(contact, leg.to - contact.entry, leg.end - time);
      leg = {.from = contact.entry, .to = contact.entry + rest, .begin = time, .end = leg.end};
      flown = 0;
      solid = holder = SolidsRound::kNone;
    }
    // Of walls no more than one is met at once.
    const std::span<const i32> last(&solid, solid >= SolidsRound::kLevelSet ? 1 : 0);
    const i32 next = Meet(s, leg, last, withMovers, contact);
    areSeveral |= next != SolidsRound::kNone && next != solid;
    solid = next;
  }
  // What one solid pushes, or lets go, may have come behind another.
  if ((isPushed || areSeveral || beganInside) && !Settle(s, whole, leg.to)) return false;
  s.p = leg.to;
  if (flies) SetVelocity(s, flight);
  return true;
}

bool ParticleObstruction::FiresOperators(i32 solid) {
  // The level set has the walls too: which of them is met first there, rounding decides.
  if (solid == SolidsRound::kWall && mMotion.collision == ParticleMotion::kLevelSet)
    solid = SolidsRound::kLevelSet;
  if (mMotion.operators.empty() ||
      (solid == SolidsRound::kWall && mMotion.collision == ParticleMotion::kWallsAndVolumes) ||
      std::find(mFired.begin(), mFired.end(), solid) != mFired.end())
    return false;
  mFired.push_back(solid);
  return true;
}

void ParticleObstruction::React(ParticleState& s, const ParticleContact& contact,
                                ParticleFlight& flight) const {
  const bool flies = s.way != ParticleWay::Carried;
  const double scale = s.way == ParticleWay::Verlet ? mDt : 1;
  Vec3d& velocity = mParticles.Velocities()[s.row];
  const Vec3d v = flight.VelocityAt(contact.share);
  const Vec3d before = flies ? v * scale : s.v + s.p - contact.position;
  velocity = before;
  mParticles.Flags()[s.row] = s.flags;
  const ParticleHit hit{.contact = flies ? contact.entry : contact.position,
                        .normal = contact.normal,
                        .penetration = contact.depth,
                        .duration = mMotion.step,
                        .oldPosition = s.old,
                        .newPosition = s.p};
  for (InstantOperator* each : mMotion.operators) each->Apply(hit, mParticles.At(s.row), mWorker);
  if (flies)
    flight.Push(velocity / scale - v);
  else
    s.v += velocity - before;
  s.flags = mParticles.Flags()[s.row];
}

void ParticleObstruction::SetVelocity(ParticleState& s, const ParticleFlight& flight) const {
  s.v = flight.Middle();
  if (s.way != ParticleWay::Verlet) return;
  s.v *= mDt;
  s.old = s.p - s.v;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
