#include <gtest/gtest.h>

#include <cmath>

#include "fluids/pressure/grid_multigrid_solver.h"
#include "lattice_systems.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using lattice::System;

namespace {

/// What stands in a box: closed planes of faces (walls thinner than a cell) that leave a gap, the
/// inside of a closed ball, whose border cuts cells and faces, a corridor one cell wide that winds
/// along y between walls as thick, or a row of rooms whose doors are open by a hundredth. The last
/// two are open, if at all, at one edge alone.
enum class Inside { Nothing, Walls, Ball, Corridor, Rooms };

bool IsInCorridor(const VecInt3D& p, const VecInt3D& n) {
  return p.y % 2 == 1 || p.x == (p.y % 4 == 0 ? 1 : n.x - 2);
}

double DoorWeight(const VecInt3D& p, const VecInt3D& n) {
  const bool door = std::abs(2 * p.y - n.y) <= 4 && std::abs(2 * p.z - n.z) <= 4;
  return p.x % 9 != 0 ? 1.0 : door ? 0.01 : 0.0;
}

/// A Poisson system whose sides are closed or of fixed value.
void FillBox(Grid_MultigridSolver& solver, const VecInt3D& n, bool closed, Inside inside) {
  const bool walls = inside == Inside::Walls;
  solver.mDims = n;
  solver.mOwner = &solver;
  solver.Prepare();
  const auto cell = [&](const VecInt3D& p) { return (n.y * p.z + p.y) * n.x + p.x; };
  const auto isInner = [&](const VecInt3D& p) {
    return p.x > 0 && p.y > 0 && p.z > 0 && p.x < n.x - 1 && p.y < n.y - 1 && p.z < n.z - 1;
  };
  const auto weight = [&](i32 axis, const VecInt3D& p) {  // of the face below p
    VecInt3D below = p;
    --below[axis];
    const bool side = !isInner(p) || !isInner(below);
    if (closed && side) return 0.0;
    if (inside >= Inside::Corridor && side) return axis == 0 && p.x == 1 && p.y == 1 ? 1.0 : 0.0;
    if (inside == Inside::Ball) {
      const Vec3d at = ToReal(p + below) * 0.5 - ToReal(n) * 0.5;
      return std::clamp(0.6 * (0.44 * n.x - Length(at)) + 0.5, 0.0, 1.0);
    }
    if (inside == Inside::Corridor) return IsInCorridor(p, n) && IsInCorridor(below, n) ? 1.0 : 0.0;
    if (inside == Inside::Rooms && axis == 0) return DoorWeight(p, n);
    if (walls && axis == 0 && (p.x == n.x / 2 || p.x == n.x / 4 + 1) && p.y < n.y * 3 / 4)
      return 0.0;
    if (walls && axis == 1 && p.y == n.y / 3 && p.x > n.x / 2 + 2 && p.x < n.x - 6) return 0.0;
    return 1.0;
  };
  double sum = 0;
  i32 rows = 0;
  for (i32 z = 1; z < n.z - 1; ++z)
    for (i32 y = 1; y < n.y - 1; ++y)
      for (i32 x = 1; x < n.x - 1; ++x) {
        const VecInt3D p{x, y, z};
        for (i32 axis = 0; axis < 3; ++axis)
          for (const i32 side : {0, 1}) {
            VecInt3D face = p, next = p;
            face[axis] += side;
            next[axis] += side ? 1 : -1;
            const double w = weight(axis, face);
            solver.GetMatrix().AddToElement(cell(p), cell(p), w);
            solver.GetMatrix().AddToElement(cell(p), cell(next), -w);
          }
        if (!(solver.GetMatrix().Diagonal()[cell(p)] > 0)) continue;
        solver.GetRhs()[cell(p)] = std::sin(0.3 * x) + 0.1 * ((7 * x + 13 * y + 29 * z) % 17);
        sum += solver.GetRhs()[cell(p)];
        ++rows;
      }
  if (!closed) return;
  for (i32 c = 0; c < n.x * n.y * n.z; ++c)
    if (solver.GetMatrix().Diagonal()[c] > 0) solver.GetRhs()[c] -= sum / rows;
}

i32 Iterations(const VecInt3D& n, bool closed, Inside inside = Inside::Nothing) {
  Grid_MultigridSolver solver;
  FillBox(solver, n, closed, inside);
  EXPECT_TRUE(solver.Solve());
  return solver.mIterations;
}

}  // namespace

TEST(Multigrid, IterationsHardlyGrowWithTheGrid) {
  for (const bool closed : {false, true}) {
    for (const i32 n : {18, 34, 66}) {
      EXPECT_LE(Iterations({n, n, n}, closed), 13) << n << " closed " << closed;
      EXPECT_LE(Iterations({n, n, n}, closed, Inside::Walls), closed ? 26 : 20)
          << n << " closed " << closed;
    }
    EXPECT_LE(Iterations({66, 66, 66}, true, Inside::Ball), 14) << "faces that are hardly open";
    EXPECT_LE(Iterations({75, 33, 12}, closed), 14) << "odd, unequal sides";
    EXPECT_LE(Iterations({90, 5, 3}, closed), 14) << "a channel";
  }
}

// Through an opening of few faces much has to leave: the residual rises a thousandfold first.
TEST(Multigrid, CouplingsThatTheGridDoesNotFollowCostFewIterationsToo) {
  for (const bool closed : {false, true}) {
    for (const VecInt3D& n : {VecInt3D{34, 34, 3}, {67, 66, 3}, {34, 34, 34}})
      EXPECT_LE(Iterations(n, closed, Inside::Corridor), 36)
          << n.x << " cells long, closed " << closed;
    for (const VecInt3D& n : {VecInt3D{74, 18, 18}, {147, 20, 15}, {92, 33, 32}})
      EXPECT_LE(Iterations(n, closed, Inside::Rooms), 36)
          << n.x << " cells long, closed " << closed;
  }
}

