#include "fluids/flow/narrow_gaps.h"

#include <gtest/gtest.h>

#include "fluids/flow/gap_solids.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

TEST(NarrowGaps, AreOpenByTheirWidthWhereverTheyLie) {
  enum class Between { kParts, kVolumes, kWall };
  for (const Between between : {Between::kParts, Between::kVolumes, Between::kWall})
    for (const double width : {0.5, 0.6, 1.0, 1.3, 1.7})
      for (i32 place = 0; place < 10; ++place) {
        // From `low` to `low + width`, along x and z.
        if (between == Between::kWall && place > 0) break;
        const double low = between == Between::kWall ? 1 : 6 + 0.1 * place;
        const TriMeshSTL below = GapBlock({8, low - 2, 8}, {6, 4, 40});
        const TriMeshSTL above = GapBlock({8, low + width + 2, 8}, {6, 4, 40});
        std::vector<TriMeshSTL> meshes;
        if (between == Between::kParts) meshes = {Joined(below, above)};
        if (between == Between::kVolumes) meshes = {below, above};
        if (between == Between::kWall) meshes = {above};
        const GapSolids solids(std::move(meshes), between == Between::kWall ? kWallLowY : 0);
        for (i32 x = 6; x <= 10; ++x) {
          double open = 0;
          i32 holding = 0;
          // From below one block's middle to above the other's.
          const i32 first = between == Between::kWall ? 1 : 3,
                    last = between == Between::kWall ? 5 : 10;
          for (i32 y = first; y < last; ++y) {
            open += solids.Open(0, x, y, 8);
            holding += solids.HoldsSmoke(x, y, 8) && solids.Open(0, x, y, 8) > 0;
          }
          ASSERT_NEAR(open, width, 0.02) << static_cast<int>(between) << " at " << low;
          ASSERT_GE(holding, 1) << width << " at " << low;
        }
      }
}

// In a plane of nodes its distances are 0 there, and nothing lies in it.
TEST(NarrowGaps, SheetsTakeNothingOfWhatAFloorLeavesOpen) {
  const TriMeshSTL sheet = TurnedBox({8, 8, 8}, {0, 6, 6}, M_PI / 2, 0, kGapCell).mesh;
  for (const double width : {0.3, 0.55, 0.8}) {
    GapSolids solids({sheet, GapBlock({8, 8 - width - 4, 8}, {28, 8, 28})});
    solids.CloseThinWalls();
    for (i32 x = 6; x <= 10; ++x) ASSERT_NEAR(solids.Open(0, x, 7, 8), width, 1e-6) << x;
    ASSERT_EQ(solids.Open(1, 8, 8, 8), 0);
  }
}

TEST(NarrowGaps, LeaveSingleSurfacesAsTheyAre) {
  for (const double angle : {0.0, 0.35}) {
    const GapSolids with({GapBlock(kGapMiddle, {5.3, 6, 7}, angle)}, kWallsAll);
    GapSolids without({GapBlock(kGapMiddle, {5.3, 6, 7}, angle)}, kWallsAll);
    without.fractions.Measure(1);
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<float>&a = *with.fractions.GetRead(axis, 1),
            &b = *without.fractions.GetRead(axis, 1);
      for (i32 i = 0; i < a.mCount; ++i) ASSERT_EQ(a[i], b[i]);
    }
  }
}

