#include "fluids/emission/stream_seeds.h"

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

u64 MixedBits(u64 word) {
  word = (word ^ (word >> 30)) * 0xbf58476d1ce4e5b9u;
  word = (word ^ (word >> 27)) * 0x94d049bb133111ebu;
  return word ^ (word >> 31);
}

namespace {

constexpr u64 kGolden = 0x9e3779b97f4a7c15u;  ///< 2^64 by the golden section, odd

/// FNV-1a, with the bytes of one word more.
u64 HashedOn(u64 hash, u32 word) {
  for (i32 shift = 0; shift < 32; shift += 8)
    hash = (hash ^ (word >> shift & 0xff)) * 0x100000001b3u;
  return hash;
}

}  // namespace

u64 NodeSeed(const iBase& object) {
  u64 hash = 0xcbf29ce484222325u;
  for (const char c : object.Node()->Path()) hash = (hash ^ static_cast<u8>(c)) * 0x100000001b3u;
  return HashedOn(hash, static_cast<u32>(object.mScene->mSeed));
}

u64 StepSeed(const iBase& object) {
  const u64 hash = HashedOn(NodeSeed(object), static_cast<u32>(object.mTime->frameIndex));
  return HashedOn(hash, object.mTime->substep);
}

double ParticleDraw(u64 seed, i32 particleId, u64 purpose) {
  const u64 particle = MixedBits(seed + (static_cast<u32>(particleId) + 1) * kGolden);
  return static_cast<double>(MixedBits(particle + (purpose + 1) * kGolden) >> 11) * 0x1.0p-53;
}

void SeedStreams(std::span<RandomStream> streams, u64 seed) {
  for (std::size_t i = 0; i < streams.size(); ++i)
    streams[i].Seed(static_cast<u32>(MixedBits(seed + (i + 1) * kGolden) >> 32));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
