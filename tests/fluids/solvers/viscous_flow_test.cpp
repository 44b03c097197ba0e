#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "fluids/gas_rig.h"
#include "fluids/liquid_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

TEST(ViscousFlow, AGasSlowsAlongItsWallsThroughAWholeStep) {
  GasRig rig({160, 32, 2}, 1.0 / 32);
  rig.Walls(0, 0, 1, 1, 0, 0);
  rig.gasNode->Set(1001, 2.0);
  rig.gasNode->Set(FluidSolver::kViscosityRow, 0.2);
  rig.scene->mTime.stepDuration = 0.05;
  rig.Begin();
  rig.FillVelocity([](const Vec3d& p) { return Vec3d{std::sin(std::numbers::pi * p.y), 0, 0}; });
  // What holds the flow at its walls behind the projection doesn't bring the old velocity back.
  for (i32 step = 0; step < 20; ++step) rig.RunGas(kPressure);
  const EGrid<double>& u = *rig.gas->mFlow.mVelocity.GetGrid(0);
  EXPECT_NEAR(0.5 * (u(81, 16, 1) + u(81, 17, 1)), 0.38189, 0.01);
  EXPECT_EQ(rig.gas->mViscosity.TakeReports().size(), 20u);
}

TEST(ViscousFlow, AThickDropFallsAsAWhole) {
  LiquidRig rig({24, 40, 24});
  LiquidRig::Set(*rig.liquid, FluidSolver::kViscosityRow, 100.0);
  const Vec3d middle{1.2, 3.2, 1.2};
  rig.Fill(
      {0, 0, 0}, {24, 40, 24}, [&](const Vec3d& p) { return Length(p - middle) < 0.5; },
      [](const Vec3d&) {
        return Vec3d{0.3, 0, 0};
      });
  const std::vector<Vec3d> before(rig.Store().Positions().begin(), rig.Store().Positions().end());
  const double dt = rig.scene->mTime.stepDuration;
  constexpr i32 kSteps = 30;
  for (i32 i = 0; i < kSteps; ++i) rig.Step();
  const double drop = 9.81 * dt * dt * kSteps * (kSteps - 1) / 2, way = 0.3 * dt * (kSteps - 1);
  ASSERT_EQ(rig.Store().Count(), static_cast<i32>(before.size()));
  Vec3d mean{};
  for (std::size_t i = 0; i < before.size(); ++i)
    mean += (rig.Store().Positions()[i] - before[i]) / static_cast<double>(before.size());
  // What a solve leaves over in a step shows as a part of that step's change.
  EXPECT_NEAR(mean.y, -drop, 1e-3 * drop + 9.81 * dt * dt);
  EXPECT_NEAR(mean.x, way, 1e-3 * drop);
  // It stays whole: at its rim a few particles fall behind by a tenth of a cell.
  for (std::size_t i = 0; i < before.size(); ++i)
    ASSERT_LT(Length(rig.Store().Positions()[i] - before[i] - mean), 0.25 * rig.Cell()) << i;
}

/// How far the front of a column comes in half a second.
double Reach(double viscosity) {
  LiquidRig rig({24, 12, 2});
  LiquidRig::Set(*rig.liquid, FluidSolver::kViscosityRow, viscosity);
  rig.Fill({0, 0, 0}, {8, 10, 2});
  for (i32 i = 0; i < 25; ++i) rig.Step();
  double front = 0;
  for (const Vec3d& p : rig.Store().Positions()) front = std::max(front, p.x);
  return front;
}

TEST(ViscousFlow, AColumnSpreadsTheSlowerTheThickerItIs) {
  const double water = Reach(0), thick = Reach(200), tar = Reach(5000);
  EXPECT_GT(water, thick + 0.2);
  EXPECT_GT(thick, tar + 0.05);
  // It gives way to its weight all the same.
  EXPECT_LT(tar, 0.95);
}

TEST(ViscousFlow, SpinDiesInAThickLiquidThatTouchesWalls) {
  // The slowest eddy dies at a rate of some 20 nu a second.
  for (const double viscosity : {0.0, 1000.0}) {
    LiquidRig rig({12, 8, 12});
    LiquidRig::Set(*rig.liquid, FluidSolver::kViscosityRow, viscosity);
    rig.Fill(
        {0, 0, 0}, {12, 6, 12}, [](const Vec3d&) { return true; },
        [](const Vec3d& p) {
          return Vec3d{p.z - 0.6, 0, 0.6 - p.x};
        });
    const double before = rig.Energy();
    for (i32 i = 0; i < 10; ++i) rig.Step();
    if (viscosity > 0)
      EXPECT_LT(rig.Energy(), 0.01 * before);
    else
      EXPECT_GT(rig.Energy(), 0.2 * before);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
