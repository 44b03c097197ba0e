// Scalars beside, under and behind solids that move.
#include <gtest/gtest.h>

#include <cmath>

#include "fluids/flow/scalar_walls.h"
#include "fluids/mesh/mesh_rig.h"
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
  const auto held = tube.walls.HandOver(kValues, 3, tube.field);
  EXPECT_EQ(held.stuck, 0);
  EXPECT_NEAR(held.given, 0.5 * 2 * 64, 1e-12);
  EXPECT_NEAR(tube.Sum(1, 5), behind, 1e-12);
  EXPECT_NEAR(tube.Sum(7, 9), ahead, 1e-12);
  // From here on the solid hands over what is emitted into it, too.
  tube.Place(5, 7);
  tube.field(5, 4, 4) = 2;
  EXPECT_EQ(tube.walls.HandOver(kValues, 1, tube.field).stuck, 0);
  EXPECT_NEAR(tube.field(4, 4, 4), 2, 1e-12);

  Tube started(0.5);
  ScalarWalls::Values values = kValues;
  values.initial = 0.5;
  started.Place(3, 5);
  EXPECT_NEAR(started.walls.HandOver(values, 1, started.field).stuck, 0.5 * 2 * 64, 1e-12);
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

TEST(ScalarWalls, TheFirstStepKnowsWhereSolidsComeFrom) {
  // A block of 12 by 8 by 8 cells goes 1.2 cells in one step: it covers a layer and leaves one.
  constexpr double kStart = 0.5;
  for (const double way : {6.0, -6.0}) {
    MeshRig rig(host::MakeBox({.size = {60, 40, 40}}), 0.05);
    rig.AddVolume();
    for (const i32 frame : {0, 1}) {
      rig.Place({frame * way, 0, 0});
      rig.Frame(frame);
    }
    ASSERT_TRUE(rig.GetVolume().ResolveLinks());
    GridBoundary boundary;
    boundary.mObstacles = {&rig.GetVolume()};
    GridLayout layout;
    layout.Set({36, 20, 20}, Vec3d{180, 100, 100}, 0.05f, {-90, -50, -50});
    boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
    boundary.Build(1);
    ScalarWalls walls;
    walls.Build(boundary, nullptr, {}, 1);
    EGrid<double> field(layout, kCentre);
    field.Fill(kStart);
    const ScalarWalls::Values values{.nothing = 0, .outside = 0, .initial = kStart};
    EXPECT_EQ(walls.HandOver(values, 3, field).stuck, 0.5 * 8 * 8 * 12)
        << "it held that at the start";
    double held[2] = {}, wanted[2] = {};
    ForEachCell({{0, 0, 0}, layout.dims}, [&](i32 x, i32 y, i32 z) {
      const bool ahead = field.PositionOf(x, y, z).x * way > 0;
      const bool inside = x >= 12 && x < 24 && y >= 6 && y < 14 && z >= 6 && z < 14;
      held[ahead] += field(x, y, z);
      if (!inside) wanted[ahead] += kStart;
    });
    EXPECT_NEAR(held[0], wanted[0], 1e-9) << "behind";
    EXPECT_NEAR(held[1], wanted[1], 1e-9) << "ahead";
  }
}

