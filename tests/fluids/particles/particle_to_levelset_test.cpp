#include "fluids/particles/particle_to_levelset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "grids/random_stream.h"
#include "threads.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// n^3 cells of 0.1 with liquid particles, and the level set of what is solid.
struct LiquidBox {
  /// The box begins some cells below the origin.
  explicit LiquidBox(i32 n, i32 below = 0)
      : phi({n, n, n}, Vec3d{10.0, 10, 10} * n, 0.1f, kCentre, Vec3d{-10, -10, -10} * below),
        solid(phi.mLayout, kNode) {
    group.Store(kLiquid).Reset(phi.mLayout);
    solid.Fill(1);
  }
  /// Puts particles at even places into the cells for which inside(cell) holds.
  template <class F>
  void Fill(i32 perEdge, F&& inside) {
    ParticleTemplate particle;
    const double h = phi.mLayout.cellSize;
    ForEachCell({{0, 0, 0}, phi.Dims()}, [&](i32 x, i32 y, i32 z) {
      if (!inside(x, y, z)) return;
      ForEachCell({{0, 0, 0}, {perEdge, perEdge, perEdge}}, [&](i32 i, i32 j, i32 k) {
        const Vec3d part = (ToReal({i, j, k}) + Vec3d{0.5, 0.5, 0.5}) / perEdge;
        particle.position = (ToReal({x, y, z}) + part) * h;
        group.Store(kLiquid).Create(particle);
      });
    });
  }
  bool Run(bool withSolid = false) {
    ParticleGroup* groups[] = {&group};
    ParticleSort sort;
    sort.Reset(phi.mLayout);
    sort.Build(groups, kLiquid, host::ThreadCount());
    return work.Run(sort, {withSolid ? &solid : nullptr, open.get()}, phi);
  }
  double H() const { return phi.mLayout.cellSize; }

  ParticleGroup group;
  EGrid<double> phi, solid;
  std::unique_ptr<EGrid<float>> open;
  ParticleToLevelset work;
};

TEST(ParticleToLevelset, ASlabHasItsSurfaceBetweenCellsAndNoAirInside) {
  for (const bool isTrue : {false, true}) {
    LiquidBox box(20);
    box.work.mTrueDistances = isTrue;
    box.Fill(2, [](i32 x, i32, i32) { return x >= 6 && x <= 14; });
    ASSERT_TRUE(box.Run());
    for (i32 x = 0; x < 20; ++x) {
      const double from = x < 6 ? 5.5 - x : x > 14 ? x - 14.5 : -std::min(x - 5.5, 14.5 - x);
      // Steps are counted from the outermost layer, whose neighbours inside hold as much as it.
      const double told = from < -1 ? from + 1 : from;
      EXPECT_NEAR(box.phi(x, 10, 10) / box.H(), isTrue ? from : told, 1e-5) << x;
    }
  }
}

TEST(ParticleToLevelset, TellsByCountWhatCellsBesideAirHoldTooLittle) {
  LiquidBox box(12);
  box.work.mRest = 64;
  box.open = std::make_unique<EGrid<float>>(box.phi.mLayout, kCentre);
  box.open->Fill(1);
  // Floors and walls are no air; the layer on top is an eighth full, and one below it too.
  ForEachCell({{0, 0, 0}, {12, 12, 12}}, [&](i32 x, i32 y, i32 z) {
    if (x == 0 || z == 0 || y == 0 || x == 11 || z == 11) (*box.open)(x, y, z) = 0;
  });
  const auto isInside = [](i32 x, i32 z) { return x > 0 && z > 0 && x < 11 && z < 11; };
  box.Fill(4, [&](i32 x, i32 y, i32 z) { return isInside(x, z) && (y == 1 || y == 3 || y == 4); });
  box.Fill(2, [&](i32 x, i32 y, i32 z) { return isInside(x, z) && (y == 2 || y == 5); });
  ASSERT_TRUE(box.Run());
  EXPECT_NEAR(box.work.mSurplus, 100 * 7.0 / 8, 1e-9);
}

// With few particles in a cell too: drops that lie apart are as much as their particles.
TEST(ParticleToLevelset, ASprayIsAsMuchAsItsParticles) {
  constexpr i32 kApart = 8;
  for (const i32 rest : {1, 2, 3}) {
    LiquidBox box(3 * kApart);
    box.work.mMode = SurfaceMode::Smooth;
    box.work.mRest = rest;
    RandomStream random;
    random.Seed(rest);
    ParticleTemplate particle;
    i32 count = 0;
    ForEachCell({{0, 0, 0}, {3, 3, 3}}, [&](i32 x, i32 y, i32 z) {
      const Vec3d off{random.NextUnit(), random.NextUnit(), random.NextUnit()};
      particle.position = (ToReal({x, y, z}) * kApart + Vec3d{2, 2, 2} + off * 4) * box.H();
      // Up to a cell full of them in one place.
      for (i32 i = 0; i < 1 + x * (rest - 1) / 2; ++i, ++count)
        box.group.Store(kLiquid).Create(particle);
    });
    ASSERT_TRUE(box.Run());
    double told = 0;
    for (i32 i = 0; i < box.phi.mCount; ++i)
      told += std::clamp(0.5 - box.phi.mData[i] / box.H(), 0.0, 1.0);
    EXPECT_NEAR(told - box.work.mSurplus, static_cast<double>(count) / rest, 1e-9) << rest;
  }
}

