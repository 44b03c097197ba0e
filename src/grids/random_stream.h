// Pseudo-random numbers.
#pragma once
#include <array>

#include "host/types.h"
#include "host/vector.h"

namespace MELDO_GLOBAL {

/// One MT19937 stream; every worker has its own.
///
/// Matsumoto, Nishimura, "Mersenne Twister" (1998), with the initialisation of 2002.
class RandomStream {
 public:
  void Seed(u32 seed);
  /// The next tempered output; a stream that was never seeded seeds itself with 5489.
  u32 NextU32();
  /// A real in 0..1, both ends included.
  double NextUnit() { return NextU32() * 2.3283064370807974e-10; }
  /// A point on the unit sphere; z is drawn before the angle.
  Vec3d NextOnSphere();

 private:
  static constexpr i32 kWords = 624;
  static constexpr i32 kNeverSeeded = kWords + 1;
  void Refill();

  std::array<u32, kWords> mState{};
  i32 mIndex = kNeverSeeded;
};

}  // namespace MELDO_GLOBAL
