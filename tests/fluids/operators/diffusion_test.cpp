#include "fluids/operators/grid_diffusion.h"

#include <gtest/gtest.h>

#include "fluids/operators/operator_rig.h"
#include "grids/for_each_cell.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

class Diffusion : public testing::Test {
 protected:
  Diffusion()
      : smoke(s.Add<PlainField>("channel_scalar", "smoke")),
        colour(s.Add<VectorField>("channel_vector", "colour")),
        blur(s.Add<GridDiffusion>("grid_diffusion", "blur")) {
    OperatorRig::Link(blur, 1003, smoke);
  }
  /// Mode and strength, in cells of the step: a cell has 10 host units, a step 0.04 s, and the
  /// square of a Gaussian's width grows with the time.
  void Begin(i32 mode, double cells) {
    OperatorRig::Set(blur, 1005, mode);
    OperatorRig::Set(blur, 1001, mode == 0 ? cells * 10 / 0.2 : cells / 0.04);
    s.Begin();
  }
  OperatorRig s{{21, 19, 23}};
  PlainField& smoke;
  VectorField& colour;
  GridDiffusion& blur;
};

}  // namespace

TEST_F(Diffusion, AConstantFieldStaysUpToTheBorder) {
  for (const double strength : {0.0, 0.4, 3.0, 40.0}) {
    Begin(0, strength);
    smoke.mGrid->Fill(0.7);
    s.Run(blur);
    for (i32 i = 0; i < smoke.mGrid->mCount; ++i) ASSERT_NEAR((*smoke.mGrid)[i], 0.7, 1e-14);
  }
}

// A Gaussian exp(-k^2 / s^2) has a variance of s^2 / 2 on each axis, and rounds add up.
TEST_F(Diffusion, AGaussianSpreadsByItsVariance) {
  const double strength = 1.3;
  OperatorRig::Set(blur, 1002, i32{2});
  Begin(0, strength);
  (*smoke.mGrid)(10, 9, 11) = 1;
  s.Run(blur);
  double sum = 0;
  Vec3d variance{};
  ForEachCell({{0, 0, 0}, s.cells}, [&](i32 x, i32 y, i32 z) {
    const double v = (*smoke.mGrid)(x, y, z);
    const Vec3d d{x - 10.0, y - 9.0, z - 11.0};
    sum += v;
    variance += d * d * v;
  });
  EXPECT_NEAR(sum, 1, 1e-8);
  for (i32 a = 0; a < 3; ++a) EXPECT_NEAR(variance[a], strength * strength, 0.005) << a;
  EXPECT_NEAR((*smoke.mGrid)(9, 9, 11), (*smoke.mGrid)(10, 9, 12), 1e-15);
}

TEST_F(Diffusion, ASecondOfABlurHasItsWidthHoweverItIsCut) {
  for (const double cells : {0.3, 1.0, 2.0})
    for (const i32 steps : {1, 5, 25}) {
      OperatorRig::Set(blur, 1005, i32{0});
      OperatorRig::Set(blur, 1001, cells * 10);
      s.scene->mTime.stepDuration = 1.0 / steps;
      s.Begin();
      smoke.mGrid->Fill(0);
      (*smoke.mGrid)(10, 9, 11) = 1;
      for (i32 i = 0; i < steps; ++i) s.Run(blur);
      double variance = 0;
      ForEachCell({{0, 0, 0}, s.cells}, [&](i32 x, i32 y, i32 z) {
        variance += (x - 10.0) * (x - 10.0) * (*smoke.mGrid)(x, y, z);
      });
      EXPECT_NEAR(variance / (cells * cells / 2), 1, 0.01) << cells << ' ' << steps;
    }
}

// However wide a blur is, it moves what there is and neither makes nor loses any.
TEST_F(Diffusion, TheTotalStaysInsideOfTheBorder) {
  for (const i32 mode : {0, 1})
    for (const double strength : {0.4, 2.0, 30.0}) {
      Begin(mode, strength);
      OperatorRig::Randomise(*smoke.mGrid, 3, 0, 1);
      (*smoke.mGrid)(0, 9, 9) = 50;
      const auto total = [&] {
        double sum = 0;
        s.ForEachInnerCell([&](i32 x, i32 y, i32 z) { sum += (*smoke.mGrid)(x, y, z); });
        return sum;
      };
      const double before = total();
      s.Run(blur);
      EXPECT_NEAR(total() / before, 1, 1e-13) << mode << ' ' << strength;
      EXPECT_EQ((*smoke.mGrid)(0, 9, 9), 50);
    }
}

