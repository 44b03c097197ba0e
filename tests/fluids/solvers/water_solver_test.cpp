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
    ASSERT_NEAR(moved.y, -drop, 1e-4);
    ASSERT_NEAR(moved.x, way, 1e-4);
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
    EXPECT_LT(rig.liquid->Projection().DivergenceMax(), 1e-5) << solver;
    EXPECT_LT(reports[0].iterations, solver == 2 ? 60 : 20000);
    if (exact.empty()) exact.assign(p.begin(), p.end());
    double largest = 0, off = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
      largest = std::max(largest, std::abs(exact[i]));
      off = std::max(off, std::abs(exact[i] - p[i]));
    }
    EXPECT_LT(off, 1e-5 * largest) << solver;
  }
}

/// The part of its angular momentum that a ball of liquid keeps in a quarter of a turn; later it
/// flies apart, as nothing holds it together.
double KeptSpin(double ratio, i32 transfer = 0) {
  const VecInt3D cells{20, 20, 20};
  LiquidRig rig(cells);
  LiquidRig::Links(*rig.liquid, WaterSolver::kForcesRow, {});
  LiquidRig::Set(*rig.liquid, WaterSolver::kFlipRatioRow, ratio);
  LiquidRig::Set(*rig.liquid, WaterSolver::kTransferRow, transfer);
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

// Sweeps that end too soon let a column sink into itself, and say so.
TEST(WaterSolver, WarnsOfSweepsThatLeaveItTooMuch) {
  for (const bool sweeps : {false, true}) {
    LiquidRig rig({8, 24, 8});
    LiquidRig::Set(*rig.liquid, WaterSolver::kLinearSolverRow, i32{sweeps ? 1 : 2});
    LiquidRig::Set(*rig.liquid, 1021, i32{20});
    rig.Fill({0, 0, 0}, {8, 20, 8});
    std::size_t told = 0;
    for (i32 i = 0; i < 4; ++i) {
      rig.Step();
      told += rig.liquid->TakeWarnings().size();
    }
    EXPECT_EQ(told > 0, sweeps);
  }
}

TEST(WaterSolver, SpinOfABallIsKept) {
  const double flip = KeptSpin(1), mixed = KeptSpin(0.95), pic = KeptSpin(0);
  const double affine = KeptSpin(0, 1);
  EXPECT_NEAR(flip, 1, 0.02);
  EXPECT_NEAR(affine, 1, 0.03);
  EXPECT_LT(mixed, flip);
  EXPECT_GT(mixed, 0.9);
  EXPECT_LT(pic, 0.6);
}

// Gaps in what flies apart are closed without pulling it together as a whole, which would take
// spin.
TEST(WaterSolver, PositionCorrectionLeavesACylinderItsSpin) {
  double kept[2];
  for (const bool corrects : {false, true}) {
    const VecInt3D cells{44, 44, 6};
    LiquidRig rig(cells);
    LiquidRig::Links(*rig.liquid, WaterSolver::kForcesRow, {});
    LiquidRig::Set(*rig.liquid, WaterSolver::kFlipRatioRow, 1.0);
    LiquidRig::Set(*rig.liquid, WaterSolver::kEvenRow, corrects);
    const Vec3d middle = ToReal(cells) * (0.5 * rig.Cell()), spin{0, 0, 3.14};
    const auto fromAxis = [&](Vec3d p) {
      p.z = middle.z;
      return p - middle;
    };
    rig.scene->mTime.stepDuration = 0.02;
    rig.Fill(
        {0, 0, 0}, cells, [&](const Vec3d& p) { return Length(fromAxis(p)) < 0.9; },
        [&](const Vec3d& p) { return Cross(spin, fromAxis(p)); });
    const auto momentum = [&] {
      double sum = 0;
      for (i32 row = 0; row < rig.Store().Count(); ++row)
        sum += Cross(fromAxis(rig.Store().Positions()[row]), rig.Store().Velocities()[row]).z;
      return sum;
    };
    const double before = momentum();
    for (i32 i = 0; i < 32; ++i) rig.Step();
    kept[corrects] = momentum() / before;
  }
  EXPECT_NEAR(kept[1], kept[0], 0.03);
}

TEST(WaterSolver, SplashedWaterKeepsItsVolumeAndComesToRestAtItsHeight) {
  const VecInt3D cells{16, 16, 8}, block{8, 9, 8};
  LiquidRig rig(cells);
  LiquidRig::Set(*rig.liquid, WaterSolver::kFlipRatioRow, 0.7);
  rig.Fill({0, 0, 0}, block);
  const double exact = block.x * block.y * block.z;
  double early = 0, late = 0;
  for (i32 i = 0; i < 250; ++i) {
    rig.Step();
    const EGrid<double>& phi = *rig.liquid->GetFlow().mSurface;
    double volume = 0;
    for (i32 c = 0; c < phi.mCount; ++c)
      volume += std::clamp(0.5 - phi[c] / rig.Cell(), 0.0, 1.0) *
                (*rig.liquid->GetFlow().mFractions.GetRead(0, 0))[c];
    ASSERT_NEAR(volume / exact, 1, 0.12) << i;
    (i < 125 ? early : late) += volume / exact / 125;
  }
  EXPECT_NEAR(late / early, 1, 0.015);
  double height = 0;
  constexpr i32 kSteps = 100;
  for (i32 i = 0; i < kSteps; ++i) {
    rig.Step();
    height += rig.Centroid().y / kSteps;
  }
  EXPECT_NEAR(height / (0.5 * exact / (cells.x * cells.z) * rig.Cell()), 1, 0.05);
}

TEST(WaterSolver, TakesAGroupThatIsEmptiedBetweenTwoSteps) {
  LiquidRig rig({8, 8, 8});
  auto& other = rig.Add<ParticleGroup>("particlegroup", "other");
  LiquidRig::Links(*rig.liquid, WaterSolver::kGroupsRow, {rig.group, &other});
  rig.Fill({0, 0, 0}, {4, 4, 8});
  ParticleTemplate particle;
  particle.flags |= PF_KIND_LIQUID;
  particle.position = {0.6, 0.1, 0.4};
  for (i32 i = 0; i < 50; ++i) other.Store(kLiquid).Create(particle);
  other.MarkTreeStale(kLiquid);
  rig.StepTo(kOperators);
  other.Reset();
  for (const i32 stage : {kFluidDynamics, kForcesEmission, kPressure, kFlip}) rig.RunLiquid(stage);
  EXPECT_EQ(other.Count(kLiquid), 0);
  EXPECT_LT(rig.MaxSpeed(), 1);
}

TEST(WaterSolver, ParticlesKeepTheVelocityThatTheyHaveOfIt) {
  LiquidRig rig({8, 12, 8});
  LiquidRig::Set(*rig.move, 1016, true);
  // They carry more than the mean of the way that the flow takes them.
  rig.Fill({2, 6, 2}, {6, 10, 6});
  rig.StepTo(kFlip);
  std::vector<Vec3d> before(rig.Store().Velocities().begin(), rig.Store().Velocities().end());
  for (Vec3d& v : rig.Store().Velocities()) v += Vec3d{0.25, 0, 0};
  rig.scene->SetStage(kAdvection);
  LiquidRig::Run(*rig.move);
  for (i32 row = 0; row < rig.Store().Count(); ++row)
    ASSERT_EQ(rig.Store().Velocities()[row].x, before[row].x + 0.25);
}

TEST(WaterSolver, ParticlesTakeAPlayedVelocityWhereTheyAreToldTo) {
  for (const bool reprojects : {false, true}) {
    LiquidRig rig({8, 12, 8});
    LiquidRig::Set(*rig.liquid, WaterSolver::kReprojectRow, reprojects);
    rig.Fill({2, 6, 2}, {6, 10, 6});
    rig.StepTo(kEmitters);
    rig.liquid->SetFlag(FLAG_CACHED, true);
    for (i32 axis = 0; axis < 3; ++axis)
      rig.liquid->GetFlow().mVelocity.GetGridForWrite(axis)->Fill(axis + 1.0);
    rig.RunLiquid(kFluidDynamics);
    rig.RunLiquid(kFlip);
    for (const Vec3d& v : rig.Store().Velocities())
      ASSERT_LT(Length(v - (reprojects ? Vec3d{1, 2, 3} : Vec3d{})), 1e-12) << reprojects;
  }
}

TEST(WaterSolver, AffineTransferIsExactForASlope) {
  for (const bool gathers : {false, true}) {
    const VecInt3D cells{14, 12, 10};
    LiquidRig rig(cells);
    LiquidRig::Links(*rig.liquid, WaterSolver::kForcesRow, {});
    LiquidRig::Set(*rig.liquid, WaterSolver::kTransferRow, 1);
    LiquidRig::Set(*rig.liquid, WaterSolver::kGatherRow, gathers);
    // Free of divergence, and no faster than a cell in a step.
    const Vec3d rows[3] = {{0.5, -2, 1}, {1.5, -0.2, 0.3}, {-0.7, 0.4, -0.3}},
                middle{0.7, 0.6, 0.5};
    const auto velocity = [&](const Vec3d& p) {
      const Vec3d d = p - middle;
      return Vec3d{1 + Dot(rows[0], d), Dot(rows[1], d), 0.5 + Dot(rows[2], d)};
    };
    RandomStream random;
    random.Seed(3);
    for (i32 i = 0; i < 4000; ++i) {
      const Vec3d p{0.3 + 0.8 * random.NextUnit(), 0.3 + 0.6 * random.NextUnit(),
                    0.3 + 0.4 * random.NextUnit()};
      rig.Drop(p, velocity(p));
    }
    for (i32 axis = 0; axis < 3; ++axis) {
      PropertyColumn<Vec3d>& slope = rig.Store().Require<Vec3d>(property_id::kSlopeU + axis);
      for (i32 row = 0; row < rig.Store().Count(); ++row) slope.Set(row, rows[axis]);
    }
    rig.Commit();
    rig.scene->mTime.stepDuration = 1e-9;
    rig.StepTo(kFluidDynamics);
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<double>& u = *rig.liquid->GetFlow().mVelocity.GetGrid(axis);
      i32 touched = 0;
      for (i32 z = 0; z < u.mNz; ++z)
        for (i32 y = 0; y < u.mNy; ++y)
          for (i32 x = 0; x < u.mNx; ++x) {
            if (u(x, y, z) == 0) continue;
            ++touched;
            ASSERT_NEAR(u(x, y, z), velocity(u.PositionOf(x, y, z))[axis], 1e-9) << axis;
          }
      EXPECT_GT(touched, 250);
    }
    rig.RunLiquid(kFlip);
    for (i32 row = 0; row < rig.Store().Count(); ++row) {
      ASSERT_LT(Length(rig.Store().Velocities()[row] - velocity(rig.Store().Positions()[row])),
                1e-9);
      for (i32 axis = 0; axis < 3; ++axis)
        ASSERT_LT(
            Length(rig.Store().Find<Vec3d>(property_id::kSlopeU + axis)->Get(row, {}) - rows[axis]),
            1e-6);
    }
  }
}