// A container that reaches a cell farther leaves the surface of few particles where it is.
TEST(ParticleToLevelset, FewParticlesShowOneSurfaceInAnyContainer) {
  LiquidBox small(16), large(18, 1);
  for (LiquidBox* box : {&small, &large}) {
    box->work.mMode = SurfaceMode::Smooth;
    box->work.mRest = 1;
    box->Fill(1, [](i32 x, i32 y, i32 z) { return std::min({x, y, z}) > 4 && x + y + z < 27; });
    ASSERT_TRUE(box->Run());
  }
  const auto told = [](const LiquidBox& box, i32 x, i32 y, i32 z) {
    return std::clamp(box.phi(x, y, z) / box.H(), -2.0, 2.0);
  };
  ForEachCell({{3, 3, 3}, {13, 13, 13}}, [&](i32 x, i32 y, i32 z) {
    ASSERT_NEAR(told(small, x, y, z), told(large, x + 1, y + 1, z + 1), 1e-6);
  });
}

TEST(ParticleToLevelset, CountsParticlesThatAreNoFillersAboveTheThreshold) {
  LiquidBox box(8);
  box.Fill(2, [](i32 x, i32 y, i32 z) { return x == y && y == z && (x == 2 || x == 5); });
  for (i32 i = 0; i < 4; ++i) box.group.Store(kLiquid).Flags()[i] |= PF_SHEET_FILLER;
  ASSERT_TRUE(box.Run());
  EXPECT_GT(box.phi(2, 2, 2), 0) << "four of them are as good as none";
  EXPECT_NEAR(box.phi(5, 5, 5), -0.5 * box.H(), 1e-9);
  box.work.mCountThreshold = 3;
  ASSERT_TRUE(box.Run());
  EXPECT_LT(box.phi(2, 2, 2), 0);
  LiquidBox empty(8);
  ASSERT_TRUE(empty.Run());
  for (i32 i = 0; i < empty.phi.mCount; ++i) ASSERT_EQ(empty.phi[i], ParticleToLevelset::kFar);
}

TEST(ParticleToLevelset, ABallHasTrueDistancesForAnyNumberOfWorkers) {
  const auto inBall = [](i32 x, i32 y, i32 z) {
    return Length(ToReal({x, y, z}) - Vec3d{15.5, 15.5, 15.5}) < 9;
  };
  std::vector<double> results[3];
  for (const i32 count : {1, 2, 3}) {
    const Threads threads(count);
    LiquidBox box(32);
    box.work.mTrueDistances = true;
    box.Fill(2, inBall);
    ASSERT_TRUE(box.Run());
    results[count - 1].assign(box.phi.mData, box.phi.mData + box.phi.mCount);
    double most = 0;
    ForEachCell({{0, 0, 0}, box.phi.Dims()}, [&](i32 x, i32 y, i32 z) {
      const double exact = Length(ToReal({x, y, z}) - Vec3d{15.5, 15.5, 15.5}) - 9;
      most = std::max(most, std::abs(box.phi(x, y, z) / box.H() - exact));
      ASSERT_EQ(box.phi(x, y, z) < 0, inBall(x, y, z));
    });
    EXPECT_LT(most, 1.6) << "cells; the ball itself is known to a cell";
  }
  EXPECT_EQ(results[0], results[1]);
  EXPECT_EQ(results[0], results[2]);
}

TEST(ParticleToLevelset, DensityIsWhatIsMissingAndSolidsHoldTheSurface) {
  LiquidBox box(8);
  box.work.mMode = SurfaceMode::Density;
  box.work.mDensityThreshold = 0.5;
  box.Fill(1, [](i32 x, i32 y, i32 z) { return x == 3 && y == 3 && z < 3; });
  ParticleStore& store = box.group.Store(kLiquid);
  store.At(0).AddScalar(property_id::kDensity, 2.5);
  ASSERT_TRUE(box.Run());
  EXPECT_NEAR(box.phi(3, 3, 0), 8 * 0.5 - 2.5, 1e-12);
  EXPECT_NEAR(box.phi(3, 3, 1), 8 * 0.5 - 1, 1e-12);
  EXPECT_NEAR(box.phi(3, 3, 3), 8 * 0.5, 1e-12);

  LiquidBox pool(10);
  pool.Fill(2, [](i32, i32 y, i32) { return y == 4; });
  // Solid below the fourth layer of cells.
  GridLayout layout = pool.phi.mLayout;
  ForEachCell({{0, 0, 0}, pool.solid.Dims()},
              [&](i32 x, i32 y, i32 z) { pool.solid(x, y, z) = (y - 4) * layout.cellSize; });
  ASSERT_TRUE(pool.Run(true));
  EXPECT_NEAR(pool.phi(5, 3, 5), -0.5 * pool.H(), 1e-6) << "next to the liquid";
  EXPECT_NEAR(pool.phi(5, 2, 5), 1.5 * pool.H(), 1e-6) << "deep in the solid";
  EXPECT_NEAR(pool.phi(5, 5, 5), 0.5 * pool.H(), 1e-6) << "air above";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
