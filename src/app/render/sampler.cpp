#include "app/render/sampler.h"

namespace MELDO_GLOBAL::app {

namespace {

u32 ReverseBits(u32 x) {
  x = ((x & 0x55555555u) << 1) | ((x >> 1) & 0x55555555u);
  x = ((x & 0x33333333u) << 2) | ((x >> 2) & 0x33333333u);
  x = ((x & 0x0F0F0F0Fu) << 4) | ((x >> 4) & 0x0F0F0F0Fu);
  return __builtin_bswap32(x);
}

/// Scrambles each bit by a hash of the bits above it.
u32 OwenScramble(u32 x, u32 seed) {
  x = ReverseBits(x);
  x += seed;
  x ^= x * 0x6C50B47Cu;
  x ^= x * 0xB82F1E52u;
  x ^= x * 0xC7AFE638u;
  x ^= x * 0x8D22F6E6u;
  return ReverseBits(x);
}

/// The second dimension of Sobol's sequence; the first is the reversed index.
u32 SobolSecond(u32 index) {
  u32 result = 0;
  for (u32 direction = 1u << 31; index; index >>= 1, direction ^= direction >> 1)
    if (index & 1) result ^= direction;
  return result;
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

double Sampler::Next1D() { return Next2D().x; }

Vec2D<double> Sampler::Next2D() {
  const u64 key = MixBits(mSeed, ++mDimension);
  const u64 scramble = MixBits(key, 1);
  const u32 index = OwenScramble(mSample, static_cast<u32>(key));
  return {ToUnit(OwenScramble(ReverseBits(index), static_cast<u32>(scramble))),
          ToUnit(OwenScramble(SobolSecond(index), static_cast<u32>(scramble >> 32)))};
}

}  // namespace MELDO_GLOBAL::app
