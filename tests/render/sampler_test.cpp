#include "render/sampler.h"

#include <gtest/gtest.h>

#include <array>

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

// Any 64 samples of a pixel have one sample in each of the 64 boxes of any shape (1 x 64, 2 x 32,
// ..., 64 x 1): a (0, 6, 2)-net.
TEST(SamplerTest, SamplesOfAPixelFillTheSquareEvenly) {
  for (const u64 seed : {1ull, 77777ull, 0x123456789ABCull})
    for (int columns = 1; columns <= 64; columns *= 2) {
      std::array<int, 64> boxes{};
      const int rows = 64 / columns;
      for (u32 i = 0; i < 64; ++i) {
        Sampler sampler(seed, i);
        sampler.Next1D();
        const Vec2D<double> u = sampler.Next2D();
        ++boxes[static_cast<int>(u.x * columns) * rows + static_cast<int>(u.y * rows)];
      }
      for (const int count : boxes) ASSERT_EQ(count, 1) << columns << " columns";
    }
}

TEST(SamplerTest, DimensionsAndPixelsAreUnrelated) {
  const int n = 4096;
  double product = 0, otherPixel = 0;
  for (u32 i = 0; i < n; ++i) {
    Sampler a(5, i), b(6, i);
    const double first = a.Next1D() - 0.5;
    product += first * (a.Next1D() - 0.5);
    otherPixel += first * (b.Next1D() - 0.5);
  }
  // The mean of n products of even numbers has a deviation of 1 / (12 sqrt(n)).
  EXPECT_LT(std::abs(product / n), 4 / (12 * std::sqrt(n)));
  EXPECT_LT(std::abs(otherPixel / n), 4 / (12 * std::sqrt(n)));
}
