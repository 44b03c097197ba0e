// Points of the host as particles of the simulation, and the other way round.
#pragma once
#include <span>

#include "exchange/particle_table.h"
#include "fluids/particles/particle_property.h"
#include "fluids/particles/particle_store.h"
#include "grids/grid_layout.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Appends a particle to a store for each point of an object, in simulation units of `domain`.
/// Those of a file come with their velocities and all columns that are built-in properties by their
/// names, or, of another name, one of `users` by that of its node. Places, velocities and radii are
/// lengths; normals turn, and all else stays.
void AppendPoints(const host::PointsObject& object, const GridLayout& domain,
                  std::span<iProperty* const> users, ParticleStore& store);

/// A store's particles as those of an object, in its axes and in host units; undoes the above.
exchange::ParticleTable PointsOf(const ParticleColumns& particles, const host::PointsObject& object,
                                 const GridLayout& domain);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
