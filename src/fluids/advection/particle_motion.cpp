#include "fluids/advection/particle_motion.h"

#include <algorithm>
#include <cmath>

#include "fluids/advection/particle_flight.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

CarryingFlow::CarryingFlow(const StaggeredVelocity& velocity, const GridBoundary& boundary,
                           u8 freeSides)
    : mVelocity(velocity),
      mLayout(&velocity.Component(0).mLayout),
      mBoundary(&boundary),
      mSolid(boundary),
      mFreeSides(freeSides) {}

bool CarryingFlow::Holds(const Vec3d& p) const {
  return mLayout->Contains(p, false) && !IsBehindOpenSide(p);
}

bool CarryingFlow::IsOutside(const Vec3d& p) const {
  const Vec3d c = mLayout->ToCells(p);
  const u8 shut = mBoundary->mWalls | mFreeSides;
  for (int a = 0; a < 3; ++a) {
    if (!(shut & kLowWall[a]) && c[a] < 1) return true;
    if (!(shut & kHighWall[a]) && c[a] > mLayout->dims[a] - 1) return true;
  }
  return false;
}

void ParticleMotion::RequireColumns(ParticleColumns& particles) const {
  particles.Require<Vec3d>(property_id::kOldPosition);
  if (isFirst) particles.Require<Vec3d>(property_id::kFrameStart);
  if (integrator == kVelocityVerlet) particles.Require<Vec3d>(property_id::kPositionBefore);
}

namespace {

enum class Way { Carried, Euler, Verlet, VelocityVerlet, Bubble };

// Of a substep: what is still on its way then has got stuck.
constexpr i32 kMostHits = 6;

/// The columns of a range, and one particle of it at a time.
class Mover {
 public:
  Mover(const ParticleMotion& motion, ParticleColumns& particles, u32 worker)
      : mMotion(motion),
        mParticles(particles),
        mWorker(worker),
        mPositions(particles.Positions()),
        mVelocities(particles.Velocities()),
        mFlags(particles.Flags()),
        mOld(particles.Find<Vec3d>(property_id::kOldPosition)),
        mFrameStart(particles.Find<Vec3d>(property_id::kFrameStart)),
        mBefore(particles.Find<Vec3d>(property_id::kPositionBefore)),
        mForces(particles.Find<Vec3d>(property_id::kBallisticForces)),
        mMass(particles.Find<double>(property_id::kMass)),
        mAge(particles.Find<double>(property_id::kAge)),
        mLifeSpan(particles.Find<double>(property_id::kLifeSpan)),
        mSolids(motion.volumes, motion.offset,
                motion.collision == ParticleMotion::kWallsAndVolumes && !motion.volumes.empty()),
        mDt(motion.step / motion.substeps),
        mKept(motion.drag > 0 ? std::exp(-motion.drag * mDt) : 1),
        mKillsNow(motion.isLast && motion.killsOutside),
        mAsksForFlow(motion.flows.size() > 1 || (motion.fliesOutside && !motion.flows.empty())) {}

  template <int Order>
  void MoveRows(const IndexRange& rows) {
    for (i32 row = rows.first; row < rows.last; ++row)
      if (mFlags[row] & PF_ALIVE) MoveRow<Order>(row);
  }

 private:
  /// Where it is in its way through a step.
  struct State {
    i32 row;
    u16 flags;
    Vec3d p, v;
    Vec3d old;  ///< position a substep ago
    Vec3d force;
    double mass;
    const CarryingFlow* flow;
    bool isHeld;     ///< by the flow
    bool meetsFlow;  ///< the walls and solids of the flow are round it
  };

  template <int Order>
  void MoveRow(i32 row) {
    const Vec3d start = mPositions[row];
    State s{.row = row,
            .flags = mFlags[row],
            .p = start,
            .v = mVelocities[row],
            .old = mOld->Get(row, start),
            .force = mForces ? mForces->Get(row, {}) : Vec3d{},
            .mass = MassOf(row),
            .flow = nullptr,
            .isHeld = false,
            .meetsFlow = false};
    if (mMotion.isFirst) s.flags &= static_cast<u16>(~PF_COLLIDED);
    s.isHeld = FindFlow(s);
    const bool isCarried = mMotion.carries && s.flow && !(s.flags & PF_BALLISTIC) &&
                           (s.isHeld || !mMotion.fliesOutside);
    s.meetsFlow = s.isHeld || isCarried;
    // Without a flow what isn't told to fly stays where it is.
    const bool rests = !isCarried && !mMotion.fliesOutside && !(s.flags & PF_BALLISTIC);
    const Way way = isCarried ? (s.flags & PF_BUBBLE ? Way::Bubble : Way::Carried) : FreeWay();
    if (!rests) {
      Run<Order>(s, way);
      Store(s, way, start);
    }
    if (mMotion.isFirst) mFrameStart->Set(row, start);
    GrowOlder(row, s.flags);
    mFlags[row] = s.flags;
  }

