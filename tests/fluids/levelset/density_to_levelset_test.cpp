#include "fluids/levelset/density_to_levelset.h"

#include <gtest/gtest.h>

#include <cmath>

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kFar = 1e6;

struct Rig {
  explicit Rig(const VecInt3D& dims) : layoutGrid(dims, ToReal(dims) * 10, 0.1f, kCentre, {}) {
    density.Allocate(&layoutGrid, kCentre, 0);
    levelSet.mInitial = kFar;
    levelSet.Allocate(&layoutGrid, 13, kFar);
    work.mLevelSet = &levelSet;
    work.mSource = &density;
    work.mThreshold = 0.5;
  }
  template <class F>
  void Fill(F&& f) {
    EGrid<double>& g = *density.mGrid;
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) { g(x, y, z) = f(x, y, z); });
  }
  double At(i32 x, i32 y, i32 z) const { return (*levelSet.mGrid)(x, y, z); }

  EGrid<double> layoutGrid;
  ScalarField density;
  LevelField levelSet;
  DensityToLevelset work;
};

TEST(DensityToLevelset, ASlabHasDistancesOnBothSides) {
  Rig rig({24, 12, 12});
  rig.Fill([](i32 x, i32, i32) { return x >= 8 && x <= 15 ? 1.0 : 0.0; });
  ASSERT_TRUE(rig.work.Run(nullptr));
  for (i32 x = 0; x < 24; ++x) {
    // The outermost layer inside holds minus half a cell, and every cell further is one h away.
    const i32 outside = x < 8 ? 8 - x : x > 15 ? x - 15 : 0;
    const i32 inside = std::min(x - 8, 15 - x);
    const double expected = outside       ? -0.05 + 0.1 * outside
                            : inside == 0 ? -0.05
                                          : 0.05 - 0.1 * inside;
    EXPECT_NEAR(rig.At(x, 6, 6), expected, 1e-6) << x;
  }
  rig.work.mSigned = false;
  ASSERT_TRUE(rig.work.Run(nullptr));
  EXPECT_NEAR(rig.At(11, 6, 6), 0.25, 1e-6);
}

TEST(DensityToLevelset, TrueDistancesAreTheSameAlongEveryDirection) {
  Rig rig({40, 40, 40});
  const auto distance = [](i32 x, i32 y, i32 z) {
    return 0.1 * (Length(Vec3d{x - 19.5, y - 19.5, z - 19.5}) - 8);
  };
  rig.Fill([&](i32 x, i32 y, i32 z) { return distance(x, y, z) < 0 ? 1.0 : 0.0; });
  const auto error = [&](bool isTrue) {
    rig.work.mTrueDistances = isTrue;
    EXPECT_TRUE(rig.work.Run(nullptr));
    double most = 0;
    ForEachCell({{1, 1, 1}, {39, 39, 39}}, [&](i32 x, i32 y, i32 z) {
      if (distance(x, y, z) > -0.6)
        most = std::max(most, std::abs(rig.At(x, y, z) - distance(x, y, z)));
    });
    return most / 0.1;
  };
  // The cells alone miss the ball by up to 0.87 of one.
  EXPECT_LT(error(true), 1.3);
  EXPECT_GT(error(false), 3);
}

TEST(DensityToLevelset, OneCellEmptyAndFullGrids) {
  Rig rig({9, 9, 9});
  rig.Fill([](i32, i32, i32) { return 0.0; });
  ASSERT_TRUE(rig.work.Run(nullptr));
  for (i32 i = 0; i < rig.levelSet.mGrid->mCount; ++i) ASSERT_EQ((*rig.levelSet.mGrid)[i], kFar);

  rig.Fill([](i32 x, i32 y, i32 z) { return x == 4 && y == 4 && z == 4 ? 0.5 : 0.0; });
  ASSERT_TRUE(rig.work.Run(nullptr));
  i32 negative = 0;
  for (i32 i = 0; i < rig.levelSet.mGrid->mCount; ++i) negative += (*rig.levelSet.mGrid)[i] < 0;
  EXPECT_EQ(negative, 1);
  EXPECT_NEAR(rig.At(4, 4, 4), -0.05, 1e-7);

  rig.Fill([](i32, i32, i32) { return 1.0; });
  ASSERT_TRUE(rig.work.Run(nullptr));
  EXPECT_NEAR(rig.At(1, 4, 4), -0.05, 1e-7);
  EXPECT_NEAR(rig.At(4, 4, 4), -0.25, 1e-6);
}

TEST(DensityToLevelset, WithoutAGridNothingRuns) {
  DensityToLevelset none;
  EXPECT_FALSE(none.Run(nullptr));
  Rig rig({6, 6, 6});
  rig.density.Release(true);
  EXPECT_FALSE(rig.work.Run(nullptr));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
