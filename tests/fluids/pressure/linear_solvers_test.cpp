#include <gtest/gtest.h>

#include <cstring>

#include "fluids/pressure/grid_cg_solver.h"
#include "fluids/pressure/grid_gauss_solver.h"
#include "fluids/pressure/grid_multigrid_solver.h"
#include "host/worker_pool.h"
#include "lattice_systems.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using lattice::ReferenceFactor;
using lattice::System;

namespace {

/// Conjugate gradients with the reference factor, in plain vectors; returns the iterations.
i32 ReferenceSolve(const System& a, double tolerance, i32 limit, std::vector<double>& x) {
  const ReferenceFactor factor(a, 0.97, 0.25);
  const std::size_t n = a.rows.size();
  const auto dot = [n](const auto& p, const auto& q) {
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) sum += p[i] * q[i];
    return sum;
  };
  const auto largest = [&](const auto& r) {
    double top = 0;
    for (std::size_t i = 0; i < n; ++i)
      if (a.HasRow(static_cast<i32>(i))) top = std::max(top, std::fabs(r[i]));
    return top;
  };
  std::vector<double> r = a.rhs, z = factor.Apply(r), s = z;
  x.assign(n, 0.0);
  const double tol = largest(r) * tolerance;
  double rho = dot(z, r);
  for (i32 k = 1; k <= limit; ++k) {
    for (std::size_t i = 0; i < n; ++i) {
      z[i] = 0;
      for (const auto& [column, value] : a.rows[i]) z[i] += value * s[column];
    }
    const double alpha = rho / dot(s, z);
    for (std::size_t i = 0; i < n; ++i) x[i] += alpha * s[i], r[i] -= alpha * z[i];
    if (!(largest(r) > tol)) return k;
    z = factor.Apply(r);
    const double next = dot(z, r), beta = next / rho;
    for (std::size_t i = 0; i < n; ++i) s[i] = z[i] + beta * s[i];
    rho = next;
  }
  return limit;
}

double Distance(std::span<const double> a, std::span<const double> b) {
  double top = 0;
  for (std::size_t i = 0; i < a.size(); ++i) top = std::max(top, std::fabs(a[i] - b[i]));
  return top;
}

/// Sweeps as the projection does, until the solver says stop.
void Relax(Grid_GaussSolver& solver) {
  do solver.Sweep();
  while (solver.WantsSweep());
}

}  // namespace

TEST(LinearSolvers, AccuracySliderMapsToTolerances) {
  const std::pair<double, double> cases[] = {
      {0, 0.01},     {1e-9, 1e-3}, {0.1, 1e-4}, {0.15, 1e-4}, {0.2, 1e-5},  {0.3, 1e-6},
      {0.4, 1e-7},   {0.5, 1e-8},  {0.6, 1e-9}, {0.7, 1e-10}, {0.8, 1e-11}, {0.9, 1e-12},
      {0.99, 1e-12}, {1.0, 1e-13}, {7, 1e-13},  {-1, 1e-3}};
  for (const auto& [slider, tolerance] : cases)
    EXPECT_EQ(ToleranceOfSlider(slider), tolerance) << slider;
}

// The compact factor equals the general algorithm: on open and closed borders, on masks from full
// to sparse, and where columns come close to the least diagonal.
TEST(ConjugateGradients, FactorEqualsTheGeneralAlgorithm) {
  u32 seed = 1;
  for (const double open : {1.0, 0.8, 0.4})
    for (const bool border : {false, true})
      for (const double modification : {0.97, 0.0, 1.9}) {
        const System system({7, 6, 9}, open, border, ++seed);
        Grid_CGSolver solver;
        solver.mModification = modification;
        system.Fill(solver);
        solver.Solve();
        const ReferenceFactor reference(system, modification, 0.25);
        for (std::size_t c = 0; c < system.rows.size(); ++c) {
          const double expected = system.HasRow(c) ? reference.invDiag[c] : 0.0;
          ASSERT_NEAR(solver.GetFactor()[c], expected * expected, 1e-12 * (1 + expected * expected))
              << c << " open " << open << " modification " << modification;
        }
      }
}

