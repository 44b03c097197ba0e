// What caches have recorded of particles and meshes, as tables.
#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "exchange/particle_table.h"
#include "host/geometry.h"

namespace MELDO_GLOBAL::app {

/// All particles of a frame of a particle cache, in metres and seconds, as exports have them. Where
/// it holds several groups or kinds the column `group` tells which one a particle is of. Throws
/// host::FileError.
exchange::ParticleTable ReadRecordedParticles(const std::filesystem::path& path);

/// The polygons of a mesher, in its own frame and host units.
struct RecordedMesh {
  std::string name;
  host::Geometry geometry;
};
/// All meshes of a frame of a mesh cache; empty ones are among them. Throws host::FileError.
std::vector<RecordedMesh> ReadRecordedMeshes(const std::filesystem::path& path);

}  // namespace MELDO_GLOBAL::app
