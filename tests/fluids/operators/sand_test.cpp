#include "fluids/operators/grid_sand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "fluids/liquid_rig.h"
#include "grids/random_stream.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// Grains in a box whose particles are affine.
struct SandRig : LiquidRig {
  Grid_Sand* sand;

  explicit SandRig(const VecInt3D& cells, double friction, i32 threads = 1)
      : LiquidRig(cells, threads) {
    sand = &Add<Grid_Sand>("grid_sand", "sand");
    Link(*sand, Grid_Sand::kSolverRow, *liquid);
    Set(*sand, Grid_Sand::kFrictionRow, friction);
    Set(*liquid, WaterSolver::kTransferRow, i32{1});
  }
  void RunSand() {
    scene->SetStage(kFlip);
    Run(*sand, scene->mThreadCount);
  }
  /// A step with the sand between the projection and the particles.
  void StepSand() {
    StepTo(kPressure);
    RunSand();
    RunLiquid(kFlip);
    scene->SetStage(kFinish);
    group->CommitStep();
    liquid->UpdateRange();
    scene->mTime.elapsed += scene->mTime.stepDuration;
  }
};

TEST(Sand, WhatHangsTogetherMovesAsRigidBodies) {
  SandRig rig({24, 16, 12}, 0.5);
  LiquidRig::Links(*rig.liquid, WaterSolver::kForcesRow, {});
  LiquidRig::Set(*rig.sand, Grid_Sand::kCohesionRow, 1e12);
  // Two balls that turn about themselves and fly apart, with a noise on top.
  const Vec3d middle[2] = {{0.6, 0.8, 0.6}, {1.8, 0.8, 0.6}};
  const auto ballOf = [&](const Vec3d& p) { return p.x < 1.2 ? 0 : 1; };
  RandomStream random;
  random.Seed(11);
  const Vec3d spin[2] = {{0, 0, 2}, {1, -1, 0}}, way[2] = {{-0.2, 0, 0}, {0.3, 0.1, 0}};
  rig.Fill(
      {0, 0, 0}, {24, 16, 12}, [&](const Vec3d& p) { return Length(p - middle[ballOf(p)]) < 0.35; },
      [&](const Vec3d& p) {
        const i32 b = ballOf(p);
        return way[b] + Cross(spin[b], p - middle[b]) +
               Vec3d{random.NextUnit() - 0.5, random.NextUnit() - 0.5, random.NextUnit() - 0.5} *
                   0.2;
      });
  rig.StepTo(kPressure);
  rig.RunSand();
  ASSERT_EQ(rig.sand->Clusters(), 2);
  const Grid<u32>& kinds = *rig.sand->Kinds();
  Flow& flow = rig.liquid->GetFlow();
  for (const i32 b : {0, 1}) {
    i32 faces = 0;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<double>& g = *flow.mVelocity.GetGrid(axis);
      ForEachCell({{1, 1, 1}, kinds.Dims() - VecInt3D{1, 1, 1}}, [&](i32 x, i32 y, i32 z) {
        if (kinds(x, y, z) < kFirstCluster) return;
        const Vec3d p = g.PositionOf(x, y, z);
        if (ballOf(p) != b) return;
        const Vec3d expected = way[b] + Cross(spin[b], p - middle[b]);
        EXPECT_NEAR(g(x, y, z), expected[axis], 0.06) << b << " " << axis;
        ++faces;
        // Rigid: no strain along the axis at all.
        const VecInt3D up = VecInt3D{x, y, z} + ExtraOf(axis);
        EXPECT_NEAR(g(up.x, up.y, up.z), g(x, y, z), 1e-12);
      });
    }
    EXPECT_GT(faces, 300);
  }
}

TEST(Sand, DoesNotDependOnTheNumberOfWorkers) {
  std::vector<Vec3d> ends[2];
  for (const i32 threads : {1, 3}) {
    SandRig rig({10, 10, 4}, 0.5, threads);
    rig.Fill({0, 0, 0}, {4, 8, 4});
    for (i32 i = 0; i < 4; ++i) rig.StepSand();
    const std::span<const Vec3d> at = rig.Store().Positions();
    ends[threads == 3].assign(at.begin(), at.end());
  }
  EXPECT_EQ(ends[0], ends[1]);
}