// Entries of a liquid that lead to the air have no part in its factor, which would count those of
// some sides alone.
TEST(ConjugateGradients, EntriesToTheAirChangeNothing) {
  const System system({9, 8, 7}, 0.8, true, 11);
  System bare = system;
  for (auto& row : bare.rows)
    std::erase_if(row, [&](const auto& entry) { return !system.HasRow(entry.first); });
  Grid_CGSolver solver, plain;
  system.Fill(solver);
  bare.Fill(plain);
  for (Grid_CGSolver* own : {&solver, &plain}) {
    own->GetMatrix().mHasAir = true;
    own->Solve();
  }
  EXPECT_GT(solver.mIterations, 3);
  EXPECT_EQ(solver.mIterations, plain.mIterations);
  EXPECT_EQ(Distance(solver.GetFactor(), plain.GetFactor()), 0);
  EXPECT_EQ(Distance(solver.GetResult(), plain.GetResult()), 0);
}

TEST(ConjugateGradients, LeastDiagonalTakesTheMatrixValue) {
  // With a modification far above 1 most columns fall below a quarter of their own diagonal.
  const System system({8, 8, 8}, 1.0, true, 5);
  Grid_CGSolver solver;
  solver.mModification = 3;
  system.Fill(solver);
  solver.Solve();
  i32 restored = 0;
  for (std::size_t c = 0; c < system.rows.size(); ++c)
    if (system.HasRow(c) && std::fabs(solver.GetFactor()[c] * system.rows[c].at(c) - 1) < 1e-14)
      ++restored;
  EXPECT_GT(restored, 20);
}

TEST(ConjugateGradients, IteratesLikeThePlainMethod) {
  for (const bool border : {false, true}) {
    const System system({12, 10, 11}, 0.9, border, border ? 21 : 20);
    System balanced = system;
    if (!border) {  // a closed domain needs a right-hand side that sums to 0 in every part
      std::vector<double> x(system.rows.size());
      for (std::size_t i = 0; i < x.size(); ++i) x[i] = std::sin(0.37 * i);
      for (std::size_t c = 0; c < x.size(); ++c) {
        balanced.rhs[c] = 0;
        if (!system.HasRow(c)) continue;
        for (const auto& [column, value] : system.rows[c]) balanced.rhs[c] += value * x[column];
      }
    }
    Grid_CGSolver solver;
    balanced.Fill(solver);
    ASSERT_TRUE(solver.Solve());
    std::vector<double> expected;
    const i32 iterations = ReferenceSolve(balanced, 1e-8, 200, expected);
    EXPECT_LT(iterations, 60);
    EXPECT_EQ(solver.mIterations, iterations);
    EXPECT_LT(Distance(solver.GetResult(), expected), 1e-9);
    EXPECT_LE(balanced.Residual(solver.GetResult()), 1.01e-8 * 2);
  }
}

TEST(ConjugateGradients, EdgesOfTheIteration) {
  System system({6, 6, 6}, 1.0, true, 3);
  Grid_CGSolver solver;
  solver.mAccuracy.maxIterations = 0;
  system.Fill(solver);
  EXPECT_FALSE(solver.Solve());
  for (const double p : solver.GetResult()) ASSERT_EQ(p, 0);

  solver.mAccuracy.maxIterations = 3;
  system.Fill(solver);
  EXPECT_FALSE(solver.Solve());
  EXPECT_EQ(solver.mIterations, 3);
  EXPECT_LT(system.Residual(solver.GetResult()), 0.5) << "what stands is used";

  // A right-hand side in a row without entries is left out; so all others being 0 ends at once.
  std::fill(system.rhs.begin(), system.rhs.end(), 0.0);
  system.rhs[0] = 1;
  system.Fill(solver);
  EXPECT_TRUE(solver.Solve());
  EXPECT_EQ(solver.mIterations, 0);

  // Grids too small for unknowns.
  for (const VecInt3D dims : {VecInt3D{1, 1, 1}, VecInt3D{2, 5, 2}, VecInt3D{3, 3, 1}}) {
    const System tiny(dims, 1, true, 1);
    tiny.Fill(solver);
    EXPECT_TRUE(solver.Solve());
  }

  solver.mOwner = nullptr;
  solver.Prepare();
  EXPECT_FALSE(solver.Has(FLAG_ACTIVE));
}

