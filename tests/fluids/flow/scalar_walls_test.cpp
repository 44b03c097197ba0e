// Scalars beside, under and behind solids that move.
#include <gtest/gtest.h>

#include <cmath>

#include "fluids/flow/scalar_walls.h"
#include "grids/for_each_cell.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr i32 kCells = 10;
constexpr ScalarWalls::Values kValues{.nothing = 0, .outside = 7, .initial = 0};

/// A tube along x with cells [1, 9) inside, closed but for its high x side, and a slab that fills
/// the cells from `low` to `high` - 1.
struct Tube {
  GridBoundary boundary;
  ScalarWalls walls;
  EGrid<double> field;

  static GridLayout Layout() {
    GridLayout layout;
    layout.Set({kCells, kCells, kCells}, Vec3d{1, 1, 1}, 0.1f, {});
    return layout;
  }
  explicit Tube(double value) : field(Layout(), kCentre) {
    boundary.mWalls = kWallsAll & ~kWallHighX;
    boundary.mLevelSet = std::make_unique<EGrid<double>>(Layout(), kNode);
    field.Fill(value);
  }
  void Place(i32 low, i32 high, i32 threads = 1) {
    boundary.Build(threads);
    EGrid<double>& level = *boundary.mLevelSet;
    ForEachCell({{0, 0, 0}, level.Dims()}, [&](i32 x, i32 y, i32 z) {
      level(x, y, z) = std::min(level(x, y, z), 0.1 * std::max(low - x, x - high));
    });
    walls.Build(boundary, nullptr, {}, threads);
  }
  double Sum(i32 first, i32 last) const {
    double sum = 0;
    ForEachCell({{first, 1, 1}, {last, kCells - 1, kCells - 1}},
                [&](i32 x, i32 y, i32 z) { sum += field(x, y, z); });
    return sum;
  }
};

}  // namespace

TEST(ScalarWalls, FieldsGoOnBehindWallsAndUnderSolids) {
  for (const i32 threads : {1, 3}) {
    Tube tube(0);
    tube.Place(4, 7, threads);
    ForEachCell({{1, 1, 1}, {9, 9, 9}}, [&](i32 x, i32 y, i32 z) {
      if (x < 4 || x >= 7) tube.field(x, y, z) = x + 10 * y;
    });
    tube.walls.Fill(kValues, false, tube.field);
    EXPECT_EQ(tube.field(0, 5, 5), 51) << "behind a wall";
    EXPECT_EQ(tube.field(2, 0, 0), 12) << "behind an edge";
    EXPECT_EQ(tube.field(9, 5, 5), 7) << "outside of an open side";
    EXPECT_EQ(tube.field(4, 5, 5), 53) << "the first cell of a solid";
    EXPECT_EQ(tube.field(6, 5, 5), 57);
    EXPECT_EQ(tube.field(5, 5, 5), 0) << "deep in it";
    tube.field(4, 5, 5) = 3;
    tube.walls.Fill(kValues, false, tube.field);
    EXPECT_EQ(tube.field(4, 5, 5), 3) << "what is emitted there counts";
    tube.walls.Clear(kValues, tube.field);
    EXPECT_EQ(tube.field(0, 5, 5), 51);
  }
}

TEST(ScalarWalls, WhatASolidCoversGoesToItsOwnSide) {
  // Two cells in one step, which would carry smoke through a solid that kept what it covers.
  Tube tube(0.5);
  tube.Place(3, 5);
  tube.walls.Clear(kValues, tube.field);
  const double behind = tube.Sum(1, 3), ahead = tube.Sum(5, 9);
  EXPECT_NEAR(behind, 0.5 * 2 * 64, 1e-12);
  tube.Place(5, 7);
  EXPECT_EQ(tube.walls.HandOver(kValues, 3, tube.field), 0);
  EXPECT_NEAR(tube.Sum(1, 5), behind, 1e-12);
  EXPECT_NEAR(tube.Sum(7, 9), ahead, 1e-12);
  // From here on the solid hands over what is emitted into it, too.
  tube.Place(5, 7);
  tube.field(5, 4, 4) = 2;
  EXPECT_EQ(tube.walls.HandOver(kValues, 1, tube.field), 0);
  EXPECT_NEAR(tube.field(4, 4, 4), 2, 1e-12);

  Tube started(0.5);
  ScalarWalls::Values values = kValues;
  values.initial = 0.5;
  started.Place(3, 5);
  started.walls.HandOver(values, 1, started.field);
  EXPECT_NEAR(started.field(2, 4, 4), 0.5, 1e-12) << "what a field starts with stays where it is";
}

TEST(ScalarWalls, CellsThatASolidLeavesContinueTheField) {
  Tube tube(0.5);
  tube.Place(3, 7);
  tube.walls.Clear(kValues, tube.field);
  tube.Place(6, 8);
  EXPECT_EQ(tube.Sum(3, 6), 0);
  tube.walls.Fill(kValues, false, tube.field);
  EXPECT_NEAR(tube.Sum(1, 6), 0.5 * 5 * 64, 1e-12);
  EXPECT_NEAR(tube.field(6, 5, 5), 0.5, 1e-12) << "and so does the solid's new side";
}
