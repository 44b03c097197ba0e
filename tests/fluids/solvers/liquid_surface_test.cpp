// A liquid at its surface: where it lies, and where walls hold it.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "fluids/emission/object_particle_grid_emitter.h"
#include "fluids/emission/particle_emission_settings.h"
#include "fluids/emission/sphere_volume.h"
#include "fluids/liquid_rig.h"
#include "fluids/volume/mesh_solid.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kGravity = 9.81;

TEST(LiquidSurface, PressureOfAStillColumnTellsItsDepthToAPartOfACell) {
  for (const double up : {0.5, 0.46, 0.43}) {
    LiquidRig rig({6, 20, 6});
    LiquidRig::Set(*rig.liquid, WaterSolver::kSurfaceModeRow, i32(SurfaceMode::Smooth));
    const double depth = std::floor(14.3 / up) * up;
    ParticleTemplate particle;
    particle.flags |= PF_KIND_LIQUID;
    for (double y = 0.5 * up; y < depth; y += up)
      ForEachCell({{0, 0, 0}, {12, 1, 12}}, [&](i32 x, i32, i32 z) {
        particle.position = Vec3d{0.5 * x + 0.25, y, 0.5 * z + 0.25} * rig.Cell();
        rig.Store().Create(particle);
      });
    rig.group->MarkTreeStale(kLiquid);
    rig.group->CommitStep();
    for (i32 i = 0; i < 30; ++i) {
      rig.Step();
      const std::span<const double> p = rig.liquid->Projection().GetPressure();
      const VecInt3D n = rig.liquid->GetFlow().GetLayout()->dims;
      const double exact = 1000 * kGravity * (depth - 0.5) * rig.Cell();
      ASSERT_NEAR(p[(n.y * 4 + 1) * n.x + 4], exact, 0.002 * exact) << up << " " << i;
    }
    EXPECT_LT(std::sqrt(2 * rig.Energy()), 1e-4 * std::sqrt(kGravity * depth * rig.Cell())) << up;
  }
}

// Chance that an emitter gave particles in their parts of the cells makes no waves.
TEST(LiquidSurface, AStillColumnOfScatteredParticlesRests) {
  for (const bool corrects : {false, true}) {
    LiquidRig rig({8, 20, 8});
    LiquidRig::Set(*rig.liquid, WaterSolver::kEvenRow, corrects);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> within(0.01, 0.49);
    ParticleTemplate particle;
    particle.flags |= PF_KIND_LIQUID;
    ForEachCell({{0, 0, 0}, {16, 24, 16}}, [&](i32 x, i32 y, i32 z) {
      const Vec3d own{within(random), within(random), within(random)};
      particle.position = (Vec3d{0.5 * x, 0.5 * y, 0.5 * z} + own) * rig.Cell();
      rig.Store().Create(particle);
    });
    rig.group->MarkTreeStale(kLiquid);
    rig.group->CommitStep();
    for (i32 i = 0; i < 20; ++i) {
      rig.Step();
      ASSERT_LT(rig.Energy(), 1e-12) << corrects << " " << i;
    }
  }
}

// Where the surface goes through the middles of cells, rounding calls some of them air.
TEST(LiquidSurface, AColumnThatEndsInTheMiddleOfACellRests) {
  LiquidRig rig({8, 12, 8});
  rig.scene->mTime.stepDuration = 0.04;
  rig.FillPlaces({0, 0, 0}, {8, 5, 8}, [&](const Vec3d& p) { return p.y < 4.5 * rig.Cell(); });
  for (i32 i = 0; i < 50; ++i) {
    rig.Step();
    ASSERT_LT(rig.MaxSpeed(), 1e-4) << i;
  }
}

