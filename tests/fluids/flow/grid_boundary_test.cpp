#include <gtest/gtest.h>

#include <cmath>

#include "fluids/gas_rig.h"
#include "fluids/pressure/projection_box.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using projection::Ball;
using projection::Box;
using projection::FormulaVolume;
using projection::MakeLayout;

namespace {

/// A level set over cells of size `h` with the origin at `origin` cells.
struct Level {
  GridBoundary boundary;
  Level(const VecInt3D& cells, f32 h, u8 walls, std::vector<VolumeBase*> obstacles = {},
        const Vec3d& origin = {}, i32 workers = 3) {
    boundary.mWalls = walls;
    boundary.mObstacles = std::move(obstacles);
    boundary.mLevelSet = std::make_unique<EGrid<double>>(MakeLayout(cells, h, origin), kNode);
    boundary.Build(workers);
  }
  double operator()(i32 x, i32 y, i32 z) const { return (*boundary.GetLevelSet())(x, y, z); }
};

}  // namespace

TEST(GridBoundary, WallsStandOnTheSecondNodesAtAnyScale) {
  for (const f32 h : {1.0f, 0.1f, 0.037f, 1e-3f, 3.3f}) {
    const VecInt3D cells{7, 9, 6};
    const double cell = h;
    const Level closed(cells, h, kWallsAll, {}, {-3, 11, 1000});
    const Level open(cells, h, 0);
    ForEachCell({{0, 0, 0}, cells + VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      const i32 border = std::min({x, y, z, cells.x - x, cells.y - y, cells.z - z});
      ASSERT_EQ(closed(x, y, z), (border - 1) * cell) << x << " " << y << " " << z;
      ASSERT_EQ(open(x, y, z), (border + 1) * cell);
    });
  }
}

TEST(GridBoundary, EverySideHasItsOwnWallBit) {
  const VecInt3D n{6, 7, 8};
  const struct {
    u8 bit;
    VecInt3D wall, opposite;
  } sides[] = {{kWallLowX, {1, 3, 4}, {5, 3, 4}}, {kWallHighX, {5, 3, 4}, {1, 3, 4}},
               {kWallLowY, {3, 1, 4}, {3, 6, 4}}, {kWallHighY, {3, 6, 4}, {3, 1, 4}},
               {kWallLowZ, {3, 3, 1}, {3, 3, 7}}, {kWallHighZ, {3, 3, 7}, {3, 3, 1}}};
  for (const auto& side : sides) {
    const Level level(n, 0.5f, side.bit);
    EXPECT_EQ(level(side.wall.x, side.wall.y, side.wall.z), 0.0) << int(side.bit);
    EXPECT_EQ(level(side.opposite.x, side.opposite.y, side.opposite.z), 1.0) << int(side.bit);
  }
  EXPECT_EQ(kWallLowY, 8);
  EXPECT_EQ(kWallHighY, 4);

  // The parameters of a node set the same bits.
  GasRig rig({4, 4, 4});
  rig.SetUp();
  EXPECT_EQ(rig.gas->mFlow.mBoundary.mWalls, kWallsAll) << "closed by default";
  rig.Walls(1, 1, 1, 0, 0, 1);
  rig.SetUp();
  EXPECT_EQ(rig.gas->mFlow.mBoundary.mWalls, kWallsAll & ~kWallHighY & ~kWallLowZ);
}

