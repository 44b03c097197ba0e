#include "fluids/particles/smooth_surface.h"

#include <gtest/gtest.h>

#include <cmath>

#include "grids/random_stream.h"
#include "threads.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// 16 cells of 0.1 on each axis with liquid particles.
struct Cells {
  static constexpr i32 kCount = 16;

  Cells() : phi({kCount, kCount, kCount}, Vec3d{160, 160, 160}, 0.1f, kCentre, {}) {
    group.Store(kLiquid).Reset(phi.mLayout);
  }
  /// Particles at the places of a lattice of `step` cells for which isIn(place in cells) holds.
  template <class F>
  void Fill(const Vec3d& step, F&& isIn) {
    ParticleTemplate particle;
    for (double z = 0.5 * step.z; z < kCount; z += step.z)
      for (double y = 0.5 * step.y; y < kCount; y += step.y)
        for (double x = 0.5 * step.x; x < kCount; x += step.x)
          if (isIn(Vec3d{x, y, z})) {
            particle.position = Vec3d{x, y, z} * H();
            group.Store(kLiquid).Create(particle);
          }
  }
  void Find() {
    ParticleGroup* groups[] = {&group};
    ParticleSort sort;
    sort.Reset(phi.mLayout);
    sort.Build(groups, kLiquid, host::ThreadCount());
    SmoothSurface surface(sort, open.get(), phi);
    ASSERT_TRUE(surface.Run(0, {}));
    ASSERT_TRUE(surface.SpreadDistances());
  }
  /// Where the level set is 0 on a line of cells along y, in cells.
  double HeightAt(i32 x, i32 z) const {
    for (i32 y = kCount - 2; y >= 0; --y)
      if (const double a = phi(x, y, z), b = phi(x, y + 1, z); a < 0) return y + 0.5 + a / (a - b);
    return 0;
  }
  double H() const { return phi.mLayout.cellSize; }

  ParticleGroup group;
  EGrid<double> phi;
  std::unique_ptr<EGrid<float>> open;
};

TEST(SmoothSurface, DepthIsTheInverseOfWhatASplineHoldsBelow) {
  for (double t = -1.45; t < 1.46; t += 0.1) {
    double share = 0;
    constexpr i32 kSteps = 3000;
    for (i32 k = 0; k < kSteps; ++k) {
      const double x = -1.5 + (k + 0.5) * (t + 1.5) / kSteps, a = std::abs(x);
      share += (a < 0.5 ? 0.75 - x * x : 0.5 * (1.5 - a) * (1.5 - a)) * (t + 1.5) / kSteps;
    }
    EXPECT_NEAR(SmoothSurface::DepthOf(share), t, 2e-5) << t;
  }
}

// However many particles fill a cell, and wherever in a cell their last layer ends.
TEST(SmoothSurface, APoolHasItsHeightToAFewHundredthsOfACell) {
  for (const double across : {0.5, 0.34})
    for (const double up : {0.5, 0.47, 0.44, 0.41, 0.35, 0.3}) {
      Cells cells;
      const double height = std::floor(8.6 / up) * up;
      cells.Fill({across, up, across}, [&](const Vec3d& p) { return p.y < height; });
      cells.Find();
      for (const i32 x : {4, 7, 10}) EXPECT_NEAR(cells.HeightAt(x, 8), height, 0.03) << up;
      // Distances go on beyond the splines.
      EXPECT_NEAR(cells.phi(8, 2, 8) / cells.H(), 2.5 - height, 0.15) << up;
      EXPECT_NEAR(cells.phi(8, 14, 8) / cells.H(), 14.5 - height, 0.1) << up;
    }
}

TEST(SmoothSurface, WallsTakeNothingFromAPoolAndTellNothingOfASurface) {
  Cells cells;
  cells.open = std::make_unique<EGrid<float>>(cells.phi.mLayout, kCentre);
  ForEachCell({{0, 0, 0}, cells.phi.Dims()}, [&](i32 x, i32 y, i32 z) {
    (*cells.open)(x, y, z) = x < 2 || y < 1 ? 0.0f : x == 2 ? 0.5f : 1.0f;
  });
  cells.Fill({0.5, 0.5, 0.5}, [](const Vec3d& p) { return p.x > 2.5 && p.y > 1 && p.y < 7.5; });
  cells.Find();
  for (i32 x = 2; x < 12; ++x)
    EXPECT_NEAR(cells.HeightAt(x, 8), 7.5, x < 4 ? 0.15 : 0.03) << x << ", 2 is half open";
  EXPECT_LT(cells.phi(5, 1, 8), -4 * cells.H()) << "the floor is no surface";
  EXPECT_LT(cells.phi(3, 4, 8), -1.5 * cells.H()) << "nor is the wall";
}

