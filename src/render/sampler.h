// Random numbers of a pixel's samples.
#pragma once
#include "host/vector.h"

namespace MELDO_GLOBAL::app {

/// A hash of two words with all bits mixed.
u64 MixBits(u64 a, u64 b);

/// The numbers that one sample of a pixel draws, one dimension after the other. Within a dimension
/// the samples of a pixel fill the interval, or the square, evenly; pixels are unrelated. All
/// follows from the seed and the number of the sample.
///
/// Burley, "Practical Hash-based Owen Scrambling" (JCGT 9/4, 2020): listings 2 to 4, with pairs of
/// dimensions padded by shuffled index.
class Sampler {
 public:
  Sampler(u64 seed, u32 sample);

  /// 0 <= u < 1.
  double Next1D();
  Vec2D<double> Next2D();
  /// A number that differs for every pixel, sample and call.
  u64 NextSeed() { return MixBits(mSeed ^ ++mDimension, mSample); }

 private:
  u64 mSeed;
  u32 mSample;
  u32 mReversed;  ///< bits of the sample's number
  u32 mDimension = 0;
};

}  // namespace MELDO_GLOBAL::app
