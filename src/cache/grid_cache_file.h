// What stands in the file of a grid cache.
//
// Items in order: the scene's domain as a layout record; the number of headers; a header for each
// object with a grid; for every object of the list a chunk with a block for each of its grids; a
// chunk that tells of its origin, with the names of the objects. In files without it a grid belongs
// to the object at its place in the list.
#pragma once
#include <array>
#include <span>
#include <vector>

#include "cache/cache_origin.h"
#include "cache/packed_block.h"
#include "grids/egrid.h"

namespace MELDO_GLOBAL {

/// A header: the first grid of an object.
struct StoredGrid {
  bool isPresent = false;
  i32 kind = 0;
  VecInt3D dims{};  ///< samples
  GridLayout layout;

  /// The samples of component `c` of a staggered field whose component 0 this is.
  VecInt3D DimsOf(i32 c) const { return layout.dims + ExtraOf(c); }
};

/// What precedes the chunks.
struct GridCacheHeader {
  GridLayout domain;
  std::vector<StoredGrid> grids;
  /// For each chunk the index of its header, -1 for an empty one.
  std::vector<i32> chunks;
  CacheOrigin origin;
};

/// All fields of a layout, in the order of the format.
void WriteLayout(HyperFile& file, const GridLayout& layout);
/// False, too, when sizes make no sense. Ratios are those that follow from the sizes.
bool ReadLayout(HyperFile& file, GridLayout& layout);

/// The grid's corners can be counted in cells of this size (simulation units).
bool LiesOnLattice(const GridLayout& layout, double cell);

/// A null grid writes that nothing is there.
void WriteStoredGrid(HyperFile& file, const EGrid<double>* grid);
bool ReadStoredGrid(HyperFile& file, StoredGrid& stored);

/// Reads up to the first chunk, looks which chunks hold something, and rewinds behind the headers.
/// On false `problem` names the file and tells why.
bool ReadGridCacheHeader(HyperFile& file, GridCacheHeader& header, std::string& problem);

/// Everything before the origin: layout and headers, then a chunk for the grids of each object,
/// whose first one is null where it has none.
void WriteGrids(HyperFile& file, const GridLayout& domain,
                std::span<const std::array<const EGrid<double>*, 3>> objects,
                const BlockPacking& packing);
/// Reads the next block into `samples`, which has as many as it; false, with anything in them, when
/// it can't.
bool ReadSamples(HyperFile& file, std::span<double> samples, i32 threads);

/// What a grid of a kind is called in the statistics of a cache.
const char* LabelOfKind(i32 kind);

/// The text about what the file of a frame holds, a line for each header; what is wrong with a file
/// that can't be read.
std::string DescribeGridCache(HyperFile& file);

}  // namespace MELDO_GLOBAL
