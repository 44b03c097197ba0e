// Closed regions, and what moving solids push in them.
#include <gtest/gtest.h>

#include <cmath>

#include "projection_box.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using projection::Ball;
using projection::Box;
using projection::FormulaVolume;
using projection::MakeLayout;

namespace {

constexpr f32 kCell = 0.1f;

/// A shell round `centre` (cells), half as wide as `half` (cells), with walls two cells thick.
std::unique_ptr<FormulaVolume> Shell(const VecInt3D& cells, const Vec3d& centre,
                                     const Vec3d& half) {
  return std::make_unique<FormulaVolume>(MakeLayout(cells, kCell), [=](const Vec3d& p) {
    double inside = 1e9;
    for (int a = 0; a < 3; ++a)
      inside = std::min(inside, half[a] * kCell - std::fabs(p[a] - centre[a] * kCell));
    return std::fabs(inside) - kCell;
  });
}

/// A slab across the whole grid between x = low and high (cells).
std::unique_ptr<FormulaVolume> Slab(const VecInt3D& cells, double low, double high) {
  return std::make_unique<FormulaVolume>(MakeLayout(cells, kCell), [=](const Vec3d& p) {
    return std::max(low * kCell - p.x, p.x - high * kCell);
  });
}

}  // namespace

// A shell stands in gas with open sides. What a source gives inside of it can't leave, and is
// spread over the room; the gas outside isn't told of it.
TEST(ClosedRegions, ASealedRoomInOpenGasIsBalancedForItself) {
  const VecInt3D cells{24, 22, 20};
  const auto shell = Shell(cells, {12, 11, 10}, {6.3, 5.2, 5.4});
  for (const i32 solver : {0, 1, 2}) {
    Box box(cells, kCell, 0, {shell.get()});
    box.projection.mLinearSolver = solver;
    box.projection.mGauss.mAccuracy = {2000, 1e-10};
    (*box.source)(12, 11, 10) = 5;
    (*box.source)(3, 3, 3) = 0.01;
    box.Project();
    EXPECT_LT(box.projection.DivergenceMax(), 1e-6) << solver;
    EXPECT_LT(box.projection.TakeReports()[0].residual, 1e-7) << solver;
    double inside = 0, outside = 0, volume = 0, wrong = 0;
    box.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
      if (!box.IsOpen(x, y, z)) return;
      const bool isInside =
          std::abs(x + 0.5 - 12) < 6 && std::abs(y + 0.5 - 11) < 5 && std::abs(z + 0.5 - 10) < 5;
      if (isInside) volume += (*box.fractions.GetRead(0, 0))(x, y, z);
      (isInside ? inside : outside) += box.Divergence(x, y, z);
    });
    box.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
      if (std::abs(x + 0.5 - 12) < 4 && std::abs(y + 0.5 - 11) < 3 && std::abs(z + 0.5 - 10) < 3 &&
          VecInt3D{x, y, z} != VecInt3D{12, 11, 10})
        wrong = std::max(wrong, std::fabs(box.Divergence(x, y, z) + 5 / volume));
    });
    EXPECT_GT(volume, 500);
    EXPECT_NEAR(inside, 0, 1e-5) << solver;
    EXPECT_NEAR(outside, 0.01, 1e-5) << solver;
    EXPECT_LT(wrong, 1e-6) << solver;
  }
}

