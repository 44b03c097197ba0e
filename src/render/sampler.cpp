#include "render/sampler.h"

namespace MELDO_GLOBAL::app {

namespace {

u32 ReverseBits(u32 x) {
  x = ((x & 0x55555555u) << 1) | ((x >> 1) & 0x55555555u);
  x = ((x & 0x33333333u) << 2) | ((x >> 2) & 0x33333333u);
  x = ((x & 0x0F0F0F0Fu) << 4) | ((x >> 4) & 0x0F0F0F0Fu);
  return __builtin_bswap32(x);
}

/// Scrambles each bit by a hash of the bits below it: Owen's scrambling of a number whose bits are
/// reversed.
u32 ScrambleReversed(u32 x, u32 seed) {
  x += seed;
  x ^= x * 0x6C50B47Cu;
  x ^= x * 0xB82F1E52u;
  x ^= x * 0xC7AFE638u;
  x ^= x * 0x8D22F6E6u;
  return x;
}

/// The second dimension of Sobol's sequence, from the reversed index, which is the first. Its
/// matrix is Pascal's triangle modulo 2: an entry is 1 where the bits of one number contain the
/// other's.
u32 SobolSecond(u32 reversed) {
  u32 x = reversed;
  x ^= (x & 0x55555555u) << 1;
  x ^= (x & 0x33333333u) << 2;
  x ^= (x & 0x0F0F0F0Fu) << 4;
  x ^= (x & 0x00FF00FFu) << 8;
  x ^= (x & 0x0000FFFFu) << 16;
  return x;
}

double ToUnit(u32 x) { return x * (1.0 / 4294967296.0); }

}  // namespace

u64 MixBits(u64 a, u64 b) {
  // The finaliser of SplitMix64 (Steele et al., OOPSLA 2014) over a sum that keeps a and b apart.
  u64 x = a + 0x9E3779B97F4A7C15u * (b + 1);
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
  return x ^ (x >> 31);
}

Sampler::Sampler(u64 seed, u32 sample)
    : mSeed(seed), mSample(sample), mReversed(ReverseBits(sample)) {}

double Sampler::Next1D() {
  const u64 key = MixBits(mSeed, ++mDimension);
  const u32 index = ReverseBits(ScrambleReversed(mReversed, static_cast<u32>(key)));
  const u32 scramble = static_cast<u32>(MixBits(key, 1));
  return ToUnit(ReverseBits(ScrambleReversed(index, scramble)));
}

Vec2D<double> Sampler::Next2D() {
  const u64 key = MixBits(mSeed, ++mDimension);
  const u64 scramble = MixBits(key, 1);
  const u32 reversed = ScrambleReversed(mReversed, static_cast<u32>(key));
  const u32 x = ScrambleReversed(ReverseBits(reversed), static_cast<u32>(scramble));
  const u32 y =
      ScrambleReversed(ReverseBits(SobolSecond(reversed)), static_cast<u32>(scramble >> 32));
  return {ToUnit(ReverseBits(x)), ToUnit(ReverseBits(y))};
}

}  // namespace MELDO_GLOBAL::app
