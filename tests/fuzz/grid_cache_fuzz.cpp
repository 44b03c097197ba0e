// Any bytes as the body of a grid cache's file.
#include "cache/block_compressor.h"
#include "cache/grid_cache_file.h"

using namespace MELDO_GLOBAL;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  HyperFile file;
  if (!file.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, body))) __builtin_trap();
  GridCacheHeader header;
  std::string problem;
  if (ReadGridCacheHeader(file, header, problem)) {
    for (const i32 chunk : header.chunks) {
      i32 id, level;
      if (!file.ReadChunkStart(id, level)) break;
      if (chunk >= 0) {
        const StoredGrid& grid = header.grids[chunk];
        const double samples = 1.0 * grid.dims.x * grid.dims.y * grid.dims.z;
        std::vector<double> values(samples > 0 && samples < 1e6 ? std::size_t(samples) : 0);
        while (!file.AtEnd() && ReadSamples(file, values, 1)) {
        }
      }
      if (!file.SkipToEndChunk() || !file.ReadChunkEnd()) break;
    }
    file.Rewind();
    DescribeGridCache(file);
  } else if (problem.empty()) {
    __builtin_trap();
  }
  std::vector<std::byte> target(4096);
  Decompress(std::as_bytes(std::span(data, size)), target);
  return 0;
}
