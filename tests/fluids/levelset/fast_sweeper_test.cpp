#include "fluids/levelset/fast_sweeper.h"

#include <gtest/gtest.h>

#include <cmath>

#include "grids/random_stream.h"
#include "threads.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kUnswept = 1e6;
constexpr i32 kDirections[8][3] = {{1, 1, 1},  {-1, -1, -1}, {1, 1, -1},  {-1, -1, 1},
                                   {1, -1, 1}, {-1, 1, -1},  {1, -1, -1}, {-1, 1, 1}};

EGrid<double> Shell(const VecInt3D& dims, u32 seed) {
  EGrid<double> grid(dims, ToReal(dims) * 10, 0.1f, kCentre, {});
  grid.Fill(kUnswept);
  RandomStream random;
  random.Seed(seed);
  for (i32 i = 0; i < grid.mCount; ++i)
    if (random.NextUnit() < 0.02) grid[i] = random.NextUnit() < 0.5 ? -0.05 : random.NextUnit();
  return grid;
}

/// The two-sided rule as it is derived, sample by sample in the order of a sweep.
void ReferenceSweep(EGrid<double>& g, i32 di, i32 dj, i32 dk) {
  const double h = g.mLayout.cellSize;
  const auto each = [](i32 n, i32 step, auto&& f) {
    for (i32 i = step > 0 ? 1 : n - 2; step > 0 ? i < n : i >= 0; i += step) f(i);
  };
  each(g.mNz, dk, [&](i32 z) {
    each(g.mNy, dj, [&](i32 y) {
      each(g.mNx, di, [&](i32 x) {
        for (const i32 mask : {1, 2, 3, 4, 5, 6, 7}) {
          const double a = g(x, y, z);
          if (a < 0) break;
          const double b =
              g(x - (mask & 1 ? di : 0), y - (mask & 2 ? dj : 0), z - (mask & 4 ? dk : 0));
          double d = std::min(a, b) + h;
          if (d > std::max(a, b)) d = (std::sqrt(2 * h * h - (a - b) * (a - b)) + a + b) * 0.5;
          if (d < a) g(x, y, z) = d;
        }
      });
    });
  });
}

TEST(FastSweeper, GivesTheSerialResultOnAnyNumberOfWorkers) {
  EGrid<double> serial = Shell({40, 37, 39}, 1);
  EGrid<double> one(serial), three(serial);
  for (const auto& [i, j, k] : kDirections) ReferenceSweep(serial, i, j, k);
  {
    Threads threads(1);
    FastSweeper<double>(one).Run(true, 1);
  }
  Threads threads(3);
  FastSweeper<double>(three).Run(true, 1);
  EXPECT_TRUE(std::equal(one.mData, one.mData + one.mCount, three.mData));
  for (i32 i = 0; i < one.mCount; ++i) ASSERT_NEAR(one[i], serial[i], 1e-12) << i;
}

TEST(FastSweeper, FillsFromOneSampleAndASecondRoundChangesNothing) {
  EGrid<double> grid({24, 20, 22}, {240, 200, 220}, 0.1f, kCentre, {});
  grid.Fill(kUnswept);
  grid(11, 9, 10) = 0;
  FastSweeper<double>(grid).Run(true, 1);
  const EGrid<double> once(grid);
  // Steps to any of the 26 neighbours cost the same.
  for (i32 z = 0; z < 22; ++z)
    for (i32 y = 0; y < 20; ++y)
      for (i32 x = 0; x < 24; ++x) {
        const i32 steps = std::max({std::abs(x - 11), std::abs(y - 9), std::abs(z - 10)});
        ASSERT_NEAR(grid(x, y, z), steps * 0.1, 1e-6);
      }
  FastSweeper<double>(grid).Run(false, 1);
  EXPECT_TRUE(std::equal(grid.mData, grid.mData + grid.mCount, once.mData));
}

TEST(FastSweeper, ANegatedGridMirrorsAndBothSidesGoTogether) {
  EGrid<double> positive({20, 20, 20}, {200, 200, 200}, 0.1f, kCentre, {});
  positive.Fill(kUnswept);
  for (i32 z = 0; z < 20; ++z)
    for (i32 y = 0; y < 20; ++y) positive(7, y, z) = 0.03;
  EGrid<double> negative(positive);
  for (i32 i = 0; i < negative.mCount; ++i) negative[i] = -negative[i];
  FastSweeper<double>(positive).Run(true, 1, FastSweeper<double>::kPositive);
  FastSweeper<double>(negative).Run(true, 1, FastSweeper<double>::kNegative);
  for (i32 i = 0; i < negative.mCount; ++i) ASSERT_EQ(negative[i], -positive[i]);

  EGrid<double> both({20, 20, 20}, {200, 200, 200}, 0.1f, kCentre, {});
  for (i32 z = 0; z < 20; ++z)
    for (i32 y = 0; y < 20; ++y)
      for (i32 x = 0; x < 20; ++x)
        both(x, y, z) = x == 9 ? -0.05 : x == 10 ? 0.05 : x < 9 ? -kUnswept : kUnswept;
  FastSweeper<double>(both).Run(true, 1, FastSweeper<double>::kBothSides);
  for (i32 x = 0; x < 20; ++x) EXPECT_NEAR(both(x, 5, 5), (x - 9.5) * 0.1, 1e-6);
}

TEST(FastSweeper, AGridWithoutASourceStaysAsItIs) {
  EGrid<double> grid({8, 8, 8}, {80, 80, 80}, 0.1f, kCentre, {});
  grid.Fill(kUnswept);
  FastSweeper<double>(grid).Run(true, 2);
  for (i32 i = 0; i < grid.mCount; ++i) ASSERT_EQ(grid[i], kUnswept);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
