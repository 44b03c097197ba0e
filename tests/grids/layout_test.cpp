#include <gtest/gtest.h>

#include "grids/egrid.h"

namespace MELDO_GLOBAL {
namespace {

TEST(GridLayout, CarriesTheScaleBetweenUnits) {
  GridLayout l;
  l.Set({1, 1, 1}, {20, 20, 20}, 0.2f, {});
  EXPECT_NEAR(l.worldToSim.x, 0.01, 1e-9);
  EXPECT_NEAR(l.simToWorld.y, 100, 1e-4);
  EXPECT_EQ(l.worldCell, (Vec3d{20, 20, 20}));
  EXPECT_EQ(l.worldHalfCell, (Vec3d{10, 10, 10}));
  EXPECT_EQ(l.simCell.z, double(0.2f));
  EXPECT_EQ(l.inverseCell, static_cast<f32>(1.0 / double(0.2f)));
  EXPECT_EQ(l.halfCell, 0.1f);
}

TEST(GridLayout, OriginsInGlobalCellsDoNotFallOneShort) {
  // Many origins, in cells of a size that no binary fraction holds.
  for (i32 k = -300; k <= 300; ++k) {
    GridLayout l;
    l.Set({7, 5, 3}, {7 * 13.7, 5 * 13.7, 3 * 13.7}, 0.137f, {k * 13.7, -k * 13.7, 0});
    ASSERT_EQ(l.originCell, (VecInt3D{k, -k, 0}));
    ASSERT_EQ(l.maxCell, (VecInt3D{k + 7, -k + 5, 3}));
  }
}

TEST(GridLayout, EqualMeansExactlyEqual) {
  GridLayout a, b;
  a.Set({4, 4, 4}, {40, 40, 40}, 0.1f, {});
  b = a;
  EXPECT_TRUE(a.Equals(b));
  b.SetOrigin({0, 1e-12, 0});
  EXPECT_FALSE(a.Equals(b));
  b.Set({4, 4, 4}, {40, 40, 40}, 0.1000001f, {});
  EXPECT_FALSE(a.Equals(b));
}

TEST(GridLayout, BoundsAreHalfOpenAndTheMarginIsACell) {
  GridLayout l;
  l.Set({4, 4, 4}, {400, 400, 400}, 1.0f, {100, 0, 0});
  EXPECT_TRUE(l.Contains({1, 0, 0}, false));
  EXPECT_FALSE(l.Contains({5, 0, 0}, false));
  EXPECT_FALSE(l.Contains({1.5, 2, 2}, true));
  EXPECT_TRUE(l.Contains({2, 1, 1}, true));
  EXPECT_FALSE(l.Contains({4, 2, 2}, true));
  VecInt3D cell;
  EXPECT_TRUE(l.CellOf({2.999999999, 1.5, 3.2}, false, cell));
  EXPECT_EQ(cell, (VecInt3D{2, 1, 3}));
  EXPECT_FALSE(l.CellOf({2.5, 1.5, 3.2}, true, cell));
  EXPECT_TRUE(l.CellOf({2.5, 1.5, 2.2}, true, cell));
  EXPECT_FALSE(l.CellOf({5.1, 1, 1}, false, cell));
}

TEST(EGrid, StaggeredArraysStandOnTheirLayout) {
  const struct {
    i32 kind;
    VecInt3D dims;
    Vec3d firstSample;
  } rows[] = {{kFaceX, {11, 8, 6}, {0, 0.5, 0.5}},    {kFaceY, {10, 9, 6}, {0.5, 0, 0.5}},
              {kFaceZ, {10, 8, 7}, {0.5, 0.5, 0}},    {kNode, {11, 9, 7}, {0, 0, 0}},
              {kCentre, {10, 8, 6}, {0.5, 0.5, 0.5}}, {kEdgeX, {10, 8, 6}, {0, 0, 0}}};
  for (const auto& row : rows) {
    const EGrid<double> g(row.dims, {10, 8, 6}, 1.0f, row.kind, {});
    EXPECT_EQ(g.mLayout.dims, (VecInt3D{10, 8, 6})) << row.kind;
    EXPECT_EQ(g.mLastIndex, (VecInt3D{9, 7, 5})) << row.kind;
    EXPECT_EQ(g.PositionOf(0, 0, 0), row.firstSample) << row.kind;
    EXPECT_EQ(g.ToSamples(g.PositionOf(3, 2, 1)), (Vec3d{3, 2, 1})) << row.kind;
    const EGrid<double> made(g.mLayout, row.kind);
    EXPECT_EQ(made.Dims(), row.dims);
    EXPECT_TRUE(made.IsActiveEmpty());
    EXPECT_EQ(made.mActiveMin, row.dims);
  }
}

EGrid<double> Field(i32 kind, double value) {
  EGrid<double> g({8, 7, 6}, {8, 7, 6}, 1.0f, kind, {});
  g.Fill(value);
  return g;
}

TEST(UpdateActive, QuietGridsStayEmptyAndUnchanged) {
  for (const i32 kind : {kCentre, kFaceX}) {
    EGrid<double> g = Field(kind, kind == kCentre ? 0.25 : 0.0);
    const EGrid<double> before = g;
    g.UpdateActive(0.25, 1, false);
    EXPECT_TRUE(g.IsActiveEmpty());
    EXPECT_TRUE(std::equal(g.mData, g.mData + g.mCount, before.mData));
  }
}

TEST(UpdateActive, CentredDataIsLimitedAndNoiseCleaned) {
  EGrid<double> g = Field(kCentre, 0);
  g(2, 3, 4) = 5;
  g(5, 1, 2) = 2e-6;
  g(6, 6, 5) = 9e-7;
  g(0, 0, 0) = -3;
  g(4, 3, 4) = std::numeric_limits<double>::quiet_NaN();
  g.UpdateActive(0, 1, false);
  EXPECT_TRUE(std::isnan(g(4, 3, 4))) << "an error must not be trimmed away";
  EXPECT_EQ(g.mActiveMin, (VecInt3D{2, 1, 2}));
  EXPECT_EQ(g.mActiveMax, (VecInt3D{5, 3, 4}));
  EXPECT_EQ(g(2, 3, 4), 1);
  EXPECT_EQ(g(5, 1, 2), 2e-6);
  EXPECT_EQ(g(6, 6, 5), 0);
  EXPECT_EQ(g(0, 0, 0), 0);
}

TEST(UpdateActive, FacesKeepBothSigns) {
  EGrid<double> g = Field(kFaceY, 0);
  g(1, 2, 3) = -4;
  g(3, 3, 3) = -9e-7;
  g.UpdateActive(0, 1, true);
  EXPECT_EQ(g(1, 2, 3), -4);
  EXPECT_EQ(g(3, 3, 3), 0);
  EXPECT_EQ(g.mActiveMin, (VecInt3D{1, 2, 3}));
  EXPECT_EQ(g.mActiveMax, (VecInt3D{2, 3, 4})) << "a single sample grows by one";
}

TEST(UpdateActive, SkippedBordersAreCleared) {
  EGrid<double> g = Field(kCentre, 1);
  g.UpdateActive(0, 1, true);
  EXPECT_EQ(g.mActiveMin, (VecInt3D{1, 1, 1}));
  EXPECT_EQ(g.mActiveMax, (VecInt3D{6, 5, 4}));
  double sum = 0;
  for (i32 i = 0; i < g.mCount; ++i) sum += g[i];
  EXPECT_EQ(sum, 6 * 5 * 4);
}

TEST(Grid, CopiesAreDeepAndSwapMovesDataAlone) {
  Grid<double> a({3, 3, 3}, kCentre), b({3, 3, 3}, kCentre);
  a.Fill(1);
  a.mActiveMin = {1, 1, 1};
  const Grid<double> copy = a;
  a.Swap(b);
  EXPECT_EQ(copy(1, 1, 1), 1);
  EXPECT_EQ(copy.mActiveMin, (VecInt3D{1, 1, 1}));
  EXPECT_EQ(a(1, 1, 1), 0);
  EXPECT_EQ(b(1, 1, 1), 1);
  EXPECT_EQ(a.mActiveMin, (VecInt3D{1, 1, 1}));
  EXPECT_EQ(a.GetByteSize(), 27 * 8 + 24);
}

TEST(Grid, ImpossibleSizesLeaveAGridWithoutData) {
  const Grid<double> g({2000, 2000, 2000}, kCentre);
  EXPECT_EQ(g.mData, nullptr);
  EXPECT_GT(g.mCount, 0);
}

}  // namespace
}  // namespace MELDO_GLOBAL
