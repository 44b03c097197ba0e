#include "fluids/advection/particle_obstruction.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Of a substep: what is still on its way then has got stuck.
constexpr i32 kMostHits = 6;

/// What is left of a way along a surface, which moves on for `share` of the step.
Vec3d Slid(const ParticleContact& contact, const Vec3d& way, double share) {
  return way - contact.normal * std::min(Dot(contact.normal, way - contact.motion * share), 0.0);
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

i32 ParticleObstruction::Meet(const ParticleState& s, const Leg& leg, i32 excluded,
                              ParticleContact& contact) const {
  return mSolids.Meet(s.meetsFlow ? &s.flow->Solid() : nullptr, leg, AsksExactly(s), excluded,
                      contact);
}

void ParticleObstruction::Stop(ParticleState& s, Leg leg, const Vec3d& a) {
  ParticleContact contact;
  i32 solid = Meet(s, leg, SolidsRound::kNone, contact);
  if (solid == SolidsRound::kNone) return;
  const bool flies = s.way != ParticleWay::Carried;
  ParticleFlight flight(s.way == ParticleWay::Verlet ? s.v / mDt : s.v, a, mDt);
  const Vec3d start = leg.from;
  double flown = 0;  // of the leg
  for (i32 hits = 0; solid != SolidsRound::kNone; ++hits) {
    s.flags |= PF_COLLIDED;
    const bool isThere = hits > 0 && contact.slides && IsSamePlace(contact.position, leg.to);
    const double met = contact.share, time = leg.begin + met * (leg.end - leg.begin);
    // The flight counts in what is left of it.
    contact.share = flown < 1 ? std::max((met - flown) / (1 - flown), 0.0) : 0;
    if (hits < kMostHits && FiresOperators(solid)) React(s, contact, flight);
    if (flies) flight.Meet(contact, mMotion.restitution, contact.motion / mMotion.step);
    if (hits == kMostHits) {
      // What is wedged stays where it was, unless something moves over it.
      leg.to = contact.motion != Vec3d{} ? contact.position : start;
      break;
    }
    flown = std::max(met, flown);
    // Where it is on the surface already only other solids count.
    if (contact.slides && !isThere) {
      leg.to = contact.position;
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
      solid = SolidsRound::kNone;
    }
    solid = Meet(s, leg, solid, contact);
  }
  s.p = leg.to;
  if (flies) SetVelocity(s, flight);
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