TEST(NarrowGaps, AreToldOfBelowHalfACellAndNoCreaseIs) {
  const auto placesIn = [](std::vector<TriMeshSTL> meshes, u8 walls = 0) {
    return GapSolids(std::move(meshes), walls).gaps.TakePlaces();
  };
  const TriMeshSTL below = GapBlock({8, 4, 8}, {6, 4, 6});
  for (const double width : {0.1, 0.3, 0.45})
    for (const double lift : {0.0, 0.05, 0.3, 0.77}) {
      const TriMeshSTL under = GapBlock({8, 4 + lift, 8}, {6, 4, 6});
      const TriMeshSTL over = GapBlock({8, 8 + lift + width, 8}, {6, 4, 6});
      const auto one = placesIn({Joined(under, over)});
      ASSERT_EQ(one.size(), 1u) << width << " " << lift;
      EXPECT_EQ(one[0].one, one[0].other);
      EXPECT_NEAR(one[0].width, width, 0.01);
      EXPECT_NEAR(one[0].at.y / kGapCell, 6 + lift + width / 2, 0.02);
      const auto two = placesIn({under, over});
      ASSERT_EQ(two.size(), 1u);
      EXPECT_NE(two[0].one, two[0].other);
      EXPECT_TRUE(two[0].other);
    }
  EXPECT_TRUE(placesIn({below, GapBlock({8, 8.6, 8}, {6, 4, 6})}).empty()) << "wide enough";
  const auto wall = placesIn({GapBlock({8, 3.3, 8}, {6, 4, 6})}, kWallLowY);
  ASSERT_EQ(wall.size(), 1u);
  EXPECT_FALSE(wall[0].other);
  EXPECT_NEAR(wall[0].width, 0.3, 0.01);

  // Between walls of a room.
  const auto tube = placesIn({GapBlock({8, 4, 8}, {40, 4, 6}), GapBlock({8, 8.3, 8}, {40, 4, 6})},
                             kWallLowX | kWallHighX | kWallLowZ | kWallHighZ);
  ASSERT_EQ(tube.size(), 1u);
  EXPECT_NEAR(tube[0].width, 0.3, 0.01);

  // Creases: solids that touch, blocks that lean on one another, and balls that cross.
  EXPECT_TRUE(placesIn({below, GapBlock({8, 8, 8}, {6, 4, 6})}).empty());
  for (const double angle : {0.08, 0.3, 0.6})
    EXPECT_TRUE(placesIn({below, GapBlock({10, 7.9, 8}, {6, 4, 6}, angle)}).empty()) << angle;
  const auto ball = [](double x, double radius) { return GapBall({x, 8, 8}, radius, 48); };
  for (const double apart : {7.0, 7.7, 7.86, 7.95}) {
    EXPECT_TRUE(placesIn({Joined(ball(4.2, 4), ball(4.2 + apart, 4))}).empty()) << apart;
    EXPECT_TRUE(placesIn({ball(4.2, 4), ball(4.2 + apart, 4)}).empty()) << apart << ", two";
  }
  const auto near = placesIn({ball(3.9, 4), ball(3.9 + 8.2, 4)});
  ASSERT_EQ(near.size(), 1u) << "these don't touch";
  EXPECT_NEAR(near[0].width, 0.2, 0.01);
}

// Triangles far smaller than a cell: what lies between the nodes is known to none of them.
TEST(NarrowGaps, BeforeFineCurvedSolidsHaveTheirTrueWidth) {
  for (const double width : {0.1, 0.3, 0.45, 0.55, 0.65})
    for (const double aside : {0.0, 0.27, 0.5})
      for (const bool isWall : {true, false}) {
        const Vec3d centre{1 + width + 4, 8 + aside, 8.2 - aside};
        std::vector<TriMeshSTL> meshes{GapBall(centre, 4)};
        if (!isWall) meshes.push_back(GapBlock({-1, 8, 8}, {4, 30, 30}));
        GapSolids solids(std::move(meshes), isWall ? kWallLowX : 0);
        const auto places = solids.gaps.TakePlaces();
        ASSERT_EQ(places.size(), width < 0.5 ? 1u : 0u) << width << " " << aside << " " << isWall;
        if (places.empty()) continue;
        EXPECT_NEAR(places[0].width, width, 0.04);
        EXPECT_NEAR(places[0].at.x / kGapCell, 1 + width / 2, 0.02);
        EXPECT_NEAR(places[0].at.y / kGapCell, centre.y, 0.3);
        EXPECT_EQ(places[0].other == nullptr, isWall);
      }
}

TEST(NarrowGaps, GoWithTheNamesOfTheirSides) {
  // Two balls before a wall, one nearer than the other, and near each other.
  GapSolids solids({GapBall({5.3, 3.2, 8}, 4), GapBall({5.4, 11.5, 8}, 4)}, kWallLowX);
  const auto places = solids.gaps.TakePlaces();
  ASSERT_EQ(places.size(), 3u);
  for (const NarrowGaps::Place& place : places) {
    const Vec3d at = place.at / double{kGapCell};
    const double first = Length(at - Vec3d{5.3, 3.2, 8}) - 4, wall = at.x - 1;
    const double second = Length(at - Vec3d{5.4, 11.5, 8}) - 4;
    const bool isFirst =
        place.one == solids.solids[0].get() || place.other == solids.solids[0].get();
    const bool isSecond =
        place.one == solids.solids[1].get() || place.other == solids.solids[1].get();
    const double sides = (isFirst ? first : 0) + (isSecond ? second : 0) + (place.other ? 0 : wall);
    EXPECT_NEAR(place.width, sides, 0.03) << at.x << " " << at.y << " " << at.z;
  }
}

