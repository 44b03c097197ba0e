// Single particles in a file.
#pragma once
#include <span>

#include "cache/hyper_file.h"
#include "fluids/particles/particle.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Writes a particle: id, position, velocity, flags, then of its numbers, vectors and switches how
/// many there are, and of each whether it is included, and if so value and id; at last the links,
/// by the ids of their other ends. A property is included if `selection` has its id, or with `all`.
void WriteParticle(HyperFile& file, const ParticleColumns& particles, i32 row,
                   std::span<const i32> selection, bool all);

/// Reads what `WriteParticle` wrote; false at the first item that fails: what was read before
/// stays. The position at the frame's start, where it is there, becomes the old position too.
bool ReadParticle(HyperFile& file, const Particle& particle);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
