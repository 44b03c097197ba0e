#include "fluids/flow/thin_faces.h"

#include <gtest/gtest.h>

#include <deque>

#include "fluids/flow/gap_solids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// The same with its axes changed round: x becomes y, y z, and z x.
TriMeshSTL Cycled(TriMeshSTL mesh, i32 times) {
  for (i32 i = 0; i < times; ++i)
    for (Vec3d& v : mesh.GetVertices()) v = {v.z, v.x, v.y};
  mesh.UpdateBounds();
  return mesh;
}

/// A plate that stands across x, without an end along z: between two heights, all in cells.
TriMeshSTL Plate(double x, double thickness, double low, double high) {
  return GapBlock({x, (low + high) / 2, 8}, {thickness, high - low, 60});
}

/// Whether open faces lead from low to high along an axis in a closed room.
bool LeadsThrough(std::vector<TriMeshSTL> meshes, i32 axis = 0, GapSolids* into = nullptr) {
  for (TriMeshSTL& mesh : meshes) mesh = Cycled(std::move(mesh), axis);
  GapSolids own(std::move(meshes), kWallsAll);
  GapSolids& solids = into ? * into = std::move(own) : own;
  solids.CloseThinWalls();
  const VecInt3D n = solids.boundary.GetLevelSet()->mLayout.dims;
  Grid<u8> seen(n, kCentre);
  seen.Fill(0);
  std::deque<VecInt3D> next;
  const auto visit = [&](const VecInt3D& cell) {
    if (std::exchange(seen(cell.x, cell.y, cell.z), 1) == 0) next.push_back(cell);
  };
  VecInt3D from{8, 8, 8}, to = from;
  from[axis] = 2;
  to[axis] = kGapCells - 3;
  for (visit(from); !next.empty(); next.pop_front())
    for (i32 a = 0; a < 3; ++a)
      for (i32 side = 0; side < 2; ++side) {
        VecInt3D cell = next.front(), face = cell;
        cell[a] += side ? 1 : -1;
        face[a] += side;
        if (cell[a] < 1 || cell[a] > kGapCells - 2) continue;
        if (solids.Open(a, face.x, face.y, face.z) > 0) visit(cell);
      }
  return seen(to.x, to.y, to.z) != 0;
}

TEST(ThinFaces, SlotsOfACellAreOpenAndFlushPlatesTight) {
  i32 axis = 0;
  for (const double thickness : {0.0, 0.05, 0.5, 1.5})
    for (const double x : {8.0, 8.1, 8.25, 8.5})
      for (const double edge : {7.0, 7.5}) {
        axis = (axis + 1) % 3;
        const TriMeshSTL below = Plate(x, thickness, -20, edge);
        const auto above = [&](double gap, double off) {
          return Plate(x + off, thickness, edge + gap, 40);
        };
        const auto where = [&] {
          return ::testing::Message()
                 << thickness << " thick at " << x << ", edge " << edge << ", axis " << axis;
        };
        ASSERT_TRUE(LeadsThrough({below, above(1, 0)}, axis)) << where();
        ASSERT_FALSE(LeadsThrough({below, above(0, 0)}, axis)) << where();
        ASSERT_FALSE(LeadsThrough({Joined(below, above(0, 0))}, axis)) << where();
        ASSERT_TRUE(LeadsThrough({Joined(below, above(1, 0))}, axis)) << where();
        if (thickness == 0) continue;
        // One a little or wholly before the other: they touch.
        for (const double off : {0.5 * thickness, -thickness})
          ASSERT_FALSE(LeadsThrough({below, above(0, off)}, axis)) << where() << " " << off;
      }
}

TEST(ThinFaces, RimsThatMeetSolidsAreTight) {
  for (const double thickness : {0.0, 0.05, 0.5, 1.5})
    for (const double x : {8.0, 8.5, 8.8})
      for (const double edge : {7.0, 7.2, 7.5, 7.7, 7.93}) {
        const TriMeshSTL floor = GapBlock({8, edge - 10, 8}, {60, 20, 60});
        EXPECT_FALSE(LeadsThrough({Plate(x, thickness, edge, 40), floor})) << thickness << edge;
        // The floor begins at the plate: the face that it ends in is partly the one's and partly
        // the other's.
        const TriMeshSTL block = GapBlock({x + 10, edge - 10, 8}, {20, 20, 60});
        EXPECT_FALSE(LeadsThrough({Plate(x, thickness, edge, 40), block})) << thickness << edge;
        const TriMeshSTL shelf = GapBlock({8, edge - thickness / 2, 8}, {60, thickness, 60});
        if (thickness == 0) continue;
        EXPECT_FALSE(LeadsThrough({Plate(x, thickness, edge, 40), shelf})) << thickness << edge;
      }
}

// Also where a side of the wall lies in nodes, whose distances know nothing of its end.
TEST(ThinFaces, GapsUnderWallsStayOpen) {
  for (const double thickness : {0.0, 0.05, 0.5})
    for (const double x : {8.3, 8 + thickness / 2})
      for (const double top : {6.7, 7.0, 7.2, 7.4}) {
        const TriMeshSTL floor = GapBlock({8, top - 4, 8}, {28, 8, 28});
        for (const double gap : {0.55, 0.8, 1.0})
          EXPECT_TRUE(LeadsThrough({Plate(x, thickness, top + gap, 20), floor}))
              << thickness << " at " << x << " " << top << " " << gap;
      }
}

// The strip over the floor is as open below the wall and beside it as away from it.
TEST(ThinFaces, WallsAboveAFloorTakeNothingOfIt) {
  for (const double top : {7.5, 7.7}) {
    GapSolids solids({Plate(8.27, 0.5, top + 0.5, 20), GapBlock({8, top - 4, 8}, {28, 8, 28})});
    solids.CloseThinWalls();
    for (i32 x = 4; x <= 13; ++x) EXPECT_NEAR(solids.Open(0, x, 7, 8), 8 - top, 1e-6) << x;
  }
}

