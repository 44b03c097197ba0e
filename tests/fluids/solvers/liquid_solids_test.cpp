// Liquids on and beside solids.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "fluids/liquid_rig.h"
#include "fluids/volume/mesh_solid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kCellSize = 0.1;

/// A box of stone in the way, in cells.
struct Stone {
  TurnedBox box;
  MeshSolid solid;
  Stone(const Vec3d& centre, const Vec3d& size, double aboutZ = 0)
      : box(centre, size, aboutZ, 0, kCellSize), solid(box.mesh, kCellSize) {}
  /// Cells from a point to the box, negative inside.
  double Distance(const Vec3d& p, const Vec3d& size) const {
    double most = -1e9;
    for (int a = 0; a < 3; ++a)
      most = std::max(most, std::abs(Dot(p / kCellSize - box.centre, box.axis[a])) - 0.5 * size[a]);
    return most;
  }
};

TEST(LiquidSolids, WhatFallsOnARimComesToRest) {
  // As wide as a rim of a bowl: nodes inside of it don't tell which way is out.
  for (const double shift : {0.0, 0.6}) {
    for (const i32 transfer : {0, 1}) {
      LiquidRig rig({18, 20, 12});
      LiquidRig::Set(*rig.liquid, WaterSolver::kTransferRow, transfer);
      Stone rim({9, 5.2, 5.3 + shift}, {40, 14, 2.4});
      rig.obstacles = {&rim.solid};
      for (i32 i = 0; i < 60; ++i)
        rig.Drop(Vec3d{3 + 0.2 * i, 12.3 + 0.01 * i, 4.2 + shift + 0.037 * i} * kCellSize,
                 {0.3, -2.5, -0.2});
      rig.Commit();
      double most = 0;
      for (i32 i = 0; i < 150; ++i) {
        rig.Step();
        most = std::max(most, rig.MaxSpeed());
      }
      // A fall from there to the floor ends with 5.5 m/s, and drops that hit it push each other.
      EXPECT_LT(most, 7.5) << shift << " " << transfer;
      EXPECT_EQ(rig.Store().mDied, 0);
    }
  }
}

TEST(LiquidSolids, WhatLiesInAGrooveComesToRest) {
  for (const i32 transfer : {0, 1}) {
    LiquidRig rig({16, 16, 10});
    LiquidRig::Set(*rig.liquid, WaterSolver::kTransferRow, transfer);
    Stone low({4.2, 4.1, 5}, {14, 4, 30}, -0.9), high({11.7, 4.3, 5}, {14, 4, 30}, 0.7);
    rig.obstacles = {&low.solid, &high.solid};
    for (i32 i = 0; i < 24; ++i)
      rig.Drop(Vec3d{7.8 + 0.02 * i, 7.5 + 0.1 * i, 1 + 0.33 * i} * kCellSize, {0.2, -2, 0.1});
    rig.Commit();
    for (i32 i = 0; i < 200; ++i) rig.Step();
    EXPECT_LT(rig.MaxSpeed(), 0.5) << transfer;
  }
}

TEST(LiquidSolids, WaterUnderALidKeepsStill) {
  // No air is left under it, and what is over it has no way down.
  for (const bool corrects : {false, true}) {
    LiquidRig rig({8, 14, 8});
    LiquidRig::Set(*rig.liquid, WaterSolver::kEvenRow, corrects);
    Stone lid({4, 8, 4}, {20, 4, 20});
    rig.obstacles = {&lid.solid};
    rig.Fill({0, 0, 0}, {8, 6, 8});
    rig.Fill({0, 10, 0}, {8, 12, 8});
    for (i32 i = 0; i < 20; ++i) rig.Step();
    EXPECT_EQ(rig.Store().Count(), 8 * 8 * 64);
    EXPECT_LT(rig.Energy(), 1e-6);
    EXPECT_LT(rig.liquid->Projection().DivergenceMax(), 1e-6);
  }
}

// Half a cell of air is no lack of water, which doesn't rise to fill it.
TEST(LiquidSolids, WaterUnderALidWithRoomStaysDown) {
  LiquidRig rig({10, 10, 10});
  std::mt19937 random(5);
  std::uniform_real_distribution<double> within(0.01, 0.49);
  ForEachCell({{0, 0, 0}, {20, 19, 20}}, [&](i32 x, i32 y, i32 z) {
    const Vec3d own{within(random), within(random), within(random)};
    rig.Drop((Vec3d{0.5 * x, 0.5 * y, 0.5 * z} + own) * rig.Cell(), {});
  });
  rig.Commit();
  const double before = rig.Centroid().y;
  for (i32 i = 0; i < 60; ++i) rig.Step();
  EXPECT_NEAR(rig.Centroid().y, before, 0.03 * rig.Cell());
}

