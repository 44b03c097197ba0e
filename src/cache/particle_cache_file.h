// What stands in the file of a particle cache.
//
// Items in order: the format's version; the scene's domain as a layout record; the number of
// stores; for each whether it has particles, and if so how many lists and how long each is; for
// every store a chunk, empty for one without particles: its bounds, its layout and the columns of
// each list; a chunk that tells of its origin, with the names of the stores. Plain files have
// neither the version nor ids.
#pragma once
#include "cache/grid_cache_file.h"
#include "cache/stored_columns.h"
#include "fluids/particles/particle_store.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// The particles of one kind of a group, as a header tells of them.
struct StoredParticles {
  bool isPresent = false;
  std::vector<i32> lists;  ///< how many each has
  ParticleBounds bounds;   ///< simulation units of `layout`
  GridLayout layout;

  i64 Count() const;
};

/// What precedes the columns.
struct ParticleCacheHeader {
  static constexpr i32 kVersion = 26055, kPlainVersion = 25000, kFirstWithIds = 26000;
  i32 version = 0;
  GridLayout domain;
  std::vector<StoredParticles> stores;  ///< of each chunk
  CacheOrigin origin;

  bool HasIds() const { return version >= kFirstWithIds; }
};

/// A store on its way into a file: its place, and the rows of it that go there.
struct ParticleSource {
  const ParticleStore* store;
  const ParticleColumns* rows;
};
/// Writes all but the origin.
void WriteParticleCache(HyperFile& file, const GridLayout& domain,
                        std::span<const ParticleSource> sources, const PropertySelection& selection,
                        bool isPlain, const BlockPacking& packing);

/// Reads up to the columns of the first chunk, and the bounds of all, and rewinds behind the
/// headers. On false `problem` names the file and tells why.
bool ReadParticleCacheHeader(HyperFile& file, ParticleCacheHeader& header, std::string& problem);
/// Reads the lists of a chunk that was entered, one after the other, into `particles`.
bool ReadParticleChunk(HyperFile& file, const ParticleCacheHeader& header, std::size_t chunk,
                       const FindOwner& owner, i32 threads, ParticleColumns& particles);

/// The same block by block: `nextList` hears how many particles the next list of the chunk has
/// before `taker` is asked for room for their columns.
bool StreamParticleChunk(HyperFile& file, const ParticleCacheHeader& header, std::size_t chunk,
                         i32 threads, const std::function<void(i32 count)>& nextList,
                         ColumnTaker& taker);

/// Where the particles of a chunk are.
struct ParticlePlaces {
  std::vector<i32> ids;
  std::vector<Vec3d> positions;
};
/// Those of all chunks of a file whose header was read; empty where one can't be read.
std::vector<ParticlePlaces> ReadParticlePlaces(HyperFile& file, const ParticleCacheHeader& header,
                                               i32 threads);

/// The text about what the file of a frame holds; what is wrong with one that can't be read.
std::string DescribeParticleCache(HyperFile& file);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
