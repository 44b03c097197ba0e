#include "grids/random_stream.h"

#include <cmath>
#include <numbers>

namespace MELDO_GLOBAL {

void RandomStream::Seed(u32 seed) {
  mState[0] = seed;
  for (u32 i = 1; i < kWords; ++i)
    mState[i] = (mState[i - 1] ^ (mState[i - 1] >> 30)) * 1812433253u + i;
  mIndex = kWords;
}

void RandomStream::Refill() {
  constexpr i32 kShift = 397;
  for (i32 i = 0; i < kWords; ++i) {
    const u32 joined = (mState[i] & 0x80000000u) | (mState[(i + 1) % kWords] & 0x7fffffffu);
    const u32 twist = (joined & 1u) ? 0x9908b0dfu : 0u;
    mState[i] = mState[(i + kShift) % kWords] ^ (joined >> 1) ^ twist;
  }
  mIndex = 0;
}

u32 RandomStream::NextU32() {
  if (mIndex == kNeverSeeded) Seed(5489);
  if (mIndex >= kWords) Refill();
  u32 y = mState[mIndex++];
  y ^= y >> 11;
  y ^= (y << 7) & 0x9d2c5680u;
  y ^= (y << 15) & 0xefc60000u;
  return y ^ (y >> 18);
}

Vec3d RandomStream::NextOnSphere() {
  const double z = 2 * NextUnit() - 1;
  const double angle = NextUnit() * 2 * std::numbers::pi;
  const double radius = std::sqrt(std::max(0.0, 1 - z * z));
  return {std::cos(angle) * radius, std::sin(angle) * radius, z};
}

}  // namespace MELDO_GLOBAL
