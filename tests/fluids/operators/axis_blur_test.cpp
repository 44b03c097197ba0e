// Blurs in a room with walls inside.
#include "fluids/operators/axis_blur.h"

#include <gtest/gtest.h>

#include "fluids/operators/grid_diffusion.h"
#include "grids/random_stream.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr VecInt3D kCells{14, 12, 13};

/// A closed box of a flow with a ball in it and a slab across, between `kLow` and `kHigh` along x,
/// which leaves a door.
struct Room {
  static constexpr i32 kLow = 6, kHigh = 8;
  GridLayout layout;
  GridBoundary boundary;
  ScalarWalls walls;
  ThinFaces thin;
  OpenLinks links;
  EGrid<double> field;

  static GridLayout Layout() {
    GridLayout made;
    made.Set(kCells, Vec3d{1, 1, 1}, 0.1f, {});
    return made;
  }
  explicit Room(bool hasDoor, i32 threads = 1) : layout(Layout()), field(layout, kCentre) {
    boundary.mWalls = kWallsAll;
    boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
    boundary.Build(threads);
    EGrid<double>& level = *boundary.mLevelSet;
    ForEachCell({{0, 0, 0}, level.Dims()}, [&](i32 x, i32 y, i32 z) {
      const double ball = Length(Vec3d{x - 3.0, y - 5.0, z - 7.0}) - 1.6;
      double slab = std::max(kLow - x, x - kHigh);
      if (hasDoor) slab = std::max<double>(slab, 4 - y);
      level(x, y, z) = std::min({level(x, y, z), 0.1 * ball, 0.1 * slab});
    });
    walls.Build(boundary, nullptr, thin, threads);
    EXPECT_TRUE(links.Build(field, {{layout, walls, thin}}, threads));
  }
  double Sum(i32 first, i32 last) const {
    double sum = 0;
    ForEachCell({{first, 1, 1}, {last, kCells.y - 1, kCells.z - 1}},
                [&](i32 x, i32 y, i32 z) { sum += field(x, y, z); });
    return sum;
  }
  void Blur(double width) {
    const std::vector<double> kernel = GridDiffusion::MakeKernel(width, 40);
    for (i32 axis = 0; axis < 3; ++axis) {
      EGrid<double> source = field;
      AxisBlur(source, field, axis, kernel, links, 1e9).Run({});
    }
  }
};

}  // namespace

TEST(AxisBlur, StaysOnItsSideOfAWall) {
  for (const double width : {0.5, 3.0, 20.0}) {
    Room room(false);
    ForEachCell({{1, 1, 1}, {Room::kLow, kCells.y - 1, kCells.z - 1}}, [&](i32 x, i32 y, i32 z) {
      if (!room.walls.IsClosed({x, y, z})) room.field(x, y, z) = 1 + 0.1 * y + 0.01 * z * x;
    });
    const double before = room.Sum(1, Room::kLow);
    room.Blur(width);
    EXPECT_NEAR(room.Sum(1, Room::kLow) / before, 1, 1e-13) << width;
    EXPECT_EQ(room.Sum(Room::kLow, kCells.x - 1), 0) << width;
    EXPECT_EQ(room.field(3, 5, 7), 0) << "the ball stays empty";
  }
}

TEST(AxisBlur, AnEvenFieldStaysRoundSolidsAndWhatPassesADoorIsTheSame) {
  Room even(true);
  ForEachCell({{1, 1, 1}, kCells - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
    even.field(x, y, z) = even.walls.IsClosed({x, y, z}) ? 0 : 0.5;
  });
  even.Blur(2.5);
  ForEachCell({{1, 1, 1}, kCells - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
    ASSERT_NEAR(even.field(x, y, z), even.walls.IsClosed({x, y, z}) ? 0 : 0.5, 1e-14);
  });

  Room room(true);
  room.field(5, 2, 6) = 1;
  room.Blur(2.5);
  EXPECT_NEAR(room.Sum(1, kCells.x - 1), 1, 1e-13);
  EXPECT_GT(room.Sum(Room::kHigh, kCells.x - 1), 0.05);
}