// A closed system whose right-hand side adds up to something has no solution. The solve notices
// that it comes no further, and what it leaves is the best of its iterates: a longer leash never
// ends at a worse residual.
template <class Solver>
void ExpectTheBestOfAHopelessSolve() {
  System system({10, 9, 8}, 1.0, false, 17);
  for (std::size_t c = 0; c < system.rhs.size(); ++c) {
    double sum = 0;
    for (const auto& [column, value] : system.rows[c]) sum += value * std::sin(0.37 * column);
    system.rhs[c] = system.HasRow(static_cast<i32>(c)) ? sum + 1e-4 : 0.0;
  }
  double least = 1e9, last = 0;
  for (const i32 limit : {1, 2, 4, 8, 12, 16, 24, 40, 1000}) {
    Solver solver;
    solver.mAccuracy.maxIterations = limit;
    system.Fill(solver);
    EXPECT_FALSE(solver.Solve());
    last = system.Residual(solver.GetResult());
    EXPECT_NEAR(last, solver.mResidual * solver.mLargest, 1e-6 * last);
    EXPECT_LE(last, 1.1001 * least) << limit;
    least = std::min(least, last);
    if (limit < 1000) continue;
    EXPECT_LT(solver.mIterations, 400);
    EXPECT_TRUE(solver.mEnd == SolveEnd::Stalled || solver.mEnd == SolveEnd::Grew);
  }
  EXPECT_LT(last, 2e-2) << "about the root of what has no solution";
  EXPECT_GT(last, 0.9e-4);
}

TEST(LinearSolvers, AHopelessSolveStopsAtItsBest) {
  ExpectTheBestOfAHopelessSolve<Grid_CGSolver>();
  ExpectTheBestOfAHopelessSolve<Grid_MultigridSolver>();
}

// -laplace p = f on the unit cube with p = 0 outside, second order in the cell size.
TEST(ConjugateGradients, ConvergesToTheContinuousSolution) {
  double errors[2];
  for (int level = 0; level < 2; ++level) {
    const i32 n = 12 << level;
    const double h = 1.0 / (n + 1), pi = std::acos(-1.0);
    const VecInt3D dims{n + 2, n + 2, n + 2};
    Grid_CGSolver solver;
    solver.mDims = dims;
    solver.mOwner = &solver;
    solver.mAccuracy.tolerance = 1e-12;
    solver.Prepare();
    const i32 offsets[3] = {1, dims.x, dims.x * dims.y};
    const auto exact = [&](i32 x, i32 y, i32 z) {
      return std::sin(pi * x * h) * std::sin(2 * pi * y * h) * std::sin(pi * z * h);
    };
    for (i32 z = 1; z <= n; ++z)
      for (i32 y = 1; y <= n; ++y)
        for (i32 x = 1; x <= n; ++x) {
          const i32 c = (dims.y * z + y) * dims.x + x;
          for (const i32 o : offsets)
            for (const i32 step : {o, -o}) {
              solver.AddToElement(c, c, 1 / (h * h));
              solver.AddToElement(c, c + step, -1 / (h * h));
            }
          solver.GetRhs()[c] = 6 * pi * pi * exact(x, y, z);
        }
    ASSERT_TRUE(solver.Solve());
    errors[level] = 0;
    for (i32 z = 1; z <= n; ++z)
      for (i32 y = 1; y <= n; ++y)
        for (i32 x = 1; x <= n; ++x)
          errors[level] = std::max(
              errors[level],
              std::fabs(solver.GetResult()[(dims.y * z + y) * dims.x + x] - exact(x, y, z)));
  }
  EXPECT_LT(errors[1], 0.01);
  EXPECT_NEAR(errors[0] / errors[1], std::pow(25.0 / 13.0, 2), 0.3);
}

TEST(GaussSeidel, SweepsInOrderInsideBlocksAndReadsSnapshotsOutside) {
  const System system({9, 8, 29}, 0.85, true, 77);
  Grid_GaussSolver solver;
  system.Fill(solver);
  std::vector<double> p(system.rows.size(), 0.0);
  const i32 layer = 9 * 8;
  for (int sweep = 0; sweep < 3; ++sweep) {
    const std::vector<double> before = p;
    double change = 0;
    for (i32 c = 0; c < static_cast<i32>(p.size()); ++c) {
      if (!system.HasRow(c)) continue;
      double s = system.rhs[c];
      for (const auto& [column, value] : system.rows[c]) {
        if (column == c) continue;
        const bool outside = column / layer / 8 != c / layer / 8;
        s -= value * (outside ? before : p)[column];
      }
      p[c] = s / system.rows[c].at(c);
      change = std::max(change, std::fabs(p[c] - before[c]));
    }
    EXPECT_NEAR(solver.Sweep(), change, 1e-13);
    ASSERT_LT(Distance(solver.GetResult(), p), 1e-13) << "sweep " << sweep;
  }
}

