// A particle on its way through a step.
#pragma once
#include "fluids/advection/carrying_flow.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// How a particle is moved.
enum class ParticleWay { Carried, Euler, Verlet, VelocityVerlet, Bubble };

/// Where it is in its way. Simulation units.
struct ParticleState {
  i32 row;
  u16 flags;
  ParticleWay way;
  Vec3d p, v;
  Vec3d old;  ///< position a substep ago
  Vec3d force;
  double mass;
  const CarryingFlow* flow;
  bool isHeld;     ///< by the flow
  bool meetsFlow;  ///< the walls and solids of the flow are round it
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
