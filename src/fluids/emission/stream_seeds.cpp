#include "fluids/emission/stream_seeds.h"

#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

u64 MixedBits(u64 word) {
  word = (word ^ (word >> 30)) * 0xbf58476d1ce4e5b9u;
  word = (word ^ (word >> 27)) * 0x94d049bb133111ebu;
  return word ^ (word >> 31);
}

u64 StepSeed(const iBase& object) {
  // FNV-1a over what tells a stream from all others.
  u64 hash = 0xcbf29ce484222325u;
  const auto add = [&](u64 byte) { hash = (hash ^ byte) * 0x100000001b3u; };
  const auto addWord = [&](u32 word) {
    for (i32 shift = 0; shift < 32; shift += 8) add(word >> shift & 0xff);
  };
  for (const char c : object.Node()->Path()) add(static_cast<u8>(c));
  addWord(static_cast<u32>(object.mScene->mSeed));
  addWord(static_cast<u32>(object.mTime->frameIndex));
  addWord(object.mTime->substep);
  return hash;
}

void SeedStreams(std::span<RandomStream> streams, u64 seed) {
  for (std::size_t i = 0; i < streams.size(); ++i)
    streams[i].Seed(static_cast<u32>(MixedBits(seed + (i + 1) * 0x9e3779b97f4a7c15u) >> 32));
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
