#include <gtest/gtest.h>

#include "fluids/operators/grid_cooling.h"
#include "fluids/operators/grid_dissipate.h"
#include "fluids/operators/operator_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr double kStep = 0.04;

class Cooling : public testing::Test {
 protected:
  Cooling()
      : fire(s.Add<FireField>("channel_fire", "fire")),
        heat(s.Add<TemperatureField>("channel_temp", "heat")),
        cool(s.Add<GridCooling>("grid_cooling", "cool")) {
    OperatorRig::Link(cool, 1000, heat);
    OperatorRig::Set(heat, 1050, 100.0);
    OperatorRig::Set(heat, 1051, 2100.0);
  }
  OperatorRig s{{9, 6, 8}};
  FireField& fire;
  TemperatureField& heat;
  GridCooling& cool;
};

}  // namespace

// dq/dn = -r q^4 has the solution q = (q0^-3 + 3 r n)^(-1/3).
TEST_F(Cooling, HotGasCoolsByTheFourthPower) {
  OperatorRig::Set(cool, 1002, 0.001);
  s.Begin();
  OperatorRig::Fill(*heat.mGrid, [](i32 x, i32, i32) { return 100 + 250.0 * x; });
  const i32 steps = 1500;
  for (i32 n = 0; n < steps; ++n) s.Run(cool);
  for (i32 x = 1; x < 8; ++x) {
    const double q0 = 250.0 * x / 2000;
    const double q = std::pow(std::pow(q0, -3) + 3 * 0.001 * steps, -1.0 / 3);
    EXPECT_NEAR((*heat.mGrid)(x, 3, 4), 100 + 2000 * q, 0.002 * 2000 * q) << x;
  }
  EXPECT_EQ((*heat.mGrid)(0, 3, 4), 100);
  EXPECT_EQ((*heat.mGrid)(8, 3, 4), 2100) << "the border stays";
}

TEST_F(Cooling, TheOtherModesFollowTheClockAndStopAtTheMinimum) {
  OperatorRig::Set(cool, 1004, i32{1});
  OperatorRig::Set(cool, 1002, 2.0);
  s.Begin();
  heat.mGrid->Fill(1000);
  s.Run(cool);
  s.Run(cool);
  EXPECT_NEAR((*heat.mGrid)(3, 3, 3), 1000 * std::pow(1 - 2 * kStep, 2), 1e-9);
  OperatorRig::Set(cool, 1002, 30.0);
  s.Begin();
  s.Run(cool);
  EXPECT_EQ((*heat.mGrid)(3, 3, 3), 100) << "more than all of it";
  OperatorRig::Set(cool, 1004, i32{2});
  OperatorRig::Set(cool, 1002, 0.5);
  s.Begin();
  heat.mGrid->Fill(1000);
  (*heat.mGrid)(2, 2, 2) = 110;
  (*heat.mGrid)(3, 2, 2) = 50;
  s.Run(cool);
  EXPECT_NEAR((*heat.mGrid)(3, 3, 3), 1000 - 0.5 * 2000 * kStep, 1e-9);
  EXPECT_EQ((*heat.mGrid)(2, 2, 2), 100);
  EXPECT_EQ((*heat.mGrid)(3, 2, 2), 100);
}

// A fire burns for its burn time, keeping its heat, and then fades for its fade time.
TEST_F(Cooling, FireBurnsAndThenFades) {
  OperatorRig::Link(cool, 1001, fire);
  OperatorRig::Set(cool, 1004, i32{2});
  OperatorRig::Set(fire, 2000, 840.0);  // a threshold of 0.4
  OperatorRig::Set(fire, 2001, 0.4);
  OperatorRig::Set(fire, 2002, 0.8);
  s.Begin();
  fire.mGrid->Fill(1.5);
  (*fire.mGrid)(4, 4, 4) = 0.4;
  heat.mGrid->Fill(2000);
  for (i32 n = 1; n <= 10; ++n) {
    s.Run(cool);
    ASSERT_NEAR((*fire.mGrid)(3, 3, 3), 1 - 0.6 * n / 10, 1e-9) << n;
    ASSERT_EQ((*heat.mGrid)(3, 3, 3), 2000);
  }
  EXPECT_NEAR((*fire.mGrid)(4, 4, 4), 0.2, 1e-9) << "at the threshold it fades";
  EXPECT_LT((*heat.mGrid)(4, 4, 4), 2000);
  (*fire.mGrid)(3, 3, 3) = 0.4;  // without the rounding of ten steps
  for (i32 n = 1; n <= 21; ++n) {
    s.Run(cool);
    ASSERT_NEAR((*fire.mGrid)(3, 3, 3), std::max(0.0, 0.4 - 0.02 * n), 1e-9) << n;
  }
  EXPECT_EQ((*fire.mGrid)(3, 3, 3), 0);
  EXPECT_LT((*heat.mGrid)(3, 3, 3), 2000);
}