TEST(WaterSolver, PositionCorrectionGivesCrowdedParticlesTheirRoom) {
  // Four layers of cells with twelve particles each have the room of six.
  struct Case {
    bool corrects;
    i32 linearSolver;
  };
  for (const auto& [corrects, linearSolver] : {Case{false, 2}, Case{true, 2}, Case{true, 1}}) {
    SCOPED_TRACE(linearSolver);
    LiquidRig rig({12, 14, 8});
    LiquidRig::Set(*rig.liquid, 1020, linearSolver);
    LiquidRig::Set(*rig.liquid, WaterSolver::kEvenRow, corrects);
    rig.Fill({0, 0, 0}, {12, 4, 8});
    ForEachCell({{0, 0, 0}, {12, 4, 8}}, [&](i32 x, i32 y, i32 z) {
      for (const Vec3d& off :
           {Vec3d{0.5, 0.4, 0.5}, Vec3d{0, 0.6, 0.5}, Vec3d{0.5, 0.1, 0}, Vec3d{0.1, 0.9, 0.1}})
        rig.Drop((ToReal({x, y, z}) + off) * rig.Cell(), {});
    });
    rig.Commit();
    for (i32 i = 0; i < 150; ++i) rig.Step();
    const double height = rig.Centroid().y / rig.Cell();
    EXPECT_NEAR(height, corrects ? 3.0 : 2.0, 0.3);
    EXPECT_LT(rig.Energy(), 0.02);
  }
}