TEST(LiquidSolids, WaterPacksNowhereUnderAStone) {
  // Half a cell is left under it, with three times the particles that have room there.
  const Vec3d middle{7, 3.5, 7}, size{6, 6, 6};
  for (const bool corrects : {false, true}) {
    LiquidRig rig({14, 14, 14});
    LiquidRig::Set(*rig.liquid, WaterSolver::kEvenRow, corrects);
    if (corrects)
      LiquidRig::Set(*rig.liquid, WaterSolver::kSurfaceModeRow, i32(SurfaceMode::Count));
    Stone stone(middle, size);
    rig.obstacles = {&stone.solid};
    rig.FillPlaces({0, 0, 0}, {14, 6, 14},
                   [&](const Vec3d& p) { return stone.Distance(p, size) > 0; });
    const auto isUnder = [&](const Vec3d& p) {
      const Vec3d off = p / kCellSize - middle;
      return off.y < 0 && std::abs(off.x) < 3 && std::abs(off.z) < 3;
    };
    const auto count = [&] {
      const std::span<const Vec3d> all = rig.Store().Positions();
      return std::count_if(all.begin(), all.end(), isUnder);
    };
    const auto room = count();
    for (i32 i = 0; i < 2 * room; ++i)
      rig.Drop(
          Vec3d{4.1 + 0.37 * (i % 16), 0.1 + 0.05 * (i % 7), 4.1 + 0.33 * (i / 16)} * kCellSize,
          {});
    rig.Commit();
    for (i32 i = 0; i < 80; ++i) rig.Step();
    EXPECT_LT(count(), 2 * room) << corrects;
    EXPECT_LT(rig.Energy(), 0.02) << corrects;
  }
}

TEST(LiquidSolids, WhatFallsIntoASolidIsCounted) {
  LiquidRig rig({12, 20, 12});
  LiquidRig::Set(*rig.move, ParticleAdvection::kCollisionRow, i32{0});
  Stone block({6, 3, 6}, {6, 6, 6});
  rig.obstacles = {&block.solid};
  // Between both are those that fall past the block.
  rig.Fill({1, 8, 5}, {11, 9, 7});
  for (const i32 x : {5, 6}) rig.Drop(Vec3d{x + 0.5, 3, 5.5} * kCellSize, {});
  rig.Commit();
  const i32 count = rig.Store().Count();
  rig.Step();
  EXPECT_EQ(rig.Store().mDied, 2);
  for (i32 i = 0; i < 30; ++i) rig.Step();
  EXPECT_EQ(rig.Store().Count() + rig.Store().mDied, count);
  for (const Vec3d& p : rig.Store().Positions())
    EXPECT_GT(block.Distance(p, {6, 6, 6}), -2) << "in the middle of a block";
}

TEST(LiquidSolids, PuddleAndPoolsComeToRest) {
  struct Case {
    const char* name;
    Vec3d centre, size;
    double turn;
    i32 low, high;  ///< layers of liquid
  };
  const VecInt3D cells{24, 16, 12};
  for (const Case& c : {Case{"a puddle on a block", {12, 3.1, 6}, {40, 6.6, 40}, 0, 6, 9},
                        Case{"a slanted floor", {12, 0, 6}, {60, 6, 60}, 0.25, 0, 9},
                        Case{"a pillar", {11.7, 8, 6.2}, {4.4, 40, 3.3}, 0, 0, 8}}) {
    SCOPED_TRACE(c.name);
    LiquidRig rig(cells);
    Stone stone(c.centre, c.size, c.turn);
    rig.obstacles = {&stone.solid};
    rig.FillPlaces({0, c.low, 0}, {cells.x, c.high, cells.z},
                   [&](const Vec3d& p) { return stone.Distance(p, c.size) > 0.1; });
    const i32 count = rig.Store().Count();
    const Vec3d before = rig.Centroid();
    double energy = 0;
    for (i32 i = 0; i < 100; ++i) {
      rig.Step();
      energy = std::max(energy, rig.Energy());
    }
    EXPECT_EQ(rig.Store().Count(), count);
    EXPECT_LT(Length(rig.Centroid() - before), 0.02 * kCellSize);
    EXPECT_LT(energy, 1e-3);
    EXPECT_LT(rig.Energy(), 1e-4);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
