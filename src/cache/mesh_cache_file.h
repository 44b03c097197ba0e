// What stands in the file of a mesh cache.
//
// Items in order: the number of meshes; for each a chunk: whether there are polygons, and if so how
// many and how many points, the polygons, the points, and whether there are normals, texture
// coordinates, velocities and colours, each followed by a block if so; a chunk that tells of its
// origin, with the names of the meshes. All is as the object has it: in its own frame, host units.
// Normals that corners share with all others of their point stand there once.
#pragma once
#include "cache/cache_origin.h"
#include "cache/packed_block.h"
#include "host/geometry.h"

namespace MELDO_GLOBAL {

/// What a file says of a mesh; no polygons where there is none.
struct StoredMesh {
  i32 polygons = 0, points = 0;
};

/// What precedes the arrays.
struct MeshCacheHeader {
  std::vector<StoredMesh> meshes;  ///< of each chunk
  CacheOrigin origin;
};

/// Writes all but the origin.
void WriteMeshCache(HyperFile& file, std::span<const host::Geometry* const> meshes,
                    const BlockPacking& packing);
/// Reads what all chunks say, and rewinds behind the number of them. On false `problem` names the
/// file and tells why.
bool ReadMeshCacheHeader(HyperFile& file, MeshCacheHeader& header, std::string& problem);
/// Replaces a mesh by that of a chunk that was entered. False where it can't be read, with anything
/// in `mesh`: sizes are held against the bytes that are there before memory is taken, and against
/// the limit of memory.
bool ReadMeshChunk(HyperFile& file, i32 threads, host::Geometry& mesh);

/// The text about what the file of a frame holds; what is wrong with one that can't be read.
std::string DescribeMeshCache(HyperFile& file);

}  // namespace MELDO_GLOBAL
