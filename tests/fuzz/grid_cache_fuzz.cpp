// Any bytes as the body of a grid cache's file.
#include "cache/block_compressor.h"
#include "cache/grid_cache_file.h"
#include "cache_fuzz.h"

using namespace MELDO_GLOBAL;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  ReadAnyCache(
      data, size, ReadGridCacheHeader,
      [](const GridCacheHeader& header) { return header.chunks.size(); },
      [](HyperFile& file, const GridCacheHeader& header, std::size_t chunk) {
        if (header.chunks[chunk] < 0) return;
        const StoredGrid& grid = header.grids[header.chunks[chunk]];
        const double samples = 1.0 * grid.dims.x * grid.dims.y * grid.dims.z;
        std::vector<double> values(samples > 0 && samples < 1e6 ? std::size_t(samples) : 0);
        while (!file.AtEnd() && ReadSamples(file, values, 1)) {
        }
      },
      DescribeGridCache);
  std::vector<std::byte> target(4096);
  Decompress(std::as_bytes(std::span(data, size)), target);
  return 0;
}
