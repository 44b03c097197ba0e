// How particles move in a step.
#pragma once
#include <vector>

#include "fluids/advection/carrying_flow.h"
#include "fluids/advection/hit_watch.h"
#include "fluids/advection/instant_operator.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Motion of particles over one step: along a flow, free under forces, or as bubbles in a flow.
///
/// Each particle is moved by the first flow that holds it, within its walls if one does so, or by
/// the first one where none does. It goes in equal substeps of time dt, with the mass m, the
/// gravity g and, in the first substep, the force F of its property `ballistic_forces`:
///
///     carried          x <- end of a path through the flow
///     Euler            v <- v + dt (F/m + g), x <- x + dt v
///     Verlet           d = x - x_old + dt^2 (F + m g), x_old <- x, x <- x + d, v <- d
///     velocity Verlet  v <- v + dt (F + g), x <- x + dt v
///     bubble           v <- v + dt (0.3 (u - v) / dt - 0.01 g), x <- x + dt v in a flow u
///
/// With a drag k, free flight in a flow u takes v <- u + (v - u) e^(-k dt) + a (1 - e^(-k dt)) / k
/// for the change by the acceleration a, but for Verlet's.
///
/// The way of a substep ends at the first solid; from there the particle goes on for the time that
/// is left, up to a few times: what is carried slides along the surface, what flies leaves it with
/// the part `restitution` of the speed that led into it, or lies and slides where that would bring
/// it back within a substep. Heights of bounces hold to second order in dt (`ParticleFlight`).
struct ParticleMotion {
  enum Integrator : i32 { kEuler = 0, kVerlet = 1, kVelocityVerlet = 2 };
  enum Collision : i32 { kNoCollision = 0, kWallsAndVolumes = 1, kLevelSet = 2 };

  std::vector<CarryingFlow> flows;
  std::vector<VolumeSolid> volumes;
  std::vector<InstantOperator*> operators;
  HitWatch* watch = nullptr;  ///< is told where particles are stopped; null for no one
  bool carries = true;        ///< flows carry those that aren't ballistic
  bool fliesOutside = true;   ///< those that no flow holds go free
  i32 order = 1;              ///< of paths, as `TracePath`
  i32 integrator = kEuler;
  i32 substeps = 1;
  i32 collision = kLevelSet;
  double offset = 0.001;  ///< cells off the surfaces of a flow, simulation units off volumes
  double restitution = 0;
  double drag = 0;  ///< 1/s
  bool killsOutside = true;
  bool takesVelocity = false;  ///< those that are carried get the mean velocity of their way
  double step = 0;             ///< s
  Vec3d gravity{};
  bool isFirst = true, isLast = true;  ///< of the steps of a frame

  /// The columns that `MoveParticles` fills; call it before, on one thread.
  void RequireColumns(ParticleColumns& particles) const;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