// Gas that expands alike all over a sealed room, beside a ball too, has nowhere to go: it rests, no
// solver is at a loss, and one warning tells the cell and the rate.
TEST(ClosedRegions, GasThatExpandsAlikeInASealedRoomRests) {
  const auto ball = Ball({9.3, 8.1, 8.7}, 3.4, kCell);
  for (const double rate : {0.3, -40.0})
    for (const i32 solver : {0, 1, 2}) {
      Box box({18, 16, 14}, kCell, kWallsAll, {ball.get()});
      box.projection.mLinearSolver = solver;
      box.source->Fill(rate);
      for (i32 step = 0; step < 2; ++step) box.Project();
      for (const double face : box.Faces()) ASSERT_EQ(face, 0);
      EXPECT_LT(box.projection.DivergenceMax(), 1e-12 * std::fabs(rate));
      EXPECT_EQ(box.projection.TakeReports()[0].residual, 0) << solver;
      const VolumeLedger ledger = box.projection.TakeLedger();
      EXPECT_NEAR(ledger.squeezed / ledger.made, -1, 1e-12);
      const auto told = box.projection.TakeWarnings();
      ASSERT_EQ(told.size(), 1u) << solver;
      EXPECT_NE(told[0].find(rate > 0 ? "gas that expands" : "gas that shrinks"),
                std::string::npos);
      EXPECT_NE(told[0].find("one of them at [15, 15, 15], by " +
                             std::string(rate > 0 ? "30 %" : "4e+03 %")),
                std::string::npos)
          << told[0];
    }
  // What is made in one place drives gas there, however much more all of the room takes up.
  for (const i32 solver : {0, 2}) {
    Box box({18, 16, 14}, kCell, kWallsAll);
    box.projection.mLinearSolver = solver;
    box.projection.mCG.mAccuracy.tolerance = box.projection.mMultigrid.mAccuracy.tolerance = 1e-9;
    box.source->Fill(1e5);
    (*box.source)(5, 5, 5) += 1;
    box.Project();
    EXPECT_NEAR(box.Divergence(5, 5, 5), 1, 0.01);
    EXPECT_EQ(box.projection.TakeWarnings().size(), 1u) << "no solve that went astray";
  }
}

// A piston in one of two sealed rooms: the gas before it is squeezed evenly, so that its speed
// falls off along a line, that behind is stretched, and the other room rests.
TEST(ClosedRegions, APistonSqueezesItsOwnRoomAlone) {
  const VecInt3D cells{34, 12, 14};
  const auto piston = Slab(cells, 6.4, 10.7), wall = Slab(cells, 22.3, 25);
  const double speed = 0.6;
  for (const i32 solver : {0, 2}) {
    Box box(cells, kCell, kWallsAll, {piston.get(), wall.get()});
    box.projection.mLinearSolver = solver;
    box.projection.moving = {{piston.get(), {}, {speed, 0, 0}, {}}};
    box.Project();
    EXPECT_LT(box.projection.DivergenceMax(), 1e-6);
    ASSERT_EQ(box.projection.Warnings().size(), 1u);
    EXPECT_NE(box.projection.Warnings()[0].find("sealed room of"), std::string::npos);
    const EGrid<double>& u = *box.velocity[0];
    for (i32 z = 1; z < cells.z - 1; ++z)
      for (i32 y = 1; y < cells.y - 1; ++y) {
        for (i32 x = 11; x <= 22; ++x)
          ASSERT_NEAR(u(x, y, z), speed * (22.3 - x) / (22.3 - 10.7), 0.03 * speed) << x;
        for (i32 x = 1; x <= 6; ++x)
          ASSERT_NEAR(u(x, y, z), speed * (x - 1) / 5.4, 0.05 * speed) << x;
        for (i32 x = 26; x < 33; ++x) ASSERT_EQ(u(x, y, z), 0) << x;
      }
  }
}

// What a piston pushes out of an open tube is in the account of the gas; where the tube ends, a
// solve that is stopped early leaves a drift in it, which is told.
TEST(ClosedRegions, TheAccountOfVolumeKnowsWhatAPistonPushes) {
  const VecInt3D cells{34, 12, 14};
  const auto piston = Slab(cells, -3, 10.7);
  const double speed = 0.6, dt = 0.02, cell = double{kCell} * kCell * kCell;
  const auto run = [&](i32 rounds, i32 steps) {
    Box box(cells, kCell, u8(kWallsAll & ~kWallHighX), {piston.get()});
    // Rounds of the slow solver, or the quick one to the end.
    box.projection.mLinearSolver = rounds ? 1 : 0;
    box.projection.mGauss.mAccuracy.maxIterations = rounds;
    box.projection.mCG.mAccuracy.tolerance = 1e-12;
    box.projection.moving = {{piston.get(), {}, {speed, 0, 0}, {}}};
    for (i32 step = 0; step < steps; ++step) {
      for (auto& grid : box.velocity) grid->Fill(0);
      box.Project();
    }
    return std::pair(box.projection.TakeLedger(), box.projection.TakeWarnings());
  };
  const auto [ledger, warnings] = run(0, 1);
  const double pushed = speed * dt * 10 * 12 * kCell * kCell;
  EXPECT_NEAR(ledger.solids, pushed, 1e-9);
  EXPECT_NEAR(ledger.left, pushed, 1e-6 * pushed);
  EXPECT_EQ(ledger.made, 0);
  EXPECT_EQ(ledger.squeezed, 0);
  EXPECT_LT(ledger.drift, 1e-6 * cell);
  EXPECT_TRUE(warnings.empty());

  const auto [rough, told] = run(2, 100);
  EXPECT_NEAR(rough.solids, 100 * pushed, 1e-7);
  EXPECT_GE(rough.drift, rough.solids - rough.left - 1e-9);
  EXPECT_GT(rough.drift, 0.02 * 22 * 10 * 12 * cell);
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("squeezed or stretched"), std::string::npos);
}