TEST(NarrowGaps, ThatEndAtSolidsAllRoundAreNotToldOf) {
  // Behind a piston that fills its tube, and where it lies on the wall.
  for (const double width : {0.03, 0.1, 0.3})
    for (const double room : {40.0, 14.0}) {
      GapSolids piston({GapBlock({1 + width + 3, 8, 8}, {6, room, room})}, kWallsAll);
      EXPECT_TRUE(piston.gaps.TakePlaces().empty()) << width << " " << room;
    }
  // With room on one side.
  GapSolids open({GapBlock({4.3, 7, 8}, {6, 12, 14})}, kWallsAll);
  EXPECT_EQ(open.gaps.TakePlaces().size(), 1u);
}

// All nodes of a room of one cell lie in its walls.
TEST(NarrowGaps, ARoomOfOneCellIsOpen) {
  for (i32 axis = 0; axis < 3; ++axis) {
    VecInt3D cells{kGapCells, kGapCells, kGapCells};
    cells[axis] = 3;
    Vec3d centre{8, 8, 8};
    centre[axis] = 1.5;
    GapSolids empty({}, kWallsAll, 1, cells), pillar({GapBall(centre, 3)}, kWallsAll, 2, cells);
    const i32 along = axis == 0 ? 1 : 0;
    VecInt3D middle{8, 8, 8}, beside{8, 8, 8}, first{8, 8, 8};
    middle[axis] = beside[axis] = first[axis] = 1;
    beside[along] = 3;
    first[along] = 1;
    for (const VecInt3D& cell : {middle, beside}) {
      EXPECT_NEAR(empty.Open(along, cell.x, cell.y, cell.z), 1, 1e-6);
      EXPECT_TRUE(empty.HoldsSmoke(cell.x, cell.y, cell.z));
      EXPECT_EQ(empty.Open(axis, cell.x, cell.y, cell.z), 0);
    }
    EXPECT_EQ(empty.Open(along, first.x, first.y, first.z), 0);
    EXPECT_TRUE(empty.gaps.TakePlaces().empty());
    EXPECT_NEAR(pillar.Open(along, beside.x, beside.y, beside.z), 1, 1e-6);
    EXPECT_FALSE(pillar.HoldsSmoke(middle.x, middle.y, middle.z));
    EXPECT_TRUE(pillar.HoldsSmoke(beside.x, beside.y, beside.z));
    EXPECT_TRUE(pillar.gaps.TakePlaces().empty());
  }
}

TEST(NarrowGaps, AreToldOfOnceEachHoweverSmallBesideOthers) {
  const auto meshes = [] {
    return std::vector{GapBlock({8, 3, 8}, {13, 4, 13}), GapBlock({8, 7.3, 8}, {13, 4, 13}),
                       GapBlock({8.5, 10.6, 8.5}, {2.5, 2, 2.5})};
  };
  GapSolids one(meshes(), 0, 1), seven(meshes(), 0, 7);
  const auto places = one.gaps.TakePlaces(), others = seven.gaps.TakePlaces();
  ASSERT_EQ(places.size(), 2u);
  ASSERT_EQ(others.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) EXPECT_EQ(places[i].at, others[i].at);
  // As a run does that goes on: what was told is known, the gaps are found again.
  one.gaps.Release();
  one.gaps.Build(one.boundary, 1);
  EXPECT_TRUE(one.gaps.TakePlaces().empty());
}

TEST(NarrowGaps, AreTheSameAtAnyThreadCountAndFollowTheSolids) {
  const auto meshes = [] {
    return std::vector{GapBlock({8, 4.1, 8}, {6, 4, 7}, 0.1),
                       GapBlock({8, 8.9, 8}, {6, 4, 7}, 0.1)};
  };
  const GapSolids one(meshes(), 0, 1), seven(meshes(), 0, 7);
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<float>&a = *one.fractions.GetRead(axis, 1), &b = *seven.fractions.GetRead(axis, 1);
    for (i32 i = 0; i < a.mCount; ++i) ASSERT_EQ(a[i], b[i]);
  }
  GapSolids gone(meshes());
  gone.boundary.mObstacles.pop_back();
  gone.boundary.Build(1);
  gone.gaps.Build(gone.boundary, 1);
  gone.fractions.Measure(1);
  const float before = gone.Open(0, 8, 6, 8);
  gone.gaps.Open(gone.fractions);
  EXPECT_EQ(gone.Open(0, 8, 6, 8), before) << "there is no gap any more";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
