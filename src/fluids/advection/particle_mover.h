// Moves particles.
#pragma once
#include "fluids/advection/particle_motion.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Moves the particles of a range, which starts at a multiple of 64, and ages them in the last step
/// of a frame. They have the columns that the motion requires. Others may move other ranges at the
/// same time.
void MoveParticles(const ParticleMotion& motion, ParticleColumns& particles, const IndexRange& rows,
                   u32 worker);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