// A body that moves and turns inside a closed room takes no room from it: what it pushes adds up to
// 0, wherever it stands to the grid, and grazing the wall changes nothing about that.
TEST(ClosedRegions, ARigidBodyPushesAsMuchAsItLeaves) {
  for (const Vec3d& centre : {Vec3d{9.3, 8.1, 8.7}, Vec3d{8, 8, 8}, Vec3d{12.4, 9, 8.2}}) {
    const auto ball = Ball(centre, 3.4, kCell);
    Box box({18, 18, 18}, kCell, kWallsAll, {ball.get()});
    const std::vector<MovingBody> bodies = {
        {ball.get(), centre * double(kCell), {1, -0.4, 0.3}, {0.5, 2, -1}}};
    const SolidPush push(box.projection.fields, bodies);
    double sum = 0, size = 0;
    box.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
      if (!box.IsOpen(x, y, z)) return;
      sum += push.Balance(x, y, z);
      size += std::fabs(push.Balance(x, y, z));
    });
    EXPECT_GT(size, 100);
    EXPECT_LT(std::fabs(sum), 1e-12 * size) << centre.x;
    box.projection.moving = bodies;
    box.Project();
    EXPECT_TRUE(box.projection.Warnings().empty());
    EXPECT_LT(box.projection.DivergenceMax(), 1e-6);
  }
}

// A block, straight or askew, comes to a wall: what it pushes out of the last gap leaves at a few
// times its speed, however narrow the gap gets.
TEST(ClosedRegions, TheLastGapBeforeAWallKnowsBounds) {
  for (const double turn : {0.0, 0.05})
    for (const double gap : {0.45, 0.3, 0.2, 0.12, 0.06, 0.03}) {
      const double wall = 17 * kCell, reach = 3 * kCell, tip = reach * std::sin(turn);
      const VecInt3D cells{18, 18, 18};
      FormulaVolume block(MakeLayout(cells, kCell), [=](const Vec3d& p) {
        const double x = p.x - (wall - gap * kCell - tip - reach), y = p.y - 9.2 * kCell;
        const double along = x * std::cos(turn) + y * std::sin(turn);
        const double across = y * std::cos(turn) - x * std::sin(turn);
        return std::max({std::fabs(along), std::fabs(across), std::fabs(p.z - 8.7 * kCell)}) -
               reach;
      });
      Box box(cells, kCell, u8(kWallsAll & ~kWallHighY), {&block});
      box.fractions.mLeast = kLeastOpening;
      box.fractions.Measure(1);
      box.projection.moving = {{&block, {}, {1, 0, 0}, {}}};
      box.Project();
      double top = 0;
      for (const double face : box.Faces()) top = std::max(top, std::fabs(face));
      EXPECT_LT(top, 5) << turn << " " << gap;
      EXPECT_GT(top, 0.5) << turn << " " << gap;
      EXPECT_LT(box.projection.DivergenceMax(), 1e-5);
    }
}

// A ball that leaves through a wall at every depth: what faces carry stays within a small multiple
// of its speed.
TEST(ClosedRegions, ABallThatCrossesAWallKnowsBounds) {
  for (i32 step = 0; step < 24; ++step) {
    const Vec3d centre{12 + 0.29 * step, 9.3, 8.6};
    const auto ball = Ball(centre, 3.7, kCell);
    Box box({18, 18, 18}, kCell, kWallsAll, {ball.get()});
    box.fractions.mLeast = kLeastOpening;
    box.fractions.Measure(1);
    box.projection.moving = {{ball.get(), centre * double(kCell), {1, 0, 0}, {}}};
    box.Project();
    double top = 0;
    for (const double face : box.Faces()) top = std::max(top, std::fabs(face));
    EXPECT_LT(top, 4) << step;
    EXPECT_LT(box.projection.DivergenceMax(), 1e-5) << step;
  }
}
