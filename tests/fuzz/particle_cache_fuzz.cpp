// Any bytes as the body of a particle cache's file.
#include "cache/particle_cache_file.h"
#include "cache_fuzz.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
  ReadAnyCache(
      data, size, ReadParticleCacheHeader,
      [](const ParticleCacheHeader& header) { return header.stores.size(); },
      [](HyperFile& file, const ParticleCacheHeader& header, std::size_t chunk) {
        ParticleColumns particles;
        if (ReadParticleChunk(file, header, chunk, {}, 1, particles) &&
            particles.Count() != header.stores[chunk].Count())
          __builtin_trap();
      },
      [](HyperFile& file) {
        ParticleCacheHeader header;
        std::string problem;
        if (ReadParticleCacheHeader(file, header, problem)) ReadParticlePlaces(file, header, 1);
        file.Rewind();
        return DescribeParticleCache(file);
      });
  return 0;
}