TEST_F(Cooling, ConstraintsWeighTheHeatAlone) {
  int asked = 0;
  auto& left = s.AddOwn<HalfLeft>("duration", "left", 0.4, &asked);
  OperatorRig::Links(cool, 2502, {&left});
  OperatorRig::Link(cool, 1001, fire);
  for (const i32 mode : {0, 1, 2}) {
    OperatorRig::Set(cool, 1004, mode);
    s.Begin();
    fire.mGrid->Fill(0.1);
    heat.mGrid->Fill(1100);
    asked = 0;
    s.Run(cool);
    EXPECT_EQ(asked, 7 * 4 * 6);
    const double full[] = {2000 * 0.6 / 16, 1100 * 0.6 * kStep, 2000 * 0.6 * kStep};
    EXPECT_NEAR((*heat.mGrid)(3, 3, 3), 1100 - 0.5 * full[mode], 1e-9) << mode;
    EXPECT_EQ((*heat.mGrid)(4, 3, 3), 1100);
    EXPECT_LT((*fire.mGrid)(4, 3, 3), 0.1);
  }
}

TEST_F(Cooling, ThreadsDontShow) {
  OperatorRig::Link(cool, 1001, fire);
  for (const i32 mode : {0, 1, 2}) {
    OperatorRig::Set(cool, 1004, mode);
    s.Begin();
    EXPECT_TRUE(IsSameForAllThreads([&](i32 threads) {
      OperatorRig::Randomise(*fire.mGrid, 1, -0.1, 1.2);
      OperatorRig::Randomise(*heat.mGrid, 2, 50, 2100);
      s.Run(cool, threads);
      std::vector<double> all = OperatorRig::Copy(*fire.mGrid);
      all.insert(all.end(), heat.mGrid->mData, heat.mGrid->mData + heat.mGrid->mCount);
      return all;
    }));
  }
}

// ---- dissipation --------------------------------------------------------------------------------

TEST(Dissipate, TakesTheSameOffEveryValueAboveTheMinimum) {
  OperatorRig s({7, 6, 8});
  auto& smoke = s.Add<PlainField>("channel_scalar", "smoke");
  auto& fade = s.Add<GridDissipate>("grid_dissipate", "fade");
  int asked = 0;
  auto& left = s.AddOwn<HalfLeft>("duration", "left", 0.4, &asked);
  OperatorRig::Link(fade, 1000, smoke);
  OperatorRig::Set(smoke, 1050, 0.5);
  OperatorRig::Set(smoke, 1051, 2.5);
  OperatorRig::Set(fade, 1001, 10.0);
  s.Begin();
  const double amount = 2.0 * 10 * kStep * kStep;
  smoke.mGrid->Fill(1);
  (*smoke.mGrid)(2, 2, 2) = 0.5 + 0.5 * amount;
  (*smoke.mGrid)(2, 3, 2) = 0.4;
  s.Run(fade);
  EXPECT_NEAR((*smoke.mGrid)(3, 3, 3), 1 - amount, 1e-12);
  EXPECT_EQ((*smoke.mGrid)(2, 2, 2), 0.5);
  EXPECT_EQ((*smoke.mGrid)(2, 3, 2), 0.4);
  EXPECT_EQ((*smoke.mGrid)(0, 3, 3), 1);

  OperatorRig::Links(fade, 2502, {&left});
  s.Begin();
  smoke.mGrid->Fill(0.5);
  s.Run(fade);
  EXPECT_EQ(asked, 0) << "at the minimum nobody is asked";
  smoke.mGrid->Fill(1);
  s.Run(fade);
  EXPECT_NEAR((*smoke.mGrid)(3, 3, 3), 1 - 0.5 * amount, 1e-12);
  EXPECT_EQ((*smoke.mGrid)(4, 3, 3), 1);
  OperatorRig::Links(fade, 2502, {});
  s.Begin();
  EXPECT_TRUE(IsSameForAllThreads([&](i32 threads) {
    OperatorRig::Randomise(*smoke.mGrid, 9, 0.4, 2);
    s.Run(fade, threads);
    return OperatorRig::Copy(*smoke.mGrid);
  }));
}

TEST(Dissipate, AVectorFadesWhileAllItsComponentsAreAboveTheMinimum) {
  OperatorRig s({6, 6, 6});
  auto& colour = s.Add<VectorField>("channel_vector", "colour");
  auto& fade = s.Add<GridDissipate>("grid_dissipate", "fade");
  OperatorRig::Link(fade, 1000, colour);
  OperatorRig::Set(fade, 1001, 100.0);
  s.Begin();
  const double amount = 100 * kStep * kStep;  // 0.16
  const auto set = [&](i32 x, const Vec3d& v) {
    for (i32 c = 0; c < 3; ++c) (*colour.mGrids[c])(x, 2, 2) = v[c];
  };
  const auto get = [&](i32 x) {
    return Vec3d{(*colour.mGrids[0])(x, 2, 2), (*colour.mGrids[1])(x, 2, 2),
                 (*colour.mGrids[2])(x, 2, 2)};
  };
  set(1, {0.9, 0.1, 0.5});
  set(2, {0.9, 0.0, 0.5});
  set(3, {0.1, 0.05, 0.15});
  s.Run(fade);
  EXPECT_LT(Length(get(1) - Vec3d{0.9 - amount, 0.1 - amount, 0.5 - amount}), 1e-12);
  EXPECT_EQ(get(2), (Vec3d{0.9, 0.0, 0.5}));
  EXPECT_EQ(get(3), (Vec3d{0, 0, 0}));
}