TEST(GridBoundary, TakesTheNearestOfWallsAndObstacles) {
  const f32 h = 0.25f;
  const Vec3d origin{-4, 2, 7};
  const auto ball = Ball(origin + Vec3d{8, 9, 8}, 3, h);
  auto block = std::make_unique<FormulaVolume>(MakeLayout({4, 4, 4}, h, origin + Vec3d{3, 3, 3}),
                                               [](const Vec3d&) { return -7.0; });
  const VecInt3D cells{16, 17, 15};
  for (const i32 workers : {1, 4}) {
    const Level level(cells, h, kWallsAll, {ball.get(), block.get()}, origin, workers);
    ForEachCell({{0, 0, 0}, cells + VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
      const i32 border = std::min({x, y, z, cells.x - x, cells.y - y, cells.z - z});
      double expected = (border - 1) * double(h);
      const double r = Length(Vec3d{double(x), double(y), double(z)} - Vec3d{8, 9, 8}) - 3;
      if (r < 3.5) expected = std::min(expected, r * h);
      // The block's box holds its low nodes, not its high ones.
      if (std::min({x, y, z}) >= 3 && std::max({x, y, z}) < 7) expected = -7;
      ASSERT_NEAR(level(x, y, z), expected, 1e-12) << x << " " << y << " " << z;
    });
  }
  block->SetFlag(FLAG_ENABLED, false);
  EXPECT_GT(Level(cells, h, kWallsAll, {block.get()}, origin)(4, 4, 4), 0.0);
}

TEST(GridBoundary, ActiveBoxHoldsTheSolidNodes) {
  Level level({10, 11, 12}, 0.5f, kWallLowX);
  level.boundary.ComputeActiveBox(2);
  EXPECT_EQ(level.boundary.GetLevelSet()->mActiveMin, (VecInt3D{0, 0, 0}));
  EXPECT_EQ(level.boundary.GetLevelSet()->mActiveMax, (VecInt3D{1, 11, 12}));
  Level single({10, 11, 12}, 0.5f, 0);
  (*single.boundary.GetLevelSet())(4, 5, 6) = -1;
  single.boundary.ComputeActiveBox(2);
  EXPECT_EQ(single.boundary.GetLevelSet()->mActiveMin, (VecInt3D{4, 5, 6}));
  EXPECT_EQ(single.boundary.GetLevelSet()->mActiveMax, (VecInt3D{5, 6, 7}));
  Level none({4, 4, 4}, 0.5f, 0);
  none.boundary.ComputeActiveBox(2);
  EXPECT_TRUE(none.boundary.GetLevelSet()->IsActiveEmpty());
}

TEST(GridBoundary, SamplesInItsThreeFrames) {
  const f32 h = 0.25f;
  const Vec3d origin{-4, 2, 7};
  const auto ball = Ball(origin + Vec3d{8, 8, 8}, 3, h);
  const Level level({16, 16, 16}, h, 0, {ball.get()}, origin);
  const GridBoundary& b = level.boundary;
  const Vec3d index{12.25, 8, 8}, relative = index * double(h),
                                  world = relative + origin * double(h);
  EXPECT_NEAR(b.SampleIndex(index), 1.25 * h, 1e-12);
  EXPECT_NEAR(b.SampleRelative(relative), 1.25 * h, 1e-12);
  EXPECT_NEAR(b.SampleWorld(world), 1.25 * h, 1e-12);
  for (const Vec3d& g :
       {b.GradientIndex(index), b.GradientRelative(relative), b.GradientWorld(world)}) {
    EXPECT_NEAR(g.x, 1, 1e-9);
    EXPECT_NEAR(g.y, 0, 1e-9);
  }
  // The same place in the cells of a grid that starts elsewhere.
  const EGrid<double> other(MakeLayout({4, 4, 4}, h, origin + Vec3d{5, 5, 5}), kCentre);
  EXPECT_TRUE(b.IsSolid({3, 3, 3}, other, true));
  EXPECT_FALSE(b.IsSolid({3, 3, 3}, other, false));
}

