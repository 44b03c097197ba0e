// Particles of a simulation as the columns of a file.
#pragma once
#include <string>

#include "exchange/particle_table.h"
#include "fluids/particles/particle_set.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The particles of the kinds whose bits `kinds` has, 0 for all, in the order of kinds and rows:
/// position, velocity, id, `kind` unless there is only one asked for, and a column for each
/// property that nodes can declare, by id, under its readable name; names are apart, of letters,
/// digits and underscores. Who doesn't have a property has 0. Simulation units and seconds.
exchange::ParticleTable TableOf(const ParticleSet& particles, u32 kinds);
/// The same of one kind, without a `kind`.
exchange::ParticleTable TableOf(const ParticleColumns& particles);

/// The name of a property's column: of letters, digits and underscores, which every reader takes.
std::string ColumnNameOf(const std::string& property);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