  /// A mass that isn't above 0 counts as 1.
  double MassOf(i32 row) const {
    const double mass = mMass ? mMass->Get(row, 1.0) : 1.0;
    return mass > 0 ? mass : 1.0;
  }

  Way FreeWay() const {
    return mMotion.integrator == ParticleMotion::kVerlet           ? Way::Verlet
           : mMotion.integrator == ParticleMotion::kVelocityVerlet ? Way::VelocityVerlet
                                                                   : Way::Euler;
  }

  /// The flow that moves it, and whether that one holds it.
  bool FindFlow(State& s) const {
    if (mMotion.flows.empty()) return false;
    s.flow = &mMotion.flows.front();
    if (!mAsksForFlow) return true;
    for (const CarryingFlow& flow : mMotion.flows)
      if (flow.Holds(s.p)) return s.flow = &flow, true;
    return false;
  }

  template <int Order>
  void Run(State& s, Way way) {
    const double share = 1.0 / mMotion.substeps;
    for (i32 i = 0; i < mMotion.substeps; ++i) {
      const Vec3d from = s.p;
      const Vec3d a = Advance<Order>(s, way);
      s.force = {};
      if (mKillsNow && s.flow && HasLeft(s)) return void(s.flags &= static_cast<u16>(~PF_ALIVE));
      if (mMotion.collision == ParticleMotion::kNoCollision) continue;
      if (!s.meetsFlow && mMotion.volumes.empty()) continue;
      const double end = i + 1 == mMotion.substeps ? 1 : (i + 1) * share;
      const Leg leg{.from = from, .to = s.p, .begin = i * share, .end = end};
      ParticleContact contact;
      const i32 solid = Meet(s, way, leg, SolidsRound::kNone, contact);
      if (solid != SolidsRound::kNone) Obstruct(s, way, leg, a, solid, contact);
    }
  }

  /// Takes the particle through a substep, as if nothing were in its way; returns its acceleration.
  template <int Order>
  Vec3d Advance(State& s, Way way) const {
    const Vec3d& g = mMotion.gravity;
    const Vec3d before = s.v;
    Vec3d a{};
    switch (way) {
      case Way::Carried: {
        s.old = s.p;
        s.p = s.flow->Trace<Order>(s.p, mDt);
        return a;
      }
      case Way::Verlet: {
        a = s.force + g * s.mass;
        const Vec3d way2 = (s.p - s.old) + a * (mDt * mDt);
        s.old = s.p;
        s.p += way2;
        s.v = way2;
        return a;
      }
      case Way::Euler: a = s.force / s.mass + g; break;
      case Way::VelocityVerlet: a = s.force + g; break;
      case Way::Bubble: s.v += (s.flow->VelocityAt(s.p) - s.v) * 0.3 - g * (0.01 * mDt); break;
    }
    if (way != Way::Bubble) {
      if (mMotion.drag > 0 && s.isHeld) {
        const Vec3d u = s.flow->VelocityAt(s.p);
        s.v = u + (s.v - u) * mKept + a * ((1 - mKept) / mMotion.drag);
        a = (s.v - before) / mDt;
      } else {
        s.v += a * mDt;
      }
    }
    s.old = s.p;
    s.p += s.v * mDt;
    return a;
  }

  /// It went out through an open side, and no other flow has it.
  bool HasLeft(const State& s) const {
    if (!s.flow->IsOutside(s.p)) return false;
    return mMotion.flows.size() == 1 ||
           std::none_of(mMotion.flows.begin(), mMotion.flows.end(),
                        [&](const CarryingFlow& flow) { return flow.Holds(s.p); });
  }

  i32 Meet(const State& s, Way way, const Leg& leg, i32 excluded, ParticleContact& contact) const {
    const bool isExact =
        way != Way::Carried && (mMotion.restitution > 0 || !mMotion.operators.empty());
    return mSolids.Meet(s.meetsFlow ? &s.flow->Solid() : nullptr, leg, isExact, excluded, contact);
  }

