#include "fluids/advection/particle_mover.h"

#include <algorithm>
#include <cmath>

#include "fluids/advection/particle_obstruction.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr i32 kMostTraced = 4;  // substeps whose ways are traced ahead

using Way = ParticleWay;
using State = ParticleState;

/// The columns of a range, and one particle of it at a time.
class Mover {
 public:
  Mover(const ParticleMotion& motion, ParticleColumns& particles, u32 worker)
      : mMotion(motion),
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
        mObstruction(motion, particles, worker),
        mDt(motion.step / motion.substeps),
        mKept(motion.drag > 0 ? std::exp(-motion.drag * mDt) : 1),
        mKillsNow(motion.isLast && motion.killsOutside),
        mAsksForFlow(motion.flows.size() > 1 || (motion.fliesOutside && !motion.flows.empty())),
        mTraced(motion.carries && motion.flows.size() == 1 && motion.substeps <= kMostTraced
                    ? motion.substeps
                    : 0) {}

  template <int Order>
  void MoveRows(const IndexRange& rows) {
    static_assert(64 % kRowChunk == 0, "ranges start at multiples of 64");
    for (i32 first = rows.first; first < rows.last; first += kRowChunk) {
      const i32 last = std::min(first + kRowChunk, rows.last);
      if (!mTraced.empty()) TraceRows<Order>(first, last);
      for (i32 row = first; row < last; ++row)
        if (mFlags[row] & PF_ALIVE) MoveRow<Order>(row);
    }
  }

 private:
  /// Where particles of a chunk of rows begin a substep if nothing stops them, and their ways.
  struct TracedRows {
    RowVectors places;  ///< simulation units
    RowVectors ways;    ///< cells
  };

  /// Traces the ways of particles together that one flow carries.
  template <int Order>
  void TraceRows(i32 first, i32 last) {
    const CarryingFlow& flow = mMotion.flows.front();
    const i32 n = last - first;
    for (i32 i = 0; i < n; ++i) mTraced.front().places.Set(i, mPositions[first + i]);
    for (std::size_t step = 0; step < mTraced.size(); ++step) {
      TracedRows& own = mTraced[step];
      RowVectors cells;
      for (i32 i = 0; i < n; ++i) cells.Set(i, flow.Layout().ToCells(own.places.At(i)));
      flow.TraceWays(cells, mDt, Order, n, own.ways);
      if (step + 1 == mTraced.size()) return;
      for (i32 i = 0; i < n; ++i)
        mTraced[step + 1].places.Set(i, flow.Moved(own.places.At(i), own.ways.At(i)));
    }
  }

  /// What something has stopped goes on from elsewhere, by itself.
  template <int Order>
  Vec3d EndOfTrace(const State& s, i32 substep) const {
    if (!mTraced.empty()) {
      const TracedRows& traced = mTraced[substep];
      const i32 i = s.row % kRowChunk;
      if (traced.places.At(i) == s.p) return s.flow->Moved(s.p, traced.ways.At(i));
    }
    return s.flow->Trace<Order>(s.p, mDt);
  }

  template <int Order>
  void MoveRow(i32 row) {
    const Vec3d start = mPositions[row];
    State s{.row = row,
            .flags = mFlags[row],
            .way = Way::Carried,
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
    s.way = isCarried ? (s.flags & PF_BUBBLE ? Way::Bubble : Way::Carried) : FreeWay();
    if (!rests) {
      Run<Order>(s);
      Store(s, start);
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
    if (mMotion.flows.size() > 1)
      for (const CarryingFlow& flow : mMotion.flows)
        if (flow.HoldsWithin(s.p)) return s.flow = &flow, true;
    for (const CarryingFlow& flow : mMotion.flows)
      if (flow.Holds(s.p)) return s.flow = &flow, true;
    return false;
  }

  template <int Order>
  void Run(State& s) {
    const double share = 1.0 / mMotion.substeps;
    mObstruction.BeginParticle();
    for (i32 i = 0; i < mMotion.substeps; ++i) {
      const Vec3d from = s.p;
      const Vec3d a = Advance<Order>(s, i);
      s.force = {};
      if (mKillsNow && s.flow && HasLeft(s)) return void(s.flags &= static_cast<u16>(~PF_ALIVE));
      const double end = i + 1 == mMotion.substeps ? 1 : (i + 1) * share;
      const Leg leg{.from = from, .to = s.p, .begin = i * share, .end = end};
      if (mObstruction.MayMeet(s, leg)) mObstruction.Stop(s, leg, a);
    }
  }

  /// Takes the particle through a substep of that number, as if nothing were in its way; returns
  /// its acceleration.
  template <int Order>
  Vec3d Advance(State& s, i32 substep) const {
    const Vec3d& g = mMotion.gravity;
    const Vec3d before = s.v;
    Vec3d a{};
    switch (s.way) {
      case Way::Carried: {
        s.old = s.p;
        s.p = EndOfTrace<Order>(s, substep);
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
    if (s.way != Way::Bubble) {
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

  void Store(const State& s, const Vec3d& start) {
    mPositions[s.row] = s.p;
    mOld->Set(s.row, s.old);
    if (mForces && mForces->Has(s.row)) mForces->Set(s.row, {});
    switch (s.way) {
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
  std::span<Vec3d> mPositions, mVelocities;
  std::span<u16> mFlags;
  PropertyColumn<Vec3d>*mOld, *mFrameStart, *mBefore, *mForces;
  const PropertyColumn<double>* mMass;
  PropertyColumn<double>* mAge;
  const PropertyColumn<double>* mLifeSpan;
  ParticleObstruction mObstruction;
  double mDt;
  double mKept;  ///< of a velocity in still air, after a substep of drag
  bool mKillsNow;
  bool mAsksForFlow;                ///< not all are moved by the first flow
  std::vector<TracedRows> mTraced;  ///< for each substep; empty where each is traced by itself
};

}  // namespace

void MoveParticles(const ParticleMotion& motion, ParticleColumns& particles, const IndexRange& rows,
                   u32 worker) {
  Mover mover(motion, particles, worker);
  switch (motion.order) {
    case 1: return mover.MoveRows<1>(rows);
    case 2: return mover.MoveRows<2>(rows);
    case 3: return mover.MoveRows<3>(rows);
    default: return mover.MoveRows<0>(rows);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
