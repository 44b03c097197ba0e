#include <gtest/gtest.h>

#include <cmath>

#include "fluids/gas_rig.h"
#include "fluids/operators/channel_operator_remap.h"
#include "fluids/rendering/displacer.h"
#include "fluids/rendering/field_mapping.h"
#include "fluids/rendering/multiple_scattering.h"
#include "fluids/rendering/render_grid_preprocessor.h"
#include "fluids/rendering/render_rig.h"
#include "fluids/solvers/fluid_solver.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {
namespace {

TEST(Remap, ScalesOverTheRangeOfAScalarAndTakesVectorsAsTheyAre) {
  RenderRig rig({4, 4, 4});
  EGrid<double>& grid = *rig.smoke->mGrid;
  grid.mRangeMin = 1;
  grid.mRangeMax = 5;
  grid.Fill(3.5);
  RenderGridPreprocessor work;
  ASSERT_TRUE(work.Bind(nullptr, rig.smoke, nullptr, nullptr));
  work.AddRemap({{{0, 0}, {0.5, 0.8}, {1, 1}}});
  work.Run(nullptr);
  for (i32 i = 0; i < grid.mCount; ++i) ASSERT_NEAR(grid[i], 4 * 0.85 + 1, 1e-12);

  VectorField colours;
  for (i32 a = 0; a < 3; ++a) {
    colours.mGrids[a] = std::make_unique<EGrid<double>>(grid.mLayout, kCentre);
    colours.mGrids[a]->Fill(0.25 * (a + 1));
  }
  ChannelOperator_Remap remap;
  const host::Gradient ramp{{{0, {0, 0, 0}}, {1, {1, 2, 3}}}};
  remap.SetGradient(ramp);
  ASSERT_TRUE(remap.Attach(&colours));
  remap.Prepare();
  CellRecord cell;
  cell.cellIndex = 7;
  remap.EvaluateCells(&cell, 1, {});
  remap.Finish();
  for (i32 a = 0; a < 3; ++a) EXPECT_NEAR((*colours.mGrids[a])[7], 0.25 * (a + 1) * (a + 1), 1e-12);
  EXPECT_EQ((*colours.mGrids[0])[6], 0.25);
}

TEST(Remap, WithoutAChannelOrARampItRests) {
  ChannelOperator_Remap remap;
  remap.Prepare();
  EXPECT_FALSE(remap.Has(FLAG_ACTIVE));
  RenderRig rig({4, 4, 4});
  remap.Attach(rig.smoke);
  remap.Prepare();
  EXPECT_FALSE(remap.Has(FLAG_ACTIVE));
  RenderGridPreprocessor work;
  EXPECT_FALSE(work.Bind(nullptr, nullptr, nullptr, nullptr));
  work.Run(nullptr);
}

/// Lets half of what lies at x > limit pass.
class HalfBeyond : public Constraint {
 public:
  HalfBeyond(host::BaseNode* node, Scene* scene) : Constraint(node, scene) {}
  bool Test(const Vec3d& position, double& weight, const ConstraintUse&) override {
    if (position.x > 0.2) weight *= 0.5;
    return true;
  }
};

TEST(RenderFilters, ConstraintsWeighGridsAndSamples) {
  RenderRig rig({8, 4, 4});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  HalfBeyond& half = rig.test.AddOwn<HalfBeyond>("duration", "half");
  rig.node->Set(2351, 0.01);
  const host::InExcludeData list{{{half.Node()->Id(), 0}}};
  rig.node->Set(2357, list);  // absorption at the samples
  rig.node->Set(2154, 0.05);
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(rig.See().transmission.x, std::exp(-0.01 * (20 + 60 * 0.5)), 2e-3);
  rig.node->Set(2357, host::InExcludeData{});
  rig.node->Set(2255, list);  // the grid itself
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(rig.See().transmission.x, std::exp(-0.01 * (20 + 60 * 0.5)), 2e-3);
}

// Behind a step no link stands: a picture fetches those of its filters itself.
TEST(RenderFilters, ReadWhatTheirConstraintsLink) {
  RenderRig rig({8, 4, 4});
  rig.Fill(*rig.smoke, [](const Vec3d&) { return 1.0; });
  Constraint& thin = rig.test.Add<Constraint>("constraint_gridvalue", "thin");
  TestScene::Link(thin, 1000, *rig.smoke);
  TestScene::Set(thin, 1003, 0.4);
  rig.node->Set(2351, 0.01);
  rig.node->Set(2154, 0.05);
  rig.node->Set(2255, host::InExcludeData{{{thin.Node()->Id(), 0}}});
  ASSERT_TRUE(rig.Init());
  EXPECT_NEAR(rig.See().transmission.x, 1, 1e-9) << "all of the smoke is thicker than that";
}

TEST(VelocityGridDisplacer, TracesBackByTheAmounts) {
  GasRig gas({12, 12, 12});
  gas.Begin();
  gas.FillVelocity([](const Vec3d&) { return Vec3d{1, 0, -0.5}; });
  VelocityGridDisplacer displacer;
  const auto displaced = [&](f32 first, f32 second) {
    DisplacementSettings amounts;
    amounts.smoke = first;
    amounts.fire = second;
    displacer.Set(&gas.gas->mFlow, &amounts);
    Displacer::Points points{Vec3d{0.5, 0.5, 0.5}, Vec3d{0.5, 0.5, 0.5}};
    displacer.Displace(points);
    return points;
  };
  const Displacer::Points two = displaced(0.1f, 0.2f);
  EXPECT_NEAR(two[0].x, 0.4, 1e-6);
  EXPECT_NEAR(two[0].z, 0.55, 1e-6);
  EXPECT_NEAR(two[1].x, 0.3, 1e-6);
  EXPECT_NEAR(displacer.DisplaceBy({0.5, 0.5, 0.5}, 0.3).x, 0.2, 1e-6);
  const Displacer::Points one = displaced(0.1f, 0.1f);
  EXPECT_EQ(one[0], one[1]);
  EXPECT_EQ(displaced(0.1f, 0)[1], one[0]);
  EXPECT_EQ(displaced(0, 0.3f)[1], (Vec3d{0.5, 0.5, 0.5}));
  displacer.Set(nullptr, nullptr);
  EXPECT_FALSE(displacer.mEnabled);
}

TEST(FieldMapping, ThresholdCurveAndKelvin) {
  FieldMapping map;
  map.threshold = 0.1;
  map.valueMax = 2;
  double v = 0.1;
  EXPECT_FALSE(map.Map(v));
  v = 5;
  EXPECT_TRUE(map.Map(v));
  EXPECT_EQ(v, 2);
  map.SetCurve({{{0, 0}, {0.5, 0.02}, {1, 1}}});
  v = 1;
  EXPECT_FALSE(map.Map(v));  // below the threshold after the curve
  v = 1.5;
  EXPECT_TRUE(map.Map(v));
  EXPECT_NEAR(v, 1.02, 1e-12);
  map.bypass = true;
  v = 5;
  EXPECT_TRUE(map.Map(v));
  EXPECT_EQ(v, 5);

  FieldMapping fire;
  fire.threshold = 800;
  fire.valueMin = 100;
  fire.valueMax = 1000;
  v = 526.4;
  EXPECT_FALSE(fire.MapFire(v));
  v = 600;
  EXPECT_TRUE(fire.MapFire(v));
  EXPECT_NEAR(v, 600, 1e-9);
}

TEST(FieldNoise, ControlsBendIt) {
  NoiseSettings settings;
  settings.on = true;
  settings.scale = 25;
  FieldNoise noise(settings);
  double low = 1e9, high = -1e9;
  for (int i = 0; i < 500; ++i) {
    const double n = noise.At({i * 3.1, i * 1.7, 0}, {});
    low = std::min(low, n);
    high = std::max(high, n);
  }
  EXPECT_GE(low, 0);
  EXPECT_LE(high, 1);
  EXPECT_GT(high - low, 0.3);
  noise.cutLow = noise.cutHigh = 0.5;
  noise.contrast = 0.5;
  const double n = noise.At({10, 20, 30}, {});
  EXPECT_TRUE(n == 0.25 || n == 0.75) << n;
  noise.on = false;
  EXPECT_EQ(noise.At({10, 20, 30}, {}), 1);
}

TEST(SourcePyramid, ReadsBetweenItsLevels) {
  auto source = std::make_unique<EGrid<double>>(VecInt3D{40, 40, 20}, Vec3d{400, 400, 200}, 0.1f,
                                                kCentre, Vec3d{});
  ForEachCell({{0, 0, 0}, source->Dims()}, [&](i32 x, i32 y, i32 z) {
    (*source)(x, y, z) = x == 20 && y == 20 && z == 10 ? 1000.0 : 0.0;
  });
  SourcePyramid pyramid;
  pyramid.Build(std::move(source), 1.0);
  ASSERT_EQ(pyramid.LevelCount(), 3);  // 20, 10 and 5 layers
  EXPECT_EQ(pyramid.WidthOf(1), 20);
  const Vec3d p{205, 205, 105};
  const double fine = pyramid.At(p, 10), middle = pyramid.At(p, 20), coarse = pyramid.At(p, 40);
  EXPECT_EQ(pyramid.At(p, 0), fine);
  EXPECT_NEAR(pyramid.At(p, 1e9), coarse, 1e-9);
  EXPECT_NEAR(pyramid.At(p, 14), fine + 0.4 * (middle - fine), 1e-9);
  EXPECT_NEAR(pyramid.At(p, 35), middle + 0.75 * (coarse - middle), 1e-9);
  EXPECT_GT(fine, 2 * middle);
  EXPECT_GT(middle, 1.5 * coarse);
}

}  // namespace
}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
