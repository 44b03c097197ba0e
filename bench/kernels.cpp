// Times the kernels of a gas step on a cube of cells: nanoseconds per cell, and the memory that a
// kernel has to move at least as a share of what this machine streams.
//
//   bench_kernels [--size 128] [--threads 1] [--repeats 9]
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cmath>

#include "fluids/advection/advection_kernel.h"
#include "fluids/pressure/grid_cg_solver.h"
#include "fluids/pressure/grid_gauss_solver.h"
#include "fluids/pressure/grid_multigrid_solver.h"
#include "fluids/pressure/line_kernels.h"
#include "grids/fixed_blocks.h"
#include "timing.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

struct Settings {
  i32 size = 128;
  i32 threads = 1;
  i32 repeats = 9;
};

/// Bytes a second of a[i] = b[i] + s c[i], with the write counted once.
double Triad(const Settings& s) {
  constexpr i64 kLength = i64{1} << 24, kBlock = kLength / 64;
  std::vector<double> a(kLength, 1.0), b(kLength, 2.0), c(kLength, 3.0);
  const double wall = Best(
      [&] {
        ForEachBlock(64, s.threads, [&](i32 block) {
          for (i64 i = block * kBlock; i < (block + 1) * kBlock; ++i) a[i] = b[i] + 0.5 * c[i];
        });
      },
      s.repeats);
  return 24.0 * kLength / wall;
}

void Print(const char* name, double wall, double cells, double bytesPerCell, double bandwidth) {
  fmt::print("{:44} {:8.2f} ns/cell", name, wall * 1e9 / cells);
  if (bytesPerCell > 0)
    fmt::print("  {:5.1f} GB/s, {:3.0f} % of the triad", bytesPerCell * cells / wall / 1e9,
               100 * bytesPerCell * cells / wall / bandwidth);
  fmt::print("\n");
}

