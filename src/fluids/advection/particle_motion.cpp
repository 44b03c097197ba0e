#include "fluids/advection/particle_motion.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

CarryingFlow::CarryingFlow(const StaggeredVelocity& velocity, const GridBoundary& boundary)
    : mVelocity(velocity),
      mLayout(&velocity.Component(0).mLayout),
      mBoundary(&boundary),
      mSolid(boundary) {}

bool CarryingFlow::Holds(const Vec3d& p) const {
  return mLayout->Contains(p, false) && !IsBehindOpenSide(p);
}

void ParticleMotion::RequireColumns(ParticleColumns& particles) const {
  particles.Require<Vec3d>(property_id::kOldPosition);
  if (isFirst) particles.Require<Vec3d>(property_id::kFrameStart);
  if (integrator == kVelocityVerlet) particles.Require<Vec3d>(property_id::kPositionBefore);
}

namespace {

enum class Way { Carried, Euler, Verlet, VelocityVerlet, Bubble };

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
        mDt(motion.step / motion.substeps),
        mFirstCollision(motion.substeps > 1 ? motion.substeps - 2 : 0),
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
    Vec3d old;     ///< position a substep ago
    Vec3d tested;  ///< up to where collisions were looked for
    Vec3d force;
    double mass;
    const CarryingFlow* flow;
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
            .tested = start,
            .force = mForces ? mForces->Get(row, {}) : Vec3d{},
            .mass = MassOf(row),
            .flow = nullptr,
            .meetsFlow = false};
    if (mMotion.isFirst) s.flags &= static_cast<u16>(~PF_COLLIDED);
    const bool isHeld = FindFlow(s);
    const bool isCarried =
        mMotion.carries && s.flow && !(s.flags & PF_BALLISTIC) && (isHeld || !mMotion.fliesOutside);
    s.meetsFlow = isHeld || isCarried;
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
    for (i32 i = 0; i < mMotion.substeps; ++i) {
      Advance<Order>(s, way);
      s.force = {};
      if (mKillsNow && s.flow && HasLeft(s)) return void(s.flags &= static_cast<u16>(~PF_ALIVE));
      if (i < mFirstCollision) continue;
      if (mMotion.collision != ParticleMotion::kNoCollision && Collide(s, way)) return;
      s.tested = s.p;
    }
  }

  template <int Order>
  void Advance(State& s, Way way) const {
    const Vec3d& g = mMotion.gravity;
    switch (way) {
      case Way::Carried: {
        s.old = s.p;
        s.p = s.flow->Trace<Order>(s.p, mDt);
        return;
      }
      case Way::Verlet: {
        const Vec3d way2 = (s.p - s.old) + (s.force + g * s.mass) * (mDt * mDt);
        s.old = s.p;
        s.p += way2;
        s.v = way2;
        return;
      }
      case Way::Euler: s.v += (s.force / s.mass + g) * mDt; break;
      case Way::VelocityVerlet: s.v += (s.force + g) * mDt; break;
      case Way::Bubble: s.v += (s.flow->VelocityAt(s.p) - s.v) * 0.3 - g * (0.01 * mDt); break;
    }
    s.old = s.p;
    s.p += s.v * mDt;
  }

  /// It went out through an open side, and no other flow has it.
  bool HasLeft(const State& s) const {
    if (!s.flow->IsBehindOpenSide(s.p)) return false;
    return mMotion.flows.size() == 1 ||
           std::none_of(mMotion.flows.begin(), mMotion.flows.end(),
                        [&](const CarryingFlow& flow) { return flow.Holds(s.p); });
  }

  bool Collide(State& s, Way way) {
    SolidContact contact;
    const bool hasVolumes = !mMotion.volumes.empty();
    if (s.meetsFlow && (mMotion.collision == ParticleMotion::kLevelSet || !hasVolumes)) {
      const f32 radius = static_cast<f32>(mMotion.offset * s.flow->Layout().cellSize);
      return StopAt(s.flow->Solid(), s.tested, s.p, radius, contact) && Respond(s, way, contact);
    }
    const bool hitsWall = s.meetsFlow && HitsWall(s);
    for (const VolumeSolid& volume : mMotion.volumes) {
      if (!StopAt(volume, s.tested, s.p, static_cast<f32>(mMotion.offset), contact)) continue;
      Respond(s, way, contact);
      // What is wedged between a volume and a wall stays where it was.
      if (s.meetsFlow && HitsWall(s)) s.p = s.tested;
      return true;
    }
    return hitsWall;
  }

  bool HitsWall(State& s) const {
    SolidContact contact;
    const Vec3d& origin = s.flow->Layout().simOrigin;
    const f32 radius = static_cast<f32>(mMotion.offset * s.flow->Layout().cellSize);
    if (!s.flow->Boundary().CollideDomain(s.p - origin, contact, radius)) return false;
    Rest(s, {.position = contact.position + origin, .normal = contact.normal});
    return true;
  }

  /// Stops at a contact. What of a speed leads into the solid goes, unless operators see to it:
  /// gravity would pile it up.
  void Rest(State& s, const SolidContact& contact) const {
    s.p = contact.position;
    s.flags |= PF_COLLIDED;
    if (mMotion.operators.empty()) s.v -= contact.normal * std::min(Dot(contact.normal, s.v), 0.0);
  }

  bool Respond(State& s, Way way, const SolidContact& contact) {
    if (!mMotion.operators.empty()) {
      if (way == Way::Euler) mVelocities[s.row] = s.v;
      if (way == Way::Carried) mVelocities[s.row] = s.v + s.p - contact.position;
      mFlags[s.row] = s.flags;
      const ParticleHit hit{.contact = contact.position,
                            .normal = contact.normal,
                            .penetration = contact.depth,
                            .duration = mMotion.step,
                            .oldPosition = s.old,
                            .newPosition = s.p};
      for (InstantOperator* each : mMotion.operators)
        each->Apply(hit, mParticles.At(s.row), mWorker);
      s.v = mVelocities[s.row];
      s.flags = mFlags[s.row];
    }
    Rest(s, contact);
    return true;
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
  double mDt;
  i32 mFirstCollision;
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