  /// Stops a substep's way at a solid that it meets first, and goes on from there.
  void Obstruct(State& s, Way way, Leg leg, const Vec3d& a, i32 solid, ParticleContact& contact) {
    const bool flies = way != Way::Carried;
    ParticleFlight flight(way == Way::Verlet ? s.v / mDt : s.v, a, mDt);
    const Vec3d start = leg.from;
    for (i32 hits = 0; solid != SolidsRound::kNone; ++hits) {
      s.flags |= PF_COLLIDED;
      const bool isThere = hits > 0 && contact.slides && IsSamePlace(contact.position, leg.to);
      const double time = leg.begin + contact.share * (leg.end - leg.begin);
      if (hits < kMostHits && FiresOperators(solid)) React(s, way, contact, flight);
      if (flies) flight.Meet(contact, mMotion.restitution, contact.motion / mMotion.step);
      if (hits == kMostHits) {
        // What is wedged stays where it was, unless something moves over it.
        leg.to = contact.motion != Vec3d{} ? contact.position : start;
        break;
      }
      // Where it is on the surface already only other solids count.
      if (contact.slides && !isThere) leg.to = contact.position;
      if (!contact.slides && !isThere) {
        const Vec3d rest =
            flies ? flight.Way() : Slid(contact, leg.to - contact.entry, leg.end - time);
        leg = {.from = contact.entry, .to = contact.entry + rest, .begin = time, .end = leg.end};
        solid = SolidsRound::kNone;
      }
      solid = Meet(s, way, leg, solid, contact);
    }
    s.p = leg.to;
    if (flies) SetVelocity(s, way, flight);
  }

  bool FiresOperators(i32 solid) const {
    return !mMotion.operators.empty() &&
           !(solid == SolidsRound::kWall && mMotion.collision == ParticleMotion::kWallsAndVolumes);
  }

  /// What is left of a way along a surface, which moves on for `share` of the step.
  static Vec3d Slid(const ParticleContact& contact, const Vec3d& way, double share) {
    return way - contact.normal * std::min(Dot(contact.normal, way - contact.motion * share), 0.0);
  }

  void SetVelocity(State& s, Way way, const ParticleFlight& flight) const {
    s.v = flight.Middle();
    if (way != Way::Verlet) return;
    s.v *= mDt;
    s.old = s.p - s.v;
  }

  /// Lets operators change what is hit.
  void React(State& s, Way way, const ParticleContact& contact, ParticleFlight& flight) {
    const bool flies = way != Way::Carried;
    const double scale = way == Way::Verlet ? mDt : 1;
    const Vec3d v = flight.VelocityAt(contact.share);
    mVelocities[s.row] = flies ? v * scale : s.v + s.p - contact.position;
    mFlags[s.row] = s.flags;
    const ParticleHit hit{.contact = flies ? contact.entry : contact.position,
                          .normal = contact.normal,
                          .penetration = contact.depth,
                          .duration = mMotion.step,
                          .oldPosition = s.old,
                          .newPosition = s.p};
    for (InstantOperator* each : mMotion.operators) each->Apply(hit, mParticles.At(s.row), mWorker);
    if (flies) flight.Push(mVelocities[s.row] / scale - v);
    s.flags = mFlags[s.row];
  }

  void Store(const State& s, Way way, const Vec3d& start) {
    mPositions[s.row] = s.p;
    mOld->Set(s.row, s.old);
    if (mForces && mForces->Has(s.row)) mForces->Set(s.row, {});
    switch (way) {
      case Way::Carried:
        // What an operator made of a hit stays.
        if (mMotion.takesVelocity && (mMotion.operators.empty() || !(s.flags & PF_COLLIDED)))
          mVelocities[s.row] = (s.p - start) / mMotion.step;
        break;
      case Way::Verlet: mVelocities[s.row] = s.p - s.old; break;
      case Way::VelocityVerlet: mBefore->Set(s.row, start); [[fallthrough]];
      case Way::Euler:
      case Way::Bubble: mVelocities[s.row] = s.v; break;
    }
  }

  void GrowOlder(i32 row, u16& flags) {
    if (!mAge || !mAge->Has(row)) return;
    const double age = mAge->Get(row, 1.0);
    if (age < (mLifeSpan ? mLifeSpan->Get(row, 1.0) : 1.0)) flags &= static_cast<u16>(~PF_NEWBORN);
    if (!mMotion.isLast) return;
    mAge->Set(row, age - 1);
    if (!(age - 1 > 0)) flags &= static_cast<u16>(~PF_ALIVE);
  }

  const ParticleMotion& mMotion;
  ParticleColumns& mParticles;
  u32 mWorker;
  std::span<Vec3d> mPositions, mVelocities;
  std::span<u16> mFlags;
  PropertyColumn<Vec3d>*mOld, *mFrameStart, *mBefore, *mForces;
  const PropertyColumn<double>* mMass;
  PropertyColumn<double>* mAge;
  const PropertyColumn<double>* mLifeSpan;
  SolidsRound mSolids;
  double mDt;
  double mKept;  ///< of a velocity in still air, after a substep of drag
  bool mKillsNow;
  bool mAsksForFlow;  ///< not all are moved by the first flow
};

}  // namespace

void ParticleMotion::Move(ParticleColumns& particles, const IndexRange& rows, u32 worker) const {
  Mover mover(*this, particles, worker);
  switch (order) {
    case 1: return mover.MoveRows<1>(rows);
    case 2: return mover.MoveRows<2>(rows);
    case 3: return mover.MoveRows<3>(rows);
    default: return mover.MoveRows<0>(rows);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