TEST(GaussSeidel, StopsAtTheLimitOrWhenNothingChanges) {
  const System system({8, 8, 8}, 1.0, true, 9);
  Grid_GaussSolver solver;
  for (const auto& [limit, sweeps] : {std::pair{0, 2}, {1, 3}, {5, 7}}) {
    solver.mAccuracy = {limit, 0.0};
    system.Fill(solver);
    Relax(solver);
    EXPECT_EQ(solver.mIterations, sweeps) << limit;
  }
  // Convergence restarts the count: the next solve has the full limit again.
  solver.mAccuracy = {200, 1e-3};
  system.Fill(solver);
  Relax(solver);
  EXPECT_LT(solver.mIterations, 100);
  EXPECT_LT(solver.mChange, 1e-3);
  const i32 first = solver.mIterations;
  system.Fill(solver);
  Relax(solver);
  EXPECT_EQ(solver.mIterations, first);
  // The pressures outlive the system.
  const std::vector<double> p(solver.GetResult().begin(), solver.GetResult().end());
  solver.Release(false);
  EXPECT_TRUE(solver.GetRhs().empty());
  ASSERT_EQ(solver.GetResult().size(), p.size());
  EXPECT_EQ(std::memcmp(solver.GetResult().data(), p.data(), p.size() * sizeof(double)), 0);
}

TEST(LinearSolvers, AgreeOnOneSystem) {
  for (const double open : {1.0, 0.75}) {
    const System system({16, 16, 16}, open, true, 31);
    Grid_CGSolver cg;
    cg.mAccuracy.tolerance = 1e-10;
    system.Fill(cg);
    ASSERT_TRUE(cg.Solve());
    Grid_GaussSolver gauss;
    gauss.mAccuracy = {5000, 1e-11};
    system.Fill(gauss);
    Relax(gauss);
    double top = 0;
    for (const double p : cg.GetResult()) top = std::max(top, std::fabs(p));
    EXPECT_LT(Distance(cg.GetResult(), gauss.GetResult()), 1e-8 * top);
    EXPECT_LT(gauss.MeasureResidual(), 1e-9);
    Grid_MultigridSolver multigrid;
    multigrid.mAccuracy.tolerance = 1e-10;
    system.Fill(multigrid);
    ASSERT_TRUE(multigrid.Solve());
    EXPECT_LT(Distance(cg.GetResult(), multigrid.GetResult()), 1e-8 * top);
    EXPECT_LT(system.Residual(multigrid.GetResult()), 1e-10);
  }
}

TEST(LinearSolvers, GiveTheSameBytesForEveryThreadCount) {
  const System system({21, 18, 37}, 0.9, true, 4), large({44, 41, 37}, 0.9, true, 5);
  std::vector<std::vector<double>> cgResults, gaussResults, multigridResults;
  std::vector<i32> iterations;
  for (const i32 threads : {1, 2, 3, 7}) {
    Grid_CGSolver cg;
    cg.mThreads = threads;
    system.Fill(cg);
    EXPECT_TRUE(cg.Solve());
    iterations.push_back(cg.mIterations);
    cgResults.emplace_back(cg.GetResult().begin(), cg.GetResult().end());
    Grid_GaussSolver gauss;
    gauss.mThreads = threads;
    gauss.mAccuracy = {30, 1e-8};
    system.Fill(gauss);
    Relax(gauss);
    gaussResults.emplace_back(gauss.GetResult().begin(), gauss.GetResult().end());
    Grid_MultigridSolver multigrid;
    multigrid.mThreads = threads;
    large.Fill(multigrid);
    EXPECT_TRUE(multigrid.Solve());
    multigridResults.emplace_back(multigrid.GetResult().begin(), multigrid.GetResult().end());
  }
  for (std::size_t i = 1; i < cgResults.size(); ++i) {
    EXPECT_EQ(iterations[i], iterations[0]);
    const std::size_t bytes = cgResults[0].size() * sizeof(double);
    EXPECT_EQ(std::memcmp(cgResults[i].data(), cgResults[0].data(), bytes), 0);
    EXPECT_EQ(std::memcmp(gaussResults[i].data(), gaussResults[0].data(), bytes), 0);
    EXPECT_EQ(std::memcmp(multigridResults[i].data(), multigridResults[0].data(),
                          multigridResults[0].size() * sizeof(double)),
              0);
  }
}
