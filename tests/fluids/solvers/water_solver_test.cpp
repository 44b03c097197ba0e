#include "fluids/solvers/water_solver.h"

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/liquid_rig.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kG = 9.81;

TEST(WaterSolver, DropFallsFreelyAndKeepsItsShape) {
  LiquidRig rig({24, 40, 24});
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
  // Each step moves by the velocity that the one before has left; the first has none.
  const double drop = kG * dt * dt * kSteps * (kSteps - 1) / 2, way = 0.3 * dt * (kSteps - 1);
  ASSERT_EQ(rig.Store().Count(), static_cast<i32>(before.size()));
  for (i32 row = 0; row < rig.Store().Count(); ++row) {
    const Vec3d moved = rig.Store().Positions()[row] - before[row];
    ASSERT_NEAR(moved.y, -drop, 1e-5);
    ASSERT_NEAR(moved.x, way, 1e-5);
  }
}

TEST(WaterSolver, PoolRestsUnderItsOwnWeight) {
  for (const i32 solver : {0, 1, 2}) {
    LiquidRig rig({16, 12, 10});
    LiquidRig::Set(*rig.liquid, WaterSolver::kLinearSolverRow, solver);
    if (solver == 1) LiquidRig::Set(*rig.liquid, 1021, 2000);
    rig.Fill({0, 0, 0}, {16, 6, 10});
    const Vec3d before = rig.Centroid();
    for (i32 i = 0; i < 50; ++i) rig.Step();
    EXPECT_LT(rig.Energy(), 1e-8) << solver;
    EXPECT_LT(Length(rig.Centroid() - before), 1e-4 * rig.Cell()) << solver;
    // The container has a layer of cells beyond the walls.
    const std::span<const double> p = rig.liquid->Projection().GetPressure();
    const VecInt3D n = rig.liquid->GetFlow().GetLayout()->dims;
    for (i32 y = 1; y <= 6; ++y)
      EXPECT_NEAR(p[(n.y * 5 + y) * n.x + 8], 1000 * kG * (6.5 - y) * rig.Cell(), 1.0)
          << solver << " " << y;
  }
}

/// A liquid with a rugged surface, drops in the air and a speed that differs from cell to cell.
void Stir(LiquidRig& rig, const VecInt3D& cells) {
  RandomStream random;
  random.Seed(7);
  const auto isIn = [&](const Vec3d& p) {
    return p.y < 0.05 * cells.y + 0.1 * std::sin(9 * p.x) + 0.15 * std::cos(7 * p.z) ||
           random.NextUnit() < 0.02;
  };
  rig.Fill({0, 0, 0}, cells, isIn, [&](const Vec3d&) {
    return Vec3d{random.NextUnit() - 0.5, random.NextUnit() - 0.5, random.NextUnit() - 0.5};
  });
}

TEST(WaterSolver, SolversAgreeOnARuggedSurface) {
  const VecInt3D cells{24, 20, 18};
  std::vector<double> exact;
  for (const i32 solver : {0, 2, 1}) {
    LiquidRig rig(cells);
    LiquidRig::Set(*rig.liquid, WaterSolver::kLinearSolverRow, solver);
    LiquidRig::Set(*rig.liquid, 1021, 20000);
    Stir(rig, cells);
    rig.StepTo(kPressure);
    const std::span<const double> p = rig.liquid->Projection().GetPressure();
    const auto reports = rig.liquid->Projection().TakeReports();
    ASSERT_EQ(reports.size(), 1u);
    // Where it lets go of walls turns on pressures that Gauss-Seidel knows less well.
    const double rough = solver == 1 ? 1e4 : 1;
    EXPECT_LT(rig.liquid->Projection().DivergenceMax(), rough * 1e-5) << solver;
    EXPECT_LT(reports[0].iterations, solver == 2 ? 60 : 20000);
    if (exact.empty()) exact.assign(p.begin(), p.end());
    double largest = 0, off = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
      largest = std::max(largest, std::abs(exact[i]));
      off = std::max(off, std::abs(exact[i] - p[i]));
    }
    EXPECT_LT(off, std::min(rough * 1e-5, 0.05) * largest) << solver;
  }
}

/// The part of its angular momentum that a ball of liquid keeps in a quarter of a turn; later it
/// flies apart, as nothing holds it together.
double KeptSpin(double ratio) {
  const VecInt3D cells{20, 20, 20};
  LiquidRig rig(cells);
  LiquidRig::Links(*rig.liquid, WaterSolver::kForcesRow, {});
  LiquidRig::Set(*rig.liquid, WaterSolver::kFlipRatioRow, ratio);
  LiquidRig::Set(*rig.move, 1009, i32{2});
  const Vec3d middle = ToReal(cells) * (0.5 * rig.Cell()), axis{0, 0, 1};
  // Velocities go straight on for a step: a step of an angle a alone takes 1 - cos a.
  constexpr i32 kSteps = 200;
  const double radius = 0.6, turn = 1, spin = 2 * 3.14159265358979323846 / turn;
  rig.scene->mTime.stepDuration = turn / kSteps;
  rig.Fill(
      {0, 0, 0}, cells, [&](const Vec3d& p) { return Length(p - middle) < radius; },
      [&](const Vec3d& p) { return Cross(axis * spin, p - middle); });
  const auto momentum = [&] {
    double sum = 0;
    for (i32 row = 0; row < rig.Store().Count(); ++row)
      sum += Cross(rig.Store().Positions()[row] - middle, rig.Store().Velocities()[row]).z;
    return sum;
  };
  const double before = momentum();
  for (i32 i = 0; i < kSteps / 4; ++i) rig.Step();
  return momentum() / before;
}

TEST(WaterSolver, SpinOfABallIsKept) {
  const double flip = KeptSpin(1), mixed = KeptSpin(0.95), pic = KeptSpin(0);
  EXPECT_NEAR(flip, 1, 0.02);
  EXPECT_LT(mixed, flip);
  EXPECT_GT(mixed, 0.9);
  EXPECT_LT(pic, 0.6);
}

TEST(WaterSolver, BoxFilledToTheBrimKeepsStill) {
  LiquidRig rig({8, 8, 8});
  rig.Fill({0, 0, 0}, {8, 8, 8});
  for (i32 i = 0; i < 10; ++i) rig.Step();
  EXPECT_EQ(rig.Store().Count(), 8 * 512);
  EXPECT_LT(rig.Energy(), 1e-8);
}

TEST(WaterSolver, DoesNotDependOnTheNumberOfThreads) {
  const VecInt3D cells{20, 16, 22};
  std::vector<Vec3d> first;
  for (const i32 threads : {1, 2, 3}) {
    LiquidRig rig(cells, threads);
    Stir(rig, cells);
    for (i32 i = 0; i < 8; ++i) rig.Step();
    const std::span<const Vec3d> now = rig.Store().Positions();
    if (first.empty()) first.assign(now.begin(), now.end());
    ASSERT_EQ(first.size(), now.size());
    EXPECT_TRUE(std::equal(now.begin(), now.end(), first.begin())) << threads;
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
