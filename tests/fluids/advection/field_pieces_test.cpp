// Clouds of a field, apart and joined.
#include "fluids/advection/field_pieces.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

constexpr VecInt3D kBox{20, 12, 11};

struct Clouds {
  Grid<double> before{kBox, kCentre}, after{kBox, kCentre};
  Grid<i32> starts{kBox, kCentre};
  FieldPieces pieces;
  PieceBounds bounds;

  Clouds() {
    before.Fill(0);
    after.Fill(0);
    for (i32 i = 0; i < starts.mCount; ++i) starts[i] = i;
  }
  void Put(Grid<double>& grid, const CellBox& box, double value) {
    ForEachCell(box, [&](i32 x, i32 y, i32 z) { grid(x, y, z) = value; });
  }
  void Find(i32 threads = 1) { pieces.Find(before, after, 0, starts.mData, bounds, threads); }
  i32 At(i32 x, i32 y, i32 z) const {
    i32 number = -1;
    pieces.ForEachStretch(1, kBox.x - 1, y, z, [&](i32 n, i32 first, i32 last) {
      if (x >= first && x < last) number = n;
    });
    return number;
  }
};

}  // namespace

TEST(FieldPieces, NumberCloudsThatDontTouch) {
  for (const i32 threads : {1, 3}) {
    Clouds c;
    c.Put(c.before, {{2, 2, 2}, {5, 5, 5}}, 1);
    c.Put(c.after, {{5, 2, 2}, {6, 5, 5}}, 0.5);  // the same, a cell on
    c.Put(c.before, {{12, 3, 3}, {15, 6, 9}}, 2);
    c.Put(c.before, {{2, 8, 2}, {18, 9, 9}}, 1e-9);  // next to nothing
    c.Find(threads);
    EXPECT_EQ(c.pieces.Count(), 3);
    EXPECT_EQ(c.At(3, 3, 3), 1);
    EXPECT_EQ(c.At(5, 3, 3), 1);
    EXPECT_EQ(c.At(13, 5, 8), 2);
    EXPECT_EQ(c.At(13, 8, 8), 0);
    EXPECT_EQ(c.At(8, 3, 3), 0);
  }
}

TEST(FieldPieces, AreOneWherePathsLeadBetweenThem) {
  Clouds c;
  c.Put(c.before, {{2, 2, 2}, {5, 5, 5}}, 1);
  c.Put(c.after, {{10, 2, 2}, {13, 5, 5}}, 1);
  c.Find();
  EXPECT_EQ(c.pieces.Count(), 3);
  ForEachCell({{10, 2, 2}, {13, 5, 5}},
              [&](i32 x, i32 y, i32 z) { c.starts(x, y, z) = c.starts.Index(x - 8, y, z); });
  c.Put(c.before, {{16, 8, 8}, {18, 9, 9}}, 1);
  c.Find();
  EXPECT_EQ(c.pieces.Count(), 3);
  EXPECT_EQ(c.At(3, 3, 3), c.At(11, 3, 3));
}

TEST(FieldPieces, WhatCanLeaveOrIsStirredHasNoNumber) {
  Clouds c;
  c.Put(c.before, {{3, 3, 3}, {6, 6, 6}}, 1);
  c.Put(c.before, {{12, 3, 3}, {14, 6, 6}}, 1);
  c.bounds.openSides = kWallLowX;
  c.bounds.reach = {1, 1, 1};
  c.Find();
  EXPECT_EQ(c.pieces.Count(), 3);
  c.bounds.reach = {2, 1, 1};
  c.Find();
  EXPECT_EQ(c.pieces.Count(), 2);
  EXPECT_EQ(c.At(3, 4, 4), 0);
  EXPECT_EQ(c.At(12, 4, 4), 1);
  c.bounds.stirred = {{{13, 5, 5}, {20, 9, 9}}};
  c.Find();
  EXPECT_EQ(c.pieces.Count(), 1);
}

// A wall between a cloud and an open side, however near, keeps the cloud in.
TEST(FieldPieces, WhatAWallHidesFromAnOpenSideIsClosed) {
  for (const bool hasWall : {false, true}) {
    Clouds c;
    c.Put(c.before, {{4, 3, 3}, {7, 6, 6}}, 1);
    c.Put(c.before, {{12, 3, 3}, {14, 6, 6}}, 1);
    GridLayout layout;
    layout.Set(kBox, Vec3d{1, 1, 1}, 0.1f, {});
    GridBoundary boundary;
    boundary.mWalls = kWallsAll & ~kWallLowX;
    boundary.mLevelSet = std::make_unique<EGrid<double>>(layout, kNode);
    boundary.Build(1);
    if (hasWall) {
      EGrid<double>& level = *boundary.mLevelSet;
      ForEachCell({{0, 0, 0}, level.Dims()}, [&](i32 x, i32 y, i32 z) {
        level(x, y, z) = std::min(level(x, y, z), 0.1 * std::max(2 - x, x - 4));
      });
    }
    ScalarWalls walls;
    walls.Build(boundary, nullptr, {}, 1);
    c.bounds.walls = &walls;
    c.bounds.openSides = kWallLowX;
    c.bounds.reach = {5, 5, 5};
    c.Find();
    EXPECT_EQ(c.At(5, 4, 4), hasWall ? 1 : 0);
    EXPECT_GT(c.At(12, 4, 4), 0);
  }
}