// Whatever chance does to the places of particles, it leaves no rough surface.
TEST(LiquidSurface, AColumnThatAnEmitterScatteredRestsAtAnyDepth) {
  for (const double depth : {4.05, 4.35, 4.65, 4.85, 4.9}) {
    TestScene source;
    auto& ground = source.AddOwn<SphereVolume>("volume", "ground");
    auto& group = source.Add<ParticleGroup>("particlegroup", "group");
    auto& settings = source.Add<ParticleEmissionSettings>("particlemesh_emission_setting", "once");
    auto& emitter = source.Add<ObjectParticleGridEmitter>("particlegridemitter", "fill");
    TestScene::Set(settings, 1006, 1.0);
    TestScene::Link(emitter, ParticleEmitter::kGroupRow, group);
    TestScene::Link(emitter, 1003, settings);
    TestScene::Link(emitter, ObjectParticleGridEmitter::kVolumeRow, ground);
    TestScene::Set(emitter, 1015, -1000.0);
    TestScene::Set(emitter, 1016, i32{1});
    constexpr double kFarDown = 1e4;
    ground.Make({0.4, -kFarDown, 0.4}, kFarDown + 0.1 * depth, {13, 13, 13}, {-0.2, -0.2, -0.2});
    source.SetUp();
    TestScene::Run(emitter);
    LiquidRig rig({8, 12, 8});
    rig.scene->mTime.stepDuration = 0.04;
    const Vec3d top = Vec3d{8, 12, 8} * rig.Cell();
    for (const Vec3d& p : group.Store(kLiquid).Positions())
      if (p.x > 0 && p.y > 0 && p.z > 0 && p.x < top.x && p.z < top.z) rig.Drop(p, {});
    rig.Commit();
    // Its lattice has two layers in a cell, whose places tell which are filled.
    ASSERT_EQ(rig.Store().Count(), 16 * 16 * static_cast<i32>(std::floor(2 * depth + 0.5)));
    for (const Vec3d& p : rig.Store().Positions()) ASSERT_LT(p.y, depth * rig.Cell());
    for (i32 i = 0; i < 50; ++i) {
      rig.Step();
      ASSERT_LT(rig.MaxSpeed(), 1e-4) << depth << " " << i;
    }
  }
}

// A stream that comes torn is as much water as its particles, and lies nearly as high as that.
TEST(LiquidSurface, TornWaterSettlesToTheSpaceThatEmittersTell) {
  constexpr i32 kWide = 8, kDepth = 12, kTorn = 5, kFull = 8;
  LiquidRig rig({kWide, 16, kWide});
  std::mt19937 random(3);
  std::uniform_real_distribution<double> within(0, 1);
  ParticleBirths births;
  ParticleTemplate particle;
  particle.flags |= PF_KIND_LIQUID | PF_ALIVE;
  for (i32 i = 0; i < kTorn * kWide * kDepth * kWide; ++i) {
    particle.position =
        Vec3d{kWide * within(random), kDepth * within(random), kWide * within(random)} * rig.Cell();
    births.Of(0).Append(particle);
    births.FillSpace(0, std::pow(rig.Cell(), 3) / kFull);
  }
  rig.Store().Take(births);
  rig.Commit();
  for (i32 i = 0; i < 100; ++i) rig.Step();
  const double exact = 0.5 * kDepth * kTorn / kFull * rig.Cell();
  EXPECT_NEAR(rig.Centroid().y, exact, 0.12 * exact);
}

// One or two particles in a cell are water too: a block of them falls over and comes to rest at its
// height.
TEST(LiquidSurface, FewParticlesInACellKeepTheirVolume) {
  for (const i32 perCell : {1, 2}) {
    SCOPED_TRACE(perCell);
    constexpr i32 kWide = 20, kDeep = 8;
    const VecInt3D block{8, 12, kDeep};
    LiquidRig rig({kWide, 20, kDeep});
    LiquidRig::Set(*rig.liquid, WaterSolver::kFlipRatioRow, 0.8);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> within(0.1, 0.9);
    ParticleBirths births;
    ParticleTemplate particle;
    particle.flags |= PF_KIND_LIQUID | PF_ALIVE;
    ForEachCell({{}, block}, [&](i32 x, i32 y, i32 z) {
      for (i32 i = 0; i < perCell; ++i) {
        // Two share a cell by its halves.
        const double low = y + static_cast<double>(i) / perCell;
        particle.position =
            Vec3d{x + within(random), low + within(random) / perCell, z + within(random)} *
            rig.Cell();
        births.Of(0).Append(particle);
        births.FillSpace(0, std::pow(rig.Cell(), 3) / perCell);
      }
    });
    rig.Store().Take(births);
    rig.Commit();
    double height = 0;
    constexpr i32 kSteps = 300, kLast = 100;
    for (i32 i = 0; i < kSteps; ++i) {
      rig.Step();
      if (i >= kSteps - kLast) height += rig.Centroid().y / kLast;
    }
    const double exact = 0.5 * block.x * block.y / kWide * rig.Cell();
    EXPECT_NEAR(height / exact, 1, 0.06);
  }
}