TEST(GridBoundary, PushesPointsOutOfSolids) {
  const f32 h = 0.25f;
  const auto ball = Ball({8, 8, 8}, 3, h);
  const Level level({16, 16, 16}, h, kWallsAll, {ball.get()});
  Vec3d p = Vec3d{9.5, 8, 8} * double(h);
  EXPECT_TRUE(level.boundary.PushOut(p, true, 0.001));
  EXPECT_NEAR(p.x, 11 * h - 0.001, 1e-9) << "short of the surface by the margin";
  EXPECT_NEAR(p.y, 8 * h, 1e-9);
  Vec3d free{3.1, 0.9, 2.2};
  const Vec3d kept = free;
  EXPECT_FALSE(level.boundary.PushOut(free, true, 0.001));
  EXPECT_EQ(free, kept);
  Vec3d outside{-1, 0.9, 9};
  EXPECT_TRUE(level.boundary.PushOut(outside, true, 0.001)) << "the clamp alone counts";
  EXPECT_EQ(outside.x, double(h * 1.001f));
  EXPECT_EQ(outside.z, 16 * double(h) - double(h * 1.001f));
  EXPECT_EQ(outside.y, 0.9);
}

TEST(GridBoundary, CollidesWithWallsBeforeObstacles) {
  const f32 h = 0.25f;
  const auto ball = Ball({8, 8, 8}, 3, h);
  const Level level({16, 16, 16}, h, u8(kWallsAll & ~kWallHighX), {ball.get()});
  const GridBoundary& b = level.boundary;
  SolidContact contact;
  EXPECT_TRUE(b.CollideDomain({0.1, 2, 3.9}, contact, 0.05f));
  EXPECT_NEAR(contact.position.x, 0.3, 1e-7);
  EXPECT_NEAR(contact.position.z, 3.7, 1e-7);
  EXPECT_EQ(contact.normal, (Vec3d{1, 0, -1}));
  EXPECT_NEAR(contact.depth, 0.2, 1e-7) << "of the axis that came last";
  EXPECT_FALSE(b.CollideDomain({3.95, 2, 2}, contact, 0.05f)) << "open sides never collide";
  EXPECT_FALSE(contact.hit);

  EXPECT_TRUE(b.Collide(Vec3d{8, 10.5, 8} * double(h), false, contact, 0.1f));
  EXPECT_NEAR(contact.depth, -0.5 * h - 0.1, 1e-7);
  EXPECT_NEAR(contact.position.y, 11 * h + 0.1, 1e-6);
  EXPECT_NEAR(contact.normal.y, 1, 1e-9);
  EXPECT_FALSE(b.Collide({1, 1, 1}, false, contact, 0.1f));
  EXPECT_EQ(contact.normal, (Vec3d{0, 1, 0}));
  EXPECT_EQ(contact.position, (Vec3d{1, 1, 1}));

  EXPECT_TRUE(b.IsOutsideOpenSide({3.8, 1, 1}));
  EXPECT_FALSE(b.IsOutsideOpenSide({3.7, 0.1, 3.9}));
}

TEST(GridBoundary, SolidMaskNamesCornersWithZFastest) {
  Level level({4, 4, 4}, 1.0f, 0);
  EGrid<double>& grid = *level.boundary.GetLevelSet();
  grid(1, 1, 2) = -1;
  grid(2, 1, 1) = -1;
  EXPECT_EQ(level.boundary.SolidMask({1.5, 1.5, 1.5}), 2u | 16u);
  EXPECT_EQ(level.boundary.SolidMask({1.5, 0.5, 1.5}), 8u | 64u);
  EXPECT_EQ(level.boundary.SolidMask({4.0, 1, 1}), 0u);
  EXPECT_EQ(level.boundary.SolidMask({-1.5, 1, 1}), 0u);
}

TEST(GridBoundary, AnswersWithoutAGrid) {
  const GridBoundary none;
  SolidContact contact;
  Vec3d p{1, 2, 3};
  EXPECT_EQ(none.SampleWorld(p), 0);
  EXPECT_EQ(none.GradientWorld(p), Vec3d{});
  EXPECT_TRUE(none.PushOut(p, false, 1));
  EXPECT_EQ(p, (Vec3d{1, 2, 3}));
  EXPECT_TRUE(none.Collide(p, true, contact, 1));
  EXPECT_EQ(none.SolidMask(p), 0u);
  EXPECT_EQ(none.GetSolidVelocity(p), Vec3d{});
}