TEST(ScalarWalls, WhatWasEmittedIntoAThinWallAtTheStartGoesAheadOfIt) {
  // A plate of 0.6 cells round the centres of a layer goes 1.2 cells in the first step.
  for (const double way : {6.0, -6.0}) {
    MeshRig rig(host::MakeBox({.size = {80, 3, 80}}));
    rig.AddVolume();
    rig.volumeNode->AddTag(host::kObstacleTag);
    for (const i32 frame : {0, 1}) {
      rig.Place({2.5 + frame * way, 0, 0}, {0, 0, 90});
      rig.Frame(frame);
    }
    ASSERT_TRUE(rig.GetVolume().ResolveLinks());
    ASSERT_TRUE(rig.GetVolume().AfterLinks());
    GridLayout layout;
    layout.Set({36, 8, 8}, Vec3d{180, 40, 40}, 0.05f, {-90, -20, -20});
    GridBoundary boundary;
    boundary.mObstacles = {&rig.GetVolume()};
    boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
    boundary.Build(1);
    ThinFaces thin;
    thin.Build(boundary, 1);
    ASSERT_TRUE(thin.HasAny());
    ScalarWalls walls;
    walls.Build(boundary, nullptr, thin, 1);
    EGrid<double> field(layout, kCentre);
    ForEachCell({{18, 1, 1}, {19, 7, 7}}, [&](i32 x, i32 y, i32 z) { field(x, y, z) = 1; });
    EXPECT_NEAR(walls.HandOver(kValues, 3, field).given, 36, 1e-9);
    double ahead = 0;
    ForEachCell({{0, 0, 0}, layout.dims}, [&](i32 x, i32 y, i32 z) {
      if ((100 * field.PositionOf(x, y, z).x - 2.5 - way) * way > 0) ahead += field(x, y, z);
    });
    EXPECT_NEAR(ahead, 36, 1e-9);
  }
}

TEST(ScalarWalls, WhatAThinWallPassesOverStaysBeforeIt) {
  // Across a tube of 36 by 8 by 8 cells of 5 host units, a plane or a plate of 0.1 or 0.6 cells.
  for (const double thickness : {0.0, 0.5, 3.0})
    for (const double way : {1.5, 2.5, 6.0, -6.0})
      for (const double start : {0.0, 1.0, 2.5}) {
        MeshRig rig(thickness == 0 ? host::MakePlane({.size = {80, 0, 80}})
                                   : host::MakeBox({.size = {80, thickness, 80}}));
        rig.AddVolume();
        rig.volumeNode->AddTag(host::kObstacleTag);
        GridLayout layout;
        layout.Set({36, 8, 8}, Vec3d{180, 40, 40}, 0.05f, {-90, -20, -20});
        GridBoundary boundary;
        boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
        ScalarWalls walls;
        ThinFaces thin;
        EGrid<double> field(layout, kCentre);
        double total = 0;
        for (i32 frame = 0; frame < 9; ++frame) {
          const double at = start + frame * way;
          rig.Place({at, 0, 0}, {0, 0, 90});
          rig.Frame(frame);
          ASSERT_TRUE(rig.GetVolume().ResolveLinks());
          ASSERT_TRUE(rig.GetVolume().AfterLinks());
          boundary.mObstacles = {&rig.GetVolume()};
          boundary.Build(1);
          thin.Build(boundary, 1);
          ASSERT_TRUE(thin.HasAny());
          const auto isAhead = [&](i32 x, double wall) {
            return (field.PositionOf(x, 4, 4).x - wall / 100) * way > (way > 0 ? 1e-7 : -1e-7);
          };
          const auto sum = [&](bool ahead) {
            double held = 0;
            ForEachCell({{1, 1, 1}, layout.dims - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
              if (isAhead(x, at) == ahead) held += field(x, y, z);
            });
            return held;
          };
          walls.Build(boundary, nullptr, thin, 1);
          if (frame == 0) {
            ForEachCell({{1, 1, 1}, layout.dims - VecInt3D{1, 1, 1}},
                        [&](i32 x, i32 y, i32 z) { field(x, y, z) = isAhead(x, at); });
            walls.Clear(kValues, field);
            total = sum(true);
            continue;
          }
          ASSERT_EQ(walls.HandOver(kValues, 3, field).stuck, 0) << "in frame " << frame;
          ASSERT_EQ(sum(false), 0)
              << thickness << " thick, by " << way << " from " << start << " in frame " << frame;
          ASSERT_NEAR(sum(true), total, 1e-9);
        }
      }
}
