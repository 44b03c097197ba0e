// Any bytes as the body of a particle cache's file.
#include "cache/particle_cache_file.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  HyperFile file;
  if (!file.OpenMemory(kCacheIdent, FrameBody(kCacheIdent, body))) __builtin_trap();
  ParticleCacheHeader header;
  std::string problem;
  if (!ReadParticleCacheHeader(file, header, problem)) {
    if (problem.empty()) __builtin_trap();
    return 0;
  }
  for (std::size_t chunk = 0; chunk < header.stores.size(); ++chunk) {
    i32 id, level;
    ParticleColumns particles;
    if (!file.ReadChunkStart(id, level)) break;
    if (ReadParticleChunk(file, header, chunk, {}, 1, particles) &&
        particles.Count() != header.stores[chunk].Count())
      __builtin_trap();
    if (!file.SkipToEndChunk() || !file.ReadChunkEnd()) break;
  }
  if (ReadParticleCacheHeader(file, header, problem)) ReadParticlePlaces(file, header, 1);
  file.Rewind();
  DescribeParticleCache(file);
  return 0;
}