/// A box of gas with open sides and a ball of solid in it.
template <class Solver>
void FillPoisson(Solver& solver, const Settings& s) {
  const i32 n = s.size;
  solver.mDims = {n, n, n};
  solver.mThreads = s.threads;
  solver.mOwner = &solver;
  solver.Prepare();
  LatticeMatrix& matrix = solver.GetMatrix();
  const auto isSolid = [n](i32 x, i32 y, i32 z) {
    const double dx = x - 0.5 * n, dy = y - 0.4 * n, dz = z - 0.5 * n;
    return dx * dx + dy * dy + dz * dz < 0.02 * n * n;
  };
  for (i32 z = 1; z < n - 1; ++z)
    for (i32 y = 1; y < n - 1; ++y)
      for (i32 x = 1; x < n - 1; ++x) {
        if (isSolid(x, y, z)) continue;
        const i32 c = (n * z + y) * n + x;
        const i32 steps[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
        for (i32 axis = 0; axis < 3; ++axis)
          for (const i32 side : {1, -1}) {
            const i32* d = steps[axis];
            if (isSolid(x + side * d[0], y + side * d[1], z + side * d[2])) continue;
            matrix.AddToElement(c, c, 1.0);
            matrix.AddToElement(c, c + side * matrix.Offset(axis), -1.0);
          }
        solver.GetRhs()[c] = std::sin(0.1 * x) * std::cos(0.13 * y + 0.07 * z);
      }
}

void TimeSolvers(const Settings& s, double bandwidth) {
  const double cells = std::pow(s.size, 3);
  Grid_MultigridSolver multigrid;
  FillPoisson(multigrid, s);
  LatticeMatrix& matrix = multigrid.GetMatrix();
  matrix.FindLines(s.threads);
  std::vector<double> a(static_cast<std::size_t>(cells), 1.0), b(a.size());
  const double multiply = Best(
      [&] {
        ForEachBlock(s.size - 2, s.threads, [&](i32 block) {
          for (i32 y = 1; y < s.size - 1; ++y) {
            const LatticeMatrix::Line& line = matrix.LineAt(y, block + 1);
            const i32 c = line.base + line.first;
            MultiplyLine(Bands(matrix, c), a.data() + c, b.data() + c, line.last - line.first);
          }
        });
      },
      s.repeats);
  Print("7-point product", multiply, cells, 48, bandwidth);
  Multigrid levels;
  const double build = Best([&] { levels.Build(matrix, s.threads); }, s.repeats);
  Print("multigrid: forming the levels", build, cells, 56, bandwidth);
  for (i64 i = 0; i < static_cast<i64>(a.size()); ++i)
    levels.FinestRhs()[i] = static_cast<float>(multigrid.GetRhs()[i]);
  const double cycle = Best([&] { levels.Cycle(a.data()); }, s.repeats);
  Print("multigrid: a V-cycle", cycle, cells, 135, bandwidth);

  const auto solve = [&](auto& solver, const char* name, double tolerance, i32 limit) {
    double best = 1e9;
    for (i32 i = 0; i < 3; ++i) {
      FillPoisson(solver, s);
      solver.mAccuracy = {limit, tolerance};
      best = std::min(best, Best([&] { solver.Solve(); }, 1));
    }
    Print(fmt::format("{}, {} iterations", name, solver.mIterations).c_str(), best, cells, 0,
          bandwidth);
  };
  solve(multigrid, "multigrid to 1e-6", 1e-6, 100);
  solve(multigrid, "multigrid to 1e-10", 1e-10, 100);
  Grid_CGSolver cg;
  solve(cg, "incomplete Cholesky to 1e-6", 1e-6, 1000);
}

void TimeAdvection(const Settings& s, double bandwidth) {
  const i32 n = s.size;
  const double cells = std::pow(n, 3), h = 1.0 / n;
  GridLayout layout;
  layout.Set({n, n, n}, ToReal(VecInt3D{n, n, n}) * (100.0 * h), static_cast<f32>(h), {});
  GridBoundary boundary;
  boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
  boundary.mLevelSet->Fill(std::numeric_limits<double>::max());
  std::array<std::unique_ptr<EGrid<double>>, 3> velocity;
  for (i32 axis = 0; axis < 3; ++axis) {
    velocity[axis] = std::make_unique<EGrid<double>>(layout, axis);
    for (i32 i = 0; i < velocity[axis]->mCount; ++i)
      velocity[axis]->mData[i] = 0.7 * std::sin(1e-4 * i + axis);
  }
  EGrid<double> source(layout, kCentre), destination(layout, kCentre);
  for (i32 i = 0; i < source.mCount; ++i) source.mData[i] = std::cos(1e-3 * i);
  Grid<double> predicted({n, n, n}, kCentre);
  Grid<u8> open({n, n, n}, kCentre);
  open.Fill(0xff);
  Grid<i32> starts({n, n, n}, kCentre);
  Grid<u8> marks({n, n, n}, kCentre);
  const AdvectedField field{&source, &destination, &predicted};
  AdvectionData data{.velocity = {*velocity[0], *velocity[1], *velocity[2]},
                     .fields = {&field, 1},
                     .boundary = &boundary,
                     .solidCells = &open,
                     .step = 2 * h,
                     .starts = &starts,
                     .marks = &marks};
  const auto time = [&](const char* name, auto pass, double bytes) {
    const double wall = Best(
        [&] {
          ForEachBlock(n - 2, s.threads, [&](i32 z) {
            pass(data, CellBox{{1, 1, z + 1}, {n - 1, n - 1, z + 2}});
          });
        },
        s.repeats);
    Print(name, wall, cells, bytes, bandwidth);
  };
  const char* orders[] = {"Euler", "Heun", "Runge-Kutta 3", "Runge-Kutta 4"};
  for (data.order = 0; data.order < 4; ++data.order)
    time(fmt::format("advection: semi-Lagrangian, {}", orders[data.order]).c_str(), AdvectBackward,
         40);
  data.order = 0;
  time("MacCormack: prediction", Predict, 40);
  time("MacCormack: correction", Correct, 48);
}

}  // namespace

int main(int argc, char** argv) {
  Settings s;
  CLI::App app{"Times the kernels of a gas step."};
  app.add_option("--size", s.size, "cells along a side")->check(CLI::Range(8, 512));
  app.add_option("--threads", s.threads)->check(CLI::Range(1, host::kMaxWorkers));
  app.add_option("--repeats", s.repeats)->check(CLI::Range(1, 1000));
  CLI11_PARSE(app, argc, argv);
  host::SetThreadCount(s.threads);
  const double bandwidth = Triad(s);
  fmt::print("{}^3 cells, {} thread(s), triad {:.1f} GB/s\n", s.size, s.threads, bandwidth / 1e9);
  TimeSolvers(s, bandwidth);
  TimeAdvection(s, bandwidth);
}
