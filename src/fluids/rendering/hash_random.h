// Random numbers that belong to a place or a ray instead of a thread.
#pragma once
#include "host/types.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// A number, 0 <= u < 1, for a key and a purpose. Two rounds of the finaliser of Steele, Lea,
/// Flood, "Fast splittable pseudorandom number generators" (2014).
inline double HashUnit(u64 key, u64 purpose) {
  const auto mix = [](u64 z) {
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
  };
  const u64 z = mix(mix(key + 0x9e3779b97f4a7c15u) + purpose * 0x9e3779b97f4a7c15u);
  return static_cast<double>(z >> 11) * 0x1.0p-53;
}

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