/// A wall on a floor, or on one and up to a ceiling or a block behind it (cells, angles).
struct AskewWall {
  enum Beside { kNothing, kCeiling, kBlock } beside;
  double thickness, aboutZ, aboutY, floor, x, z, foot;
  i32 axis;

  std::vector<TriMeshSTL> Solids() const { return {Wall(-foot, 22), Floor(), Other()}; }
  /// A slot of some width in it, all along the floor.
  std::vector<TriMeshSTL> WithSlot(double width) const { return {Wall(width, 22), Floor()}; }

 private:
  TriMeshSTL Wall(double low, double high) const {
    const Vec3d up = TurnedBox({}, {1, 1, 1}, aboutZ, aboutY, 1).axis[1];
    const Vec3d middle = Vec3d{x, floor, z} + up * ((low + high) / 2);
    return TurnedBox(middle, {thickness, high - low, 36}, aboutZ, aboutY, kGapCell).mesh;
  }
  TriMeshSTL Floor() const { return GapBlock({8, floor - 4, 8}, {28, 8, 28}); }
  TriMeshSTL Other() const {
    if (beside == kCeiling) return GapBlock({8, 13.37 + 4, 8}, {28, 8, 28});
    return beside == kBlock ? GapBlock({8, 8, 3.41 - 4}, {28, 28, 8}) : Floor();
  }
};

TEST(ThinFaces, AskewWallsOnFloorsAreTightAndTheirSlotsOpen) {
  using enum AskewWall::Beside;
  const AskewWall walls[] = {
      {kNothing, 0, 0.71, 0.342, 4.638, 9.175, 8.927, 0.02, 2},
      {kCeiling, 0.05, 0.35, 0.18, 4.848, 7.059, 7.691, 0.037, 0},
      {kNothing, 0.05, -0.435, 0.35, 4.875, 8.566, 7.327, 0.041, 2},
      {kNothing, 0.05, 0.202, 0.21, 4.793, 7.914, 8.265, 0.03, 1},
      {kNothing, 0, 0.374, 0.35, 4.822, 7.681, 7.818, 0.1, 2},
      {kBlock, 0, 0.328, 0.2, 4.93, 7.473, 8.729, 0.1, 0},
      {kBlock, 0.05, -0.41, -0.3, 4.83, 7.832, 8.662, 0.32, 0},
      {kBlock, 0.05, 0.52, 0, 4.66, 6.759, 7.883, 0.125, 2},
      {kBlock, 0.05, 0.201, -0.031, 4.7, 7.716, 8.992, 0.03, 0},
      {kNothing, 0, 0.475, 0.2, 4.881, 7.549, 8.118, 0.3, 0},
  };
  for (const AskewWall& wall : walls) {
    const auto where = [&] { return ::testing::Message() << &wall - walls; };
    EXPECT_FALSE(LeadsThrough(wall.Solids(), wall.axis)) << where();
    EXPECT_TRUE(LeadsThrough(wall.WithSlot(1.5), wall.axis)) << where();
  }
}

/// Two halves of a sheet, one before the other, and what joins them lies in centres.
TEST(ThinFaces, FoldsThroughCentresAreTight) {
  const auto folded = [](bool isJoined) {
    TriMeshSTL mesh;
    const double steps[4][2] = {{7.8, 30}, {7.8, 7.5}, {9.2, 7.5}, {9.2, -20}};
    for (const double(&p)[2] : steps)
      for (const double z : {-20.0, 40.0})
        mesh.GetVertices().push_back(Vec3d{p[0], p[1], z} * double{kGapCell});
    for (i32 i = 0; i < 6; i += 2)
      if (i != 2 || isJoined) {
        mesh.GetTriangles().push_back({i, i + 1, i + 2});
        mesh.GetTriangles().push_back({i + 1, i + 3, i + 2});
      }
    mesh.UpdateBounds();
    return mesh;
  };
  for (i32 axis = 0; axis < 3; ++axis) {
    EXPECT_FALSE(LeadsThrough({folded(true)}, axis));
    EXPECT_TRUE(LeadsThrough({folded(false)}, axis));
  }
}

TEST(ThinFaces, WhatRimsLeaveOpenIsNoPartOfTheWall) {
  // The slot's edges and the wall's other side lie in centres.
  const auto wall = [](double low) {
    return std::vector{Plate(8.25, 0.5, -20, 7.5), Plate(8.25, 0.5, low, 40)};
  };
  GapSolids open({}), tight({}), onNodes({});
  ASSERT_TRUE(LeadsThrough(wall(8.5), 0, &open));
  ASSERT_FALSE(LeadsThrough(wall(7.5), 0, &tight));
  ASSERT_TRUE(LeadsThrough({Plate(8.25, 0.5, -20, 7), Plate(8.25, 0.5, 8, 40)}, 0, &onNodes));
  for (i32 z = 4; z < 12; ++z) {
    for (const i32 y : {7, 8}) {
      EXPECT_FALSE(open.thin.IsFilled({8, y, z}));
      EXPECT_FALSE(open.thin.ClosesFace(0, 8, y, z));
    }
    EXPECT_TRUE(open.thin.IsFilled({8, 6, z}));
    EXPECT_TRUE(tight.thin.IsFilled({8, 7, z}));
    EXPECT_EQ(onNodes.Open(0, 8, 7, z), 1.0f);
    for (const i32 y : {7, 8}) EXPECT_EQ(open.Open(0, 8, y, z), 0.5f) << "two halves of a cell";
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
