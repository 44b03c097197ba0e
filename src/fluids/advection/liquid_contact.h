// What solids do to the velocity of a liquid's particles.
#pragma once
#include "fluids/flow/flow.h"
#include "fluids/particles/particle_sort.h"
#include "fluids/pressure/body_ledger.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Takes the part that leads into a solid from the velocity of particles that touch it, with the
/// slopes that they carry, and lets die those that lie deeper than a cell in one.
///
/// Collisions stop a particle where it is, not its velocity. In a cell that a solid cuts, pressure
/// drives what comes in through the wide side out through the narrow one, faster; a particle that
/// can't go there gets that speed as its own, brings it back in the next step, and has more of it
/// then.
class LiquidContact {
 public:
  /// For the particles of a sort over the flow's cells, on its workers; bodies pay for it.
  static void Apply(const ParticleSort& sort, const Flow& flow, BodyLedger& ledger);

  static constexpr double kTouch = 0.05;  ///< cells off a surface that count as touching
  static constexpr double kAhead = 0.25;  ///< cells ahead of one that another solid may stop it
  static constexpr double kBuried = 1;    ///< cells in a solid from which nothing comes back
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