TEST(LiquidSurface, AFilmSlidesDownASlope) {
  constexpr double kAngle = 0.21;
  for (const double depth : {0.25, 0.5}) {
    LiquidRig rig({60, 24, 6});
    TurnedBox floor({30, 5, 3}, {100, 6, 30}, kAngle, 0, rig.Cell());
    MeshSolid solid(floor.mesh, rig.Cell());
    rig.obstacles = {&solid};
    rig.FillPlaces({0, 0, 0}, {60, 24, 6}, [&](const Vec3d& p) {
      const Vec3d off = p / rig.Cell() - floor.centre;
      const double along = Dot(off, floor.axis[0]), up = Dot(off, floor.axis[1]) - 3;
      return up > 0 && up < depth && along > 0 && along < 18;
    });
    constexpr i32 kSteps = 40;
    for (i32 i = 0; i < kSteps; ++i) rig.Step();
    Vec3d mean{};
    for (const Vec3d& v : rig.Store().Velocities()) mean += v;
    const double speed = -Dot(mean / rig.Store().Count(), floor.axis[0]);
    const double free = kGravity * std::sin(kAngle) * kSteps * rig.scene->mTime.stepDuration;
    EXPECT_NEAR(speed / free, 0.85, 0.25) << depth;
  }
}

// Cells that a solid cuts tell little of what fills them: neither a surface nor a crowd.
TEST(LiquidSurface, APoolOverASlantedFloorRests) {
  LiquidRig rig({16, 14, 8});
  TurnedBox floor({8, 1, 4}, {40, 6, 30}, 0.26, 0, rig.Cell());
  MeshSolid solid(floor.mesh, rig.Cell());
  rig.obstacles = {&solid};
  rig.FillPlaces({0, 0, 0}, {16, 9, 8}, [&](const Vec3d& p) {
    return Dot(p / rig.Cell() - floor.centre, floor.axis[1]) > 3;
  });
  double most = 0;
  for (i32 i = 0; i < 100; ++i) {
    rig.Step();
    if (i >= 50) most = std::max(most, rig.Energy());
  }
  EXPECT_LT(most, 1e-5);
}

// Nothing holds a liquid to a ceiling, nor to a wall that it hangs along.
TEST(LiquidSurface, ABlockUnderACeilingFallsFreely) {
  for (const i32 solver : {0, 1, 2})
    for (const i32 low : {3, 0}) {
      LiquidRig rig({12, 20, 12});
      LiquidRig::Set(*rig.liquid, WaterSolver::kLinearSolverRow, solver);
      LiquidRig::Set(*rig.liquid, WaterSolver::kSurfaceModeRow, i32(SurfaceMode::Smooth));
      rig.Fill({low, 14, 3}, {low + 6, 20, 9});
      const std::vector<Vec3d> before(rig.Store().Positions().begin(),
                                      rig.Store().Positions().end());
      const double dt = rig.scene->mTime.stepDuration;
      constexpr i32 kSteps = 16;
      for (i32 i = 0; i < kSteps; ++i) rig.Step();
      const double drop = kGravity * dt * dt * kSteps * (kSteps - 1) / 2;
      // Distances cut the edge between wall and ceiling off, and what is there lags.
      EXPECT_NEAR(rig.Centroid().y, 1.7 - drop, 0.005 * drop) << solver;
      for (i32 row = 0; row < rig.Store().Count(); ++row) {
        const Vec3d moved = rig.Store().Positions()[row] - before[row];
        ASSERT_NEAR(moved.y, -drop, (low == 0 ? 0.05 : 0.005) * drop) << solver << " " << low;
        ASSERT_NEAR(moved.x, 0, (low == 0 ? 0.05 : 0.005) * drop);
      }
    }
}

TEST(LiquidSurface, ABlockUnderACeilingFallsByCountToo) {
  LiquidRig rig({12, 20, 12});
  rig.Fill({3, 14, 3}, {9, 20, 9});
  const double dt = rig.scene->mTime.stepDuration;
  constexpr i32 kSteps = 16;
  for (i32 i = 0; i < kSteps; ++i) rig.Step();
  const double drop = kGravity * dt * dt * kSteps * (kSteps - 1) / 2;
  EXPECT_NEAR(rig.Centroid().y, 1.7 - drop, 0.02 * drop);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
