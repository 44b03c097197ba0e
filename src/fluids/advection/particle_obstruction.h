// How solids stop particles.
#pragma once
#include <vector>

#include "fluids/advection/particle_flight.h"
#include "fluids/advection/particle_motion.h"
#include "fluids/advection/particle_state.h"
#include "fluids/advection/solids_round.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Stops the ways of particles at the solids that they meet first, and takes them on from there.
/// Each worker has one of its own.
class ParticleObstruction {
 public:
  ParticleObstruction(const ParticleMotion& motion, ParticleColumns& particles, u32 worker);

  /// Before the step of a particle: each solid may call for the operators again.
  void BeginParticle() { mFired.clear(); }
  /// False where a leg surely meets nothing.
  bool MayMeet(const ParticleState& s, const Leg& leg) const {
    if (mMotion.collision == ParticleMotion::kNoCollision) return false;
    return s.meetsFlow ? !mSolids.IsClear(s.flow->Solid(), leg) : !mMotion.volumes.empty();
  }
  /// Brings a particle, which is at the end of the leg of a substep with the acceleration `a`, to
  /// where it comes with the solids in its way. Between a solid that moves and others it goes along
  /// the crease; where that leaves it no room the others hold it, and what moves passes over it.
  void Stop(ParticleState& s, const Leg& leg, const Vec3d& a);

 private:
  /// Whether the place of a contact counts even where the particle slides on.
  bool AsksExactly(const ParticleState& s) const {
    return s.way != ParticleWay::Carried && (mMotion.restitution > 0 || !mMotion.operators.empty());
  }
  i32 Meet(const ParticleState& s, const Leg& leg, std::span<const i32> excluded, bool movers,
           ParticleContact& contact) const;
  bool Solve(ParticleState& s, Leg leg, const Vec3d& a, bool withMovers);
  bool Settle(const ParticleState& s, const Leg& leg, Vec3d& p);
  bool FiresOperators(i32 solid);
  void React(ParticleState& s, const ParticleContact& contact, ParticleFlight& flight) const;
  void SetVelocity(ParticleState& s, const ParticleFlight& flight) const;

  const ParticleMotion& mMotion;
  ParticleColumns& mParticles;
  u32 mWorker;
  SolidsRound mSolids;
  std::vector<i32> mFired;  ///< solids that called for the operators in this step of the particle
  std::vector<i32> mQuiet;  ///< resting solids that have nothing against a place
  double mDt;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
