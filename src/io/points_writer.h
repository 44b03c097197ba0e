// Particles as files for other tools.
#pragma once
#include <string>

#include "fluids/particles/particle_set.h"
#include "io/export_origin.h"

namespace MELDO_GLOBAL::app {

/// The particles of the kinds whose bits `kinds` has, 0 for all, in the order of kinds and rows:
/// columns x y z vx vy vz id, `kind` unless there is only one asked for, and one for each property
/// that nodes can declare, under its readable name, as three of a vector. Who doesn't have a
/// property has 0. Simulation units and seconds.
///
/// A binary little-endian PLY; numbers are doubles, ids ints, the rest bytes.
std::string EncodePointsPly(const MELDO_SULVA::ParticleSet& particles, u32 kinds);
/// The same as comma-separated text with a line of names; numbers read back to the same bits.
std::string EncodePointsCsv(const MELDO_SULVA::ParticleSet& particles, u32 kinds);

/// A grid "points" of the volume library: positions to single precision within voxels of that size,
/// velocity as "v", "id", and the rest as single precision under its name.
std::string EncodePointsVdb(const MELDO_SULVA::ParticleSet& particles, u32 kinds, double voxel,
                            const ExportOrigin& origin);

}  // namespace MELDO_GLOBAL::app