TEST_F(Diffusion, SmoothingWeighsTheNeighboursAndGrowingOnlyRaises) {
  for (const i32 mode : {1, 2}) {
    Begin(mode, 1.0 / 16);
    smoke.mGrid->Fill(0);
    (*smoke.mGrid)(5, 5, 5) = 1;
    s.Run(blur);
    EXPECT_NEAR((*smoke.mGrid)(5, 5, 5), mode == 1 ? 10.0 / 16 : 1.0, 1e-12);
    for (const VecInt3D& c : {VecInt3D{4, 5, 5}, {5, 6, 5}, {5, 5, 4}})
      EXPECT_NEAR((*smoke.mGrid)(c.x, c.y, c.z), 1.0 / 16, 1e-12);
    EXPECT_EQ((*smoke.mGrid)(4, 4, 5), 0);
    Begin(mode, 0);
    OperatorRig::Randomise(*smoke.mGrid, 5, 0, 1);
    const std::vector<double> before = OperatorRig::Copy(*smoke.mGrid);
    s.Run(blur);
    EXPECT_EQ(OperatorRig::Copy(*smoke.mGrid), before) << "a strength of 0 changes nothing";
  }
}

TEST_F(Diffusion, SmoothsAsMuchInAnyNumberOfSteps) {
  for (const double strength : {0.05, 0.32, 1.0}) {
    double centre[2];
    for (const i32 steps : {1, 4}) {
      Begin(1, strength / steps);
      smoke.mGrid->Fill(0);
      (*smoke.mGrid)(10, 9, 11) = 1;
      for (i32 i = 0; i < steps; ++i) s.Run(blur);
      double variance = 0;
      ForEachCell({{1, 1, 1}, {20, 18, 22}}, [&](i32 x, i32 y, i32 z) {
        variance += (x - 10.0) * (x - 10.0) * (*smoke.mGrid)(x, y, z);
      });
      EXPECT_NEAR(variance, 2 * strength, 1e-4) << steps;
      centre[steps / 4] = (*smoke.mGrid)(10, 9, 11);
    }
    EXPECT_NEAR(centre[1] / centre[0], 1, 0.1) << strength;
  }
}

TEST_F(Diffusion, EveryComponentOfAVector) {
  OperatorRig::Link(blur, 1003, colour);
  OperatorRig::Set(blur, 1002, i32{2});
  Begin(0, 0.8);
  for (i32 c = 0; c < 3; ++c) (*colour.mGrids[c])(10, 9, 11) = 0.25 * (c + 1);
  s.Run(blur);
  const double centre = (*colour.mGrids[0])(10, 9, 11);
  EXPECT_GT(centre, 0.01);
  EXPECT_LT(centre, 0.15);
  for (i32 c = 1; c < 3; ++c) EXPECT_NEAR((*colour.mGrids[c])(10, 9, 11), (c + 1) * centre, 1e-12);
}

TEST_F(Diffusion, ThreadsDontShow) {
  OperatorRig::Set(blur, 1002, i32{2});
  for (const i32 mode : {0, 1, 2}) {
    Begin(mode, 0.9);
    EXPECT_TRUE(IsSameForAllThreads([&](i32 threads) {
      OperatorRig::Randomise(*smoke.mGrid, 7, 0, 1);
      s.Run(blur, threads);
      return OperatorRig::Copy(*smoke.mGrid);
    })) << mode;
  }
}

TEST_F(Diffusion, SleepsOutsideASimulationUnlessItsChannelChanged) {
  Begin(1, 1);
  EXPECT_TRUE(blur.IsDirty());
  EXPECT_TRUE(smoke.IsDirty()) << "what it changes is trimmed at the end of the step";
  s.scene->mFlags &= ~Scene::kTimeChanged;
  const auto check = [&](bool channelChanged) {
    for (iBase* object : {static_cast<iBase*>(&smoke), static_cast<iBase*>(&blur)})
      object->SetFlag(FLAG_DIRTY_CHECKED, false);
    blur.MarkDirty(false);
    if (channelChanged) smoke.MarkDirty(false);
    blur.CheckDirty();
    return blur.IsDirty();
  };
  smoke.CheckDirty();
  check(false);
  EXPECT_FALSE(check(false));
  EXPECT_TRUE(check(true));
}

TEST_F(Diffusion, IsBookedAsWork) {
  Begin(2, 3.0);
  (*smoke.mGrid)(10, 9, 11) = 1;
  smoke.BookEmission();
  s.Run(blur);
  const double grown = smoke.mAccount.Take().made;
  EXPECT_GT(grown, 0.5);
  smoke.BookWork();
  EXPECT_EQ(smoke.mAccount.Take().made, 0) << "nothing is left for others to book";
}