TEST(WaterSolver, BoxFilledToTheBrimKeepsStill) {
  LiquidRig rig({8, 8, 8});
  rig.Fill({0, 0, 0}, {8, 8, 8});
  for (i32 i = 0; i < 10; ++i) rig.Step();
  EXPECT_EQ(rig.Store().Count(), 8 * 512);
  EXPECT_LT(rig.Energy(), 1e-8);
}

TEST(WaterSolver, BoxFilledUnevenlyStirsWithoutAComplaint) {
  LiquidRig rig({8, 8, 8});
  RandomStream random;
  random.Seed(5);
  for (i32 i = 0; i < 8 * 512; ++i)
    rig.Drop(Vec3d{random.NextUnit(), random.NextUnit(), random.NextUnit()} * (8 * rig.Cell()), {});
  rig.Commit();
  for (i32 i = 0; i < 40; ++i) rig.Step();
  EXPECT_TRUE(rig.liquid->Projection().TakeWarnings().empty());
  EXPECT_LT(rig.Energy(), 0.05);
}

TEST(WaterSolver, StepsThatAreTooLongKeepItInItsBox) {
  const VecInt3D cells{24, 40, 24};
  LiquidRig rig(cells);
  rig.Fill({8, 30, 8}, {16, 36, 16});
  rig.scene->mTime.stepDuration = 3;
  for (i32 i = 0; i < 12; ++i) {
    rig.Step();
    ASSERT_EQ(rig.Store().Count(), 8 * 6 * 64);
    for (const Vec3d& p : rig.Store().Positions())
      for (int a = 0; a < 3; ++a) {
        ASSERT_GE(p[a], 0) << i;
        ASSERT_LE(p[a], cells[a] * rig.Cell()) << i;
      }
  }
}

TEST(WaterSolver, DoesNotDependOnTheNumberOfThreads) {
  const VecInt3D cells{20, 16, 22};
  for (const i32 transfer : {0, 1}) {
    std::vector<Vec3d> first;
    for (const i32 threads : {1, 2, 3}) {
      LiquidRig rig(cells, threads);
      LiquidRig::Set(*rig.liquid, WaterSolver::kTransferRow, transfer);
      LiquidRig::Set(*rig.liquid, WaterSolver::kEvenRow, transfer == 1);
      Stir(rig, cells);
      for (i32 i = 0; i < 8; ++i) rig.Step();
      const std::span<const Vec3d> now = rig.Store().Positions();
      if (first.empty()) first.assign(now.begin(), now.end());
      ASSERT_EQ(first.size(), now.size());
      EXPECT_TRUE(std::equal(now.begin(), now.end(), first.begin())) << threads;
    }
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
