#include "fluids/rendering/diffusor.h"

#include <gtest/gtest.h>

#include <cmath>

#include "grids/random_stream.h"
#include "threads.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {
namespace {

void FillAtRandom(Grid<double>& grid, u32 seed) {
  RandomStream random;
  random.Seed(seed);
  for (i32 i = 0; i < grid.mCount; ++i) grid[i] = random.NextUnit();
}

/// The weighted mean round one sample, straight from its definition.
double Reference(const Grid<double>& grid, i32 x, i32 y, i32 z, double strength) {
  const i32 r = static_cast<i32>(3 * strength);
  double sum = 0, weights = 0;
  for (i32 dz = -r; dz <= r; ++dz)
    for (i32 dy = -r; dy <= r; ++dy)
      for (i32 dx = -r; dx <= r; ++dx) {
        const VecInt3D p{x + dx, y + dy, z + dz};
        if (Min(p, VecInt3D{}) != VecInt3D{} ||
            Max(p, grid.Dims() - VecInt3D{1, 1, 1}) != grid.Dims() - VecInt3D{1, 1, 1})
          continue;
        const double w = std::exp(-(dx * dx + dy * dy + dz * dz) / (strength * strength));
        sum += w * grid(p.x, p.y, p.z);
        weights += w;
      }
  return sum / weights;
}

TEST(Diffusor, IsTheWeightedMeanAlsoAtTheRim) {
  Grid<double> grid({9, 7, 6}, kCentre);
  FillAtRandom(grid, 3);
  Grid<double> blurred(grid);
  Diffusor().Blur(blurred, 0.7, 1);
  for (i32 z = 0; z < 6; ++z)
    for (i32 y = 0; y < 7; ++y)
      for (i32 x = 0; x < 9; ++x)
        ASSERT_NEAR(blurred(x, y, z), Reference(grid, x, y, z, 0.7), 1e-13);
}

TEST(Diffusor, KeepsAConstantWhateverTheKernel) {
  for (const double strength : {0.4, 1.5, 40.0, 1e300}) {
    Grid<double> grid({12, 8, 5}, kCentre);
    grid.Fill(3.25);
    Diffusor().Blur(grid, strength, 3);
    for (i32 i = 0; i < grid.mCount; ++i) ASSERT_NEAR(grid[i], 3.25, 1e-13) << strength;
  }
}

TEST(Diffusor, LeavesAGridAloneThatHasNothingToBlur) {
  Grid<double> grid({6, 6, 6}, kCentre);
  FillAtRandom(grid, 5);
  const Grid<double> before(grid);
  Diffusor().Blur(grid, 0.33, 4);
  Diffusor().Blur(grid, 2, 0);
  Diffusor().Blur(grid, std::nan(""), 2);
  Diffusor().Blur(grid, -1, 2);
  EXPECT_TRUE(std::equal(grid.mData, grid.mData + grid.mCount, before.mData));
}

TEST(Diffusor, SameBytesForAnyNumberOfWorkers) {
  Grid<double> one({17, 13, 11}, kCentre);
  FillAtRandom(one, 7);
  Grid<double> three(one);
  {
    Threads threads(1);
    Diffusor().Blur(one, 1.2, 2);
  }
  Threads threads(3);
  Diffusor().Blur(three, 1.2, 2);
  EXPECT_TRUE(std::equal(one.mData, one.mData + one.mCount, three.mData));
}

}  // namespace
}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
