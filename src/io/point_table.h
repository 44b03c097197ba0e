// Particles of a simulation as the columns of a file.
#pragma once
#include "exchange/particle_table.h"
#include "fluids/particles/particle_set.h"

namespace MELDO_GLOBAL::app {

/// The particles of the kinds whose bits `kinds` has, 0 for all, in the order of kinds and rows:
/// position, velocity, id, `kind` unless there is only one asked for, and a column for each
/// property that nodes can declare, by id, under its readable name; names are apart, of letters,
/// digits and underscores. Who doesn't have a property has 0. Simulation units and seconds.
exchange::ParticleTable TableOf(const MELDO_SULVA::ParticleSet& particles, u32 kinds);

/// Some of the particles of a table, and the number that stands at each of them in a column.
struct ParticlePart {
  const MELDO_SULVA::ParticleColumns* particles;
  u8 label;
};
/// The same of parts, one after the other, with all of their properties; `label` names the column
/// of their labels, and without a name there is none.
exchange::ParticleTable TableOf(std::vector<ParticlePart> parts, std::string label);

}  // namespace MELDO_GLOBAL::app
