// Seeds that tell random streams apart.
#pragma once
#include <span>

#include "framework/iobject.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// All bits of a word mixed: the finaliser of Steele, Lea, Flood, "Fast splittable pseudorandom
/// number generators" (2014).
u64 MixedBits(u64 word);
/// A seed that no other object has: of the path of its node and the scene's seed.
u64 NodeSeed(const iBase& object);
/// A seed that no other object has, nor the same one in another step: of the path of its node, the
/// scene's seed, the frame and the substep.
u64 StepSeed(const iBase& object);
/// A number, 0 <= u < 1, that belongs to a particle and a purpose: whatever the threads are.
double ParticleDraw(u64 seed, i32 particleId, u64 purpose);
/// Seeds each stream apart from the others.
void SeedStreams(std::span<RandomStream> streams, u64 seed);

}  // namespace MELDO_GLOBAL::MELDO_SULVA