TEST(SmoothSurface, AFilmAndASingleParticleAreWholeCellsOfLiquid) {
  Cells cells;
  cells.open = std::make_unique<EGrid<float>>(cells.phi.mLayout, kCentre);
  ForEachCell({{0, 0, 0}, cells.phi.Dims()},
              [&](i32 x, i32 y, i32 z) { (*cells.open)(x, y, z) = y < 1 ? 0.0f : 1.0f; });
  cells.Fill({0.5, 0.25, 0.5}, [](const Vec3d& p) {
    return (p.y > 1 && p.y < 1.25 && p.x < 8) || (p.x > 10 && p.y > 1 && p.y < 6);
  });
  ParticleTemplate drop;
  drop.position = Vec3d{4.2, 9.9, 4.6} * cells.H();
  cells.group.Store(kLiquid).Create(drop);
  cells.Find();
  EXPECT_NEAR(cells.phi(4, 1, 8), -0.5 * cells.H(), 1e-9);
  EXPECT_GT(cells.phi(4, 2, 8), 0);
  EXPECT_NEAR(cells.phi(4, 9, 4), -0.5 * cells.H(), 1e-9);
  i32 wet = 0;
  ForEachCell({{2, 7, 2}, {7, 13, 7}}, [&](i32 x, i32 y, i32 z) { wet += cells.phi(x, y, z) < 0; });
  EXPECT_EQ(wet, 1);
  EXPECT_NEAR(cells.HeightAt(13, 8), 6, 0.03) << "beside it the pool is as deep as ever";
}

// Chance lets the few of a cell at the surface share it out; nobody moved them there.
TEST(SmoothSurface, AMixedPoolIsTheSameWhetherItRestsOrNot) {
  std::vector<double> rests;
  for (const double speed : {0.0, 0.01}) {
    Cells cells;
    RandomStream random;
    random.Seed(9);
    cells.Fill({0.5, 0.5, 0.5}, [&](const Vec3d& p) { return p.y < 6; });
    cells.Fill({0.5, 0.5, 0.5},
               [&](const Vec3d& p) { return p.y > 6 && p.y < 6.5 && random.NextUnit() < 0.5; });
    const std::span<Vec3d> places = cells.group.Store(kLiquid).Positions();
    for (Vec3d& place : places) {
      // Anywhere in its own cell.
      for (int a = 0; a < 3; ++a)
        place[a] = (std::floor(place[a] / cells.H()) + random.NextUnit()) * cells.H();
    }
    for (Vec3d& v : cells.group.Store(kLiquid).Velocities()) v = {speed, 0, 0};
    cells.Find();
    if (rests.empty())
      rests.assign(cells.phi.mData, cells.phi.mData + cells.phi.mCount);
    else
      for (i32 i = 0; i < cells.phi.mCount; ++i) ASSERT_EQ(rests[i], cells.phi[i]);
  }
}

TEST(SmoothSurface, ABallOfNoisyParticlesKeepsItsVolumeForAnyNumberOfWorkers) {
  std::vector<double> results[3];
  for (const i32 count : {1, 2, 3}) {
    const Threads threads(count);
    Cells cells;
    RandomStream random;
    random.Seed(3);
    const Vec3d middle{8.1, 7.9, 8.3};
    cells.Fill({0.5, 0.5, 0.5}, [&](const Vec3d& p) {
      const Vec3d shift{random.NextUnit(), random.NextUnit(), random.NextUnit()};
      return Length(p + (shift - Vec3d{0.5, 0.5, 0.5}) * 0.4 - middle) < 5;
    });
    cells.Find();
    double volume = 0;
    ForEachCell({{0, 0, 0}, cells.phi.Dims()}, [&](i32 x, i32 y, i32 z) {
      const double phi = cells.phi(x, y, z) / cells.H();
      volume += std::clamp(0.5 - phi, 0.0, 1.0);
      const double exact = Length(ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5} - middle) - 5;
      if (std::abs(exact) < 3) {
        EXPECT_NEAR(phi, exact, 0.5);
      }
    });
    EXPECT_NEAR(volume, 4.18879 * 125, 0.03 * 524);
    results[count - 1].assign(cells.phi.mData, cells.phi.mData + cells.phi.mCount);
  }
  EXPECT_EQ(results[0], results[1]);
  EXPECT_EQ(results[0], results[2]);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
