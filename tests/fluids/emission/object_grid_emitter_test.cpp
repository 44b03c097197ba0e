#include "fluids/emission/object_grid_emitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "fluids/emission/sphere_volume.h"
#include "fluids/fields/fuel_grid_channel.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// Keeps the half above a plane, at half strength.
class UpperHalf : public Constraint {
 public:
  using Constraint::Constraint;
  bool Test(const Vec3d& p, double& weight, const ConstraintUse&) override {
    if (p.y < 0.6) weight = 0;
    weight *= 0.5;
    return weight != 0;
  }
};

class Obstacle : public SphereVolume {
 public:
  using SphereVolume::SphereVolume;
  void GetCategories(u32& mask) const override {
    SphereVolume::GetCategories(mask);
    mask |= kCategoryActiveVolume;
  }
};

class GridEmitter : public testing::Test {
 protected:
  GridEmitter()
      : volume(s.AddOwn<SphereVolume>("volume", "ball")),
        smoke(s.Add<PlainField>("channel_scalar", "smoke")),
        settings(s.Add<GridEmissionSettings>("emission_setting", "settings")),
        pair(s.Add<ChannelPair>("channelsettings", "pair")),
        emitter(s.Add<ObjectGridEmitter>("gridemitter", "source")) {
    TestScene::Set(smoke, 1050, -1e6);
    TestScene::Set(smoke, 1051, 1e6);
    TestScene::Link(pair, 1000, smoke);
    TestScene::Link(pair, 1001, settings);
    TestScene::Link(emitter, 1002, volume);
    TestScene::Links(emitter, 1000, {&pair});
    const double h = s.scene->mDomain.cellSize;
    volume.Make({0.61, 0.58, 0.63}, 0.33, {10, 11, 12}, {1 * h, 0, 1 * h});
  }
  void Run(i32 threads = 1) {
    s.SetUp();
    const double h = s.scene->mDomain.cellSize;
    ASSERT_TRUE(smoke.ApplyBounds({-2 * h, -2 * h, -2 * h}, {16 * h, 14 * h, 17 * h}));
    smoke.mGrid->Fill(0);
    TestScene::Run(emitter, threads);
  }
  double Sum() const {
    double sum = 0;
    for (i32 i = 0; i < smoke.mGrid->mCount; ++i) sum += (*smoke.mGrid)[i];
    return sum;
  }
  /// The cells whose eight nodes have a mean distance of at most 0, weighted by `f` of their
  /// centre.
  template <class F>
  double SumInside(F&& f) const {
    const EGrid<double>& g = *volume.mGrid;
    double sum = 0;
    ForEachCell({{1, 1, 1}, g.Dims() - VecInt3D{2, 2, 2}}, [&](int x, int y, int z) {
      double mean = 0;
      ForEachCell({{0, 0, 0}, {2, 2, 2}},
                  [&](int i, int j, int k) { mean += g(x + i, y + j, z + k) / 8; });
      if (mean <= 0)
        sum +=
            f(g.mLayout.simOrigin + (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * g.mLayout.simCell);
    });
    return sum;
  }
  double Inside() const {
    return SumInside([](const Vec3d&) { return 1.0; });
  }

  TestScene s;
  SphereVolume& volume;
  PlainField& smoke;
  GridEmissionSettings& settings;
  ChannelPair& pair;
  ObjectGridEmitter& emitter;
  const double dt = 0.04;
};

TEST_F(GridEmitter, AmountIsRateTimesVolumeTimesTime) {
  TestScene::Set(settings, 1013, 2.5);
  Run();
  ASSERT_GT(Inside(), 100);
  EXPECT_NEAR(Inside() * std::pow(0.1, 3), 4.0 / 3 * M_PI * std::pow(0.33, 3), 0.015);
  EXPECT_NEAR(Sum(), Inside() * 2.5 * dt, 1e-9);
  EXPECT_FALSE(emitter.Has(FLAG_ACTIVE)) << "Finish ends the run";

  TestScene::Set(settings, 1001, i32{1});
  Run();
  EXPECT_NEAR(Sum(), Inside() * 2.5, 1e-9) << "absolute";

  auto& rate = s.Add<EmissionRate>("rate", "rate");
  TestScene::Set(rate, 5001, 0.5);
  TestScene::Link(settings, 1002, rate);
  TestScene::Link(settings, 1003, rate);
  TestScene::Set(settings, 1000, i32{2});
  Run();
  EXPECT_NEAR(Sum(), Inside() * 0.5, 1e-9) << "the rate replaces the amount";
  TestScene::Run(emitter);
  EXPECT_NEAR(Sum(), Inside() * 0.5, 1e-9) << "a second step meets the limit";

  TestScene::Set(settings, 1012, i32{1});
  TestScene::Run(emitter);
  s.SetUp();
  TestScene::Run(emitter);
  EXPECT_NEAR(Sum(), Inside() * 1.0, 1e-9) << "a splat knows no limit";
}

TEST_F(GridEmitter, FalloffWeighsByDepth) {
  const auto depth = [&](const Vec3d& p) { return volume.DepthWorld(p); };
  TestScene::Set(settings, 1006, i32{1});
  Run();
  EXPECT_NEAR(Sum(), dt * SumInside(depth), 1e-9);
  TestScene::Set(settings, 1006, i32{2});
  TestScene::Set(settings, 1005, host::SplineData{{{0, 1}, {1, 3}}});
  Run();
  EXPECT_NEAR(Sum(), dt * SumInside([&](const Vec3d& p) { return 1 + 2 * depth(p); }), 1e-9);
}

TEST_F(GridEmitter, DurationOpensWeighsAndCloses) {
  auto& duration = s.Add<Duration>("duration", "window");
  TestScene::Set(duration, 1000, 2.0);
  TestScene::Set(duration, 1001, 1.0);
  TestScene::Link(settings, 1004, duration);
  s.scene->mTime.elapsed = 0.5;
  Run();
  EXPECT_EQ(Sum(), 0);
  s.scene->mTime.elapsed = 1.5;
  Run();
  const double mean = 0.75 - dt / 4;
  EXPECT_NEAR(Sum(), Inside() * dt * mean, 1e-9) << "without a curve it fades out";
  // The start frame has seen the whole of a short one.
  s.scene->mTime.frameDuration = dt;
  TestScene::Set(duration, 1001, 0.0);
  for (const bool isBrief : {true, false})
    for (const i32 row : {1001, 1000}) {  // absolute, or the mode `set`
      TestScene::Set(duration, 1000, isBrief ? 0.001 : 1.5 * dt);
      TestScene::Set(settings, 1001, i32{row == 1001});
      TestScene::Set(settings, 1000, i32{row == 1000});
      s.scene->mTime.elapsed = 0;
      for (const i32 frame : {0, 1}) {
        s.scene->mTime.frameIndex = frame;
        Run();
        EXPECT_EQ(Sum() > 0, frame == 0 || !isBrief) << frame << " " << row;
      }
    }
  TestScene::Set(settings, 1000, i32{0});
  TestScene::Set(settings, 1001, i32{0});
  TestScene::Set(duration, 1000, 2.0);
  TestScene::Set(duration, 1001, 1.0);
  s.scene->mTime.elapsed = 1.5;
  // A depth curve that isn't there drops the weight of the window, too.
  TestScene::Set(settings, 1006, i32{2});
  settings.Node()->Erase(1005);
  Run();
  EXPECT_NEAR(Sum(), Inside() * dt, 1e-9);
}

TEST_F(GridEmitter, ConstraintsWeighEveryCell) {
  auto& upper = s.AddOwn<UpperHalf>("duration", "upper half");
  TestScene::Links(emitter, 2502, {&upper});
  Run();
  const auto above = [](const Vec3d& p) { return p.y < 0.6 ? 0.0 : 0.5; };
  EXPECT_NEAR(Sum(), dt * SumInside(above), 1e-9);
}

/// Takes all weight away.
class Nowhere : public Constraint {
 public:
  using Constraint::Constraint;
  bool Test(const Vec3d&, double& weight, const ConstraintUse&) override {
    weight = 0;
    return false;
  }
};

TEST_F(GridEmitter, SaysWhyNoCellTookAnything) {
  volume.Make({5, 5, 5}, 0.33, {10, 11, 12}, {4.4, 4.4, 4.4});
  Run();
  EXPECT_EQ(Sum(), 0);
  EXPECT_THAT(emitter.mInactiveReason, testing::HasSubstr("is in the box of a gas"));

  const double h = s.scene->mDomain.cellSize;
  volume.Make({0.55, -0.33, 0.55}, 0.2, {10, 8, 10}, {1 * h, -7 * h, 1 * h});
  emitter.mInactiveReason = nullptr;
  Run();
  EXPECT_THAT(emitter.mInactiveReason, testing::HasSubstr("is in the box of a gas"))
      << "the outermost layer of a field keeps nothing";

  volume.Make({0.61, 0.58, 0.63}, 0.33, {10, 11, 12}, {1 * h, 0, 1 * h});
  auto& nowhere = s.AddOwn<Nowhere>("duration", "nowhere");
  TestScene::Links(emitter, 2502, {&nowhere});
  Run();
  EXPECT_EQ(Sum(), 0);
  EXPECT_THAT(emitter.mInactiveReason, testing::HasSubstr("its weight is 0 in all cells"));
}

TEST_F(GridEmitter, NamesTheObstacleThatAllItsCellsLieIn) {
  auto& solid = s.AddOwn<Obstacle>("volume", "rock");
  const double h = s.scene->mDomain.cellSize;
  const auto why = [&](double radius) {
    solid.Make({0.61, 0.58, 0.63}, radius, {14, 14, 14}, {-h, -h, -h});
    for (const i32 threads : {1, 3}) {
      Run(threads);
      EXPECT_GT(Sum(), 0);
    }
    return std::string(emitter.mInactiveReason ? emitter.mInactiveReason : "");
  };
  EXPECT_EQ(why(0.2), "") << "some of its cells lie outside";
  // Beyond the grid of an obstacle its last nodes tell nothing.
  solid.Make({0.61, 0.1, 0.63}, 0.3, {14, 4, 14}, {-h, -h, -h});
  Run(1);
  EXPECT_STREQ(emitter.mInactiveReason ? emitter.mInactiveReason : "", "");
  EXPECT_THAT(why(0.5), testing::HasSubstr("they lie in the obstacle 'rock'"));
}

TEST_F(GridEmitter, FillsFieldsOfVectors) {
  auto& colour = s.Add<VectorField>("channel_vector", "colour");
  for (const i32 splat : {0, 1}) {
    TestScene::Link(pair, 1000, colour);
    TestScene::Set(settings, 1014, Vec3d{0.5, 0.25, 0});
    TestScene::Set(settings, 1012, splat);
    s.SetUp();
    EXPECT_TRUE(colour.IsDirty()) << "a channel that is fed is reset and trimmed";
    const double h = s.scene->mDomain.cellSize;
    ASSERT_TRUE(colour.ApplyBounds({-2 * h, -2 * h, -2 * h}, {16 * h, 14 * h, 17 * h}));
    for (i32 a = 0; a < 3; ++a) colour.mGrids[a]->Fill(0);
    TestScene::Run(emitter, 3);
    const auto sum = [&](i32 a) {
      double total = 0;
      for (i32 i = 0; i < colour.mGrids[a]->mCount; ++i) total += (*colour.mGrids[a])[i];
      return total;
    };
    EXPECT_NEAR(sum(0), Inside() * 0.5 * dt, 1e-9);
    EXPECT_NEAR(sum(1), Inside() * 0.25 * dt, 1e-9);
    EXPECT_EQ(sum(2), 0);
  }
}

TEST_F(GridEmitter, DirtMovesOnToTheChannels) {
  Run();
  EXPECT_TRUE(emitter.IsDirty());
  EXPECT_TRUE(smoke.IsDirty()) << "a channel that is fed is reset and trimmed";
  // The same time again, and nothing changed: rest.
  for (int i = 0; i < 2; ++i) {
    s.SetUp();
    s.scene->mFlags &= ~Scene::kTimeChanged;
  }
  const auto look = [&] {
    s.scene->SetStage(kFinishVisual);
    s.scene->DispatchStage();
    s.scene->SetStage(kStartSimulation);
    s.scene->DispatchStage();
  };
  look();
  look();
  EXPECT_FALSE(emitter.IsDirty());
  TestScene::Set(settings, 1013, 9.0);
  look();
  EXPECT_TRUE(emitter.IsDirty());
}

TEST_F(GridEmitter, WithoutAVolumeGridItRests) {
  Vec3d min{9, 9, 9}, max{-9, -9, -9};
  s.SetUp();
  emitter.ExpandBounds(min, max);
  EXPECT_NEAR(min.x, 0.1, 1e-7);
  EXPECT_NEAR(max.z, 1.3, 1e-7);
  volume.Make({0.2, 0.2, 0.2}, 0.3, {4, 4, 2}, {});
  emitter.Prepare();
  emitter.Begin();
  EXPECT_FALSE(emitter.Has(FLAG_ACTIVE)) << "three nodes across hold no cell";
  volume.mGrid.reset();
  min = {9, 9, 9};
  emitter.ExpandBounds(min, max);
  EXPECT_EQ(min.x, 9);
  Run();
  EXPECT_EQ(Sum(), 0);
  EXPECT_STREQ(emitter.mInactiveReason, "its volume has no grid");
}

TEST_F(GridEmitter, SameBytesOnAnyNumberOfWorkers) {
  for (const bool splat : {false, true}) {
    // Off the channel's lattice, so that splats meet across layers.
    const double h = s.scene->mDomain.cellSize;
    volume.Make({0.61, 0.58, 0.63}, 0.33, {10, 11, 12}, {0.37 * h, 0.41 * h, 0.73 * h});
    auto& curve = settings;
    TestScene::Set(curve, 1006, i32{1});
    TestScene::Set(curve, 1012, i32{splat});
    Run(1);
    const EGrid<double> one = *smoke.mGrid;
    ASSERT_GT(Sum(), 0);
    for (const i32 threads : {2, 3, 5, 8}) {
      Run(threads);
      EXPECT_EQ(std::memcmp(one.mData, smoke.mGrid->mData, one.mCount * sizeof(double)), 0)
          << threads << " " << splat;
    }
    const double depths = SumInside([&](const Vec3d& p) { return volume.DepthWorld(p); });
    EXPECT_NEAR(Sum(), depths * dt, 1e-9);
  }
}

}  // namespace