/// How high grains stand over each column of cells across x, in cells.
std::vector<double> Heights(SandRig& rig, i32 columns, i32 deep) {
  std::vector<double> heights(columns, 0.0);
  for (const Vec3d& p : rig.Store().Positions())
    heights[std::clamp(static_cast<i32>(p.x / rig.Cell()), 0, columns - 1)] += 1.0 / (8 * deep);
  return heights;
}

/// Where the outermost column ends that is half a cell higher than `bed`, in cells: loose grains
/// roll on.
double Front(const std::vector<double>& heights, double bed = 0) {
  for (std::size_t x = heights.size(); x-- > 1;)
    if (heights[x - 1] > bed + 0.5) {
      const double next = x < heights.size() ? heights[x] : bed;
      return x + (heights[x - 1] - bed - 0.5) / (heights[x - 1] - next) - 0.5;
    }
  return 0;
}

/// A column of `height` cells beside a wall, that is let go on a bed of grains; its sides and the
/// floor below the bed are smooth. How much farther its foot comes, in widths.
double RunOut(i32 height) {
  constexpr i32 kBed = 2, kWide = 8, kLong = 40;
  SandRig rig({kLong, 16, 2}, 0.5);
  LiquidRig::Set(*rig.sand, Grid_Sand::kWallFrictionRow, 0.0);
  rig.Fill(
      {0, 0, 0}, {kLong, kBed + height, 2},
      [&](const Vec3d& p) { return p.y < kBed * rig.Cell() || p.x < kWide * rig.Cell(); },
      [](const Vec3d&) { return Vec3d{}; });
  for (i32 i = 0; i < 75; ++i) rig.StepSand();
  return Front(Heights(rig, kLong, 2), kBed) / kWide - 1;
}

TEST(Sand, AColumnRunsOutAsFarAsItIsHigh) {
  const double low = RunOut(8), high = RunOut(12);
  EXPECT_GT(low, 0.8);
  EXPECT_LT(low, 2.4);
  EXPECT_GT(high, 0.8 * 1.5);
  EXPECT_LT(high, 2.4 * 1.5);
  EXPECT_GT(high, low);
}

TEST(Sand, AHeapStands) {
  constexpr i32 kLong = 28;
  SandRig rig({kLong, 12, 2}, 0.5);
  const double foot = 1.5, top = 0.85;  // 29.5 degrees
  rig.FillPlaces({0, 0, 0}, {kLong, 12, 2},
                 [&](const Vec3d& p) { return p.y < top * (1 - p.x / foot); });
  for (i32 i = 0; i < 100; ++i) rig.StepSand();
  const double before = Front(Heights(rig, kLong, 2));
  for (i32 i = 0; i < 50; ++i) rig.StepSand();
  const std::vector<double> heights = Heights(rig, kLong, 2);
  EXPECT_LT(Front(heights) - before, 1);
  EXPECT_GT(heights[0], 0.75 * top / rig.Cell());
  // From the column beside the wall to the last one that is whole.
  const i32 last = static_cast<i32>(Front(heights)) - 1;
  const double slope =
      std::atan((heights[1] - heights[last]) / (last - 1)) * 180 / std::numbers::pi;
  EXPECT_LT(slope, 33);
}

TEST(Sand, SlidesFreelyAlongSmoothSolidsAndStopsAtRoughOnes) {
  for (const double hold : {0.0, 0.5}) {
    SandRig rig({30, 8, 4}, 1);
    LiquidRig::Set(*rig.sand, Grid_Sand::kWallFrictionRow, hold);
    LiquidRig::Set(*rig.sand, Grid_Sand::kCohesionRow, 1e9);
    rig.Fill(
        {4, 0, 0}, {12, 4, 4}, [](const Vec3d&) { return true; },
        [](const Vec3d&) {
          return Vec3d{1, 0, 0};
        });
    for (i32 i = 0; i < 8; ++i) rig.StepSand();
    const double speed = std::sqrt(2 * rig.Energy());
    if (hold == 0)
      EXPECT_NEAR(speed, 1, 0.05);
    else
      EXPECT_LT(speed, 0.5);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