TEST(Multigrid, LevelsThatStandAreKeptOnlyForTheSameMatrix) {
  const auto solveAfter = [](Grid_MultigridSolver& solver, const VecInt3D& n, Inside inside) {
    FillBox(solver, n, false, inside);
    EXPECT_TRUE(solver.Solve());
    return std::vector<double>(solver.GetResult().begin(), solver.GetResult().end());
  };
  const VecInt3D cube{34, 34, 34}, flat{36, 32, 34};
  Grid_MultigridSolver used;
  for (const auto& [n, inside] : {std::pair{cube, Inside::Walls},
                                  {cube, Inside::Walls},
                                  {cube, Inside::Nothing},
                                  {flat, Inside::Nothing},
                                  {cube, Inside::Walls},
                                  {cube, Inside::Corridor},
                                  {cube, Inside::Corridor},
                                  {cube, Inside::Walls}}) {
    Grid_MultigridSolver fresh;
    EXPECT_EQ(solveAfter(used, n, inside), solveAfter(fresh, n, inside));
    EXPECT_EQ(used.mIterations, fresh.mIterations);
  }
}

namespace {

/// The cycle M^-1 is symmetric and positive: <a, M^-1 b> = <b, M^-1 a>, <a, M^-1 a> > 0.
void ExpectSymmetricAndPositive(Multigrid& multigrid, const LatticeMatrix& matrix) {
  const i32 count = matrix.Rows();
  RandomStream random;
  random.Seed(5);
  std::vector<double> a(count), b(count);
  for (i32 i = 0; i < count; ++i)
    if (matrix.Diagonal()[i] > 0) a[i] = random.NextUnit() - 0.5, b[i] = random.NextUnit() - 0.5;
  // Smooth parts, which coarse levels rule, beside the rough.
  for (i32 i = 0; i < count; ++i)
    if (matrix.Diagonal()[i] > 0) a[i] += 0.5, b[i] += static_cast<double>(i) / count;
  const auto cycle = [&](const std::vector<double>& rhs, const std::vector<double>& with) {
    for (i32 i = 0; i < count; ++i) multigrid.FinestRhs()[i] = static_cast<float>(rhs[i]);
    return multigrid.Cycle(with.data());
  };
  const double ab = cycle(a, b), ba = cycle(b, a), aa = cycle(a, a), bb = cycle(b, b);
  EXPECT_NEAR(ab, ba, 1e-5 * std::sqrt(aa * bb));
  EXPECT_GT(aa, 0);
  EXPECT_GT(bb, 0);
}

}  // namespace

TEST(Multigrid, TheCycleIsSymmetricAndPositive) {
  for (const double open : {1.0, 0.7}) {
    const System system({23, 14, 19}, open, false, 77);
    Grid_MultigridSolver solver;
    system.Fill(solver);
    Multigrid multigrid;
    ASSERT_TRUE(multigrid.Build(solver.GetMatrix(), 1));
    ASSERT_GT(multigrid.Levels(), 2);
    ExpectSymmetricAndPositive(multigrid, solver.GetMatrix());
    ASSERT_TRUE(multigrid.FollowCouplings(solver.GetMatrix()));
    ExpectSymmetricAndPositive(multigrid, solver.GetMatrix());
  }
  for (const Inside inside : {Inside::Corridor, Inside::Rooms})
    for (const bool closed : {false, true}) {
      Grid_MultigridSolver solver;
      FillBox(solver, {47, 22, 19}, closed, inside);
      Multigrid multigrid;
      ASSERT_TRUE(multigrid.Build(solver.GetMatrix(), 1));
      ASSERT_TRUE(multigrid.FollowCouplings(solver.GetMatrix()));
      ExpectSymmetricAndPositive(multigrid, solver.GetMatrix());
    }
}

TEST(Multigrid, LevelsThatFollowCouplingsGiveTheSameBytesForEveryThreadCount) {
  const auto solve = [](i32 threads) {
    Grid_MultigridSolver solver;
    solver.mThreads = threads;
    FillBox(solver, {74, 18, 18}, false, Inside::Rooms);
    EXPECT_TRUE(solver.Solve());
    return std::vector<double>(solver.GetResult().begin(), solver.GetResult().end());
  };
  const std::vector<double> one = solve(1);
  for (const i32 threads : {2, 3, 7}) EXPECT_EQ(solve(threads), one) << threads;
}

TEST(Multigrid, EdgesOfTheIteration) {
  const System system({12, 12, 12}, 1.0, true, 3);
  Grid_MultigridSolver solver;
  system.Fill(solver);
  std::fill(solver.GetRhs().begin(), solver.GetRhs().end(), 0.0);
  EXPECT_TRUE(solver.Solve());
  EXPECT_EQ(solver.mIterations, 0);
  for (const double p : solver.GetResult()) ASSERT_EQ(p, 0);
  solver.mAccuracy.maxIterations = 2;
  system.Fill(solver);
  EXPECT_FALSE(solver.Solve());
  EXPECT_EQ(solver.mIterations, 2);
  EXPECT_LT(system.Residual(solver.GetResult()), 0.5) << "what stands is used";
  // A grid without unknowns, and one whose only level is solved at once.
  Grid_MultigridSolver small;
  const System nothing({2, 2, 2}, 1.0, true, 1), few({4, 5, 3}, 1.0, true, 1);
  nothing.Fill(small);
  EXPECT_TRUE(small.Solve());
  few.Fill(small);
  EXPECT_TRUE(small.Solve());
  EXPECT_LE(small.mIterations, 3);
  EXPECT_LT(few.Residual(small.GetResult()), 1e-7);
}
