#include "fluids/emission/particle_to_grid_emitter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/test_scene.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// A mesh of loose vertices.
class Points : public Mesh {
 public:
  Points(host::BaseNode* node, Scene* scene) : Mesh(node, scene) {}
  bool ReadParameters() override { return true; }
  bool ResolveLinks() override { return true; }
  bool AfterLinks() override { return true; }
  void CheckDirty() override {}
  void Make(std::vector<Vec3d> points) {
    mMesh.GetVertices() = std::move(points);
    mMesh.UpdateBounds();
  }
};

class BelowHalf : public Constraint {
 public:
  using Constraint::Constraint;
  bool Test(const Vec3d& p, double& weight, const ConstraintUse&) override {
    weight *= p.y < 0.5 ? 0.25 : 0.0;
    return weight != 0;
  }
};

class PointsToGrid : public testing::Test {
 protected:
  PointsToGrid()
      : points(s.AddOwn<Points>("mesh", "points")),
        smoke(s.Add<PlainField>("channel_scalar", "smoke")),
        flow(s.Add<VectorField>("channel_vector", "flow")),
        value(s.Add<ChannelValue>("channelvalue", "value")),
        vector(s.Add<ChannelValue>("channelvalue", "vector")),
        emitter(s.Add<ParticleToGridEmitter>("properties_particles", "gather")) {
    TestScene::Set(smoke, 1051, 100.0);
    TestScene::Set(flow, 1051, Vec3d{100, 100, 100});
    TestScene::Link(value, 1000, smoke);
    TestScene::Set(value, 1001, 3.0);
    TestScene::Link(vector, 1000, flow);
    TestScene::Set(vector, 1002, Vec3d{1, 2, 4});
    TestScene::Link(emitter, 1000, points);
    TestScene::Links(emitter, 1002, {&value, &vector});
    std::mt19937 engine(11);
    std::uniform_real_distribution<double> place(0.23, 0.88);
    for (int i = 0; i < 60; ++i) cloud.push_back({place(engine), place(engine), place(engine)});
    points.Make(cloud);
  }
  void Run(i32 threads = 1) {
    s.SetUp();
    const double h = s.scene->mDomain.cellSize;
    for (iBase* channel : {static_cast<iBase*>(&smoke), static_cast<iBase*>(&flow)}) {
      channel->Reset();
      ASSERT_TRUE(channel->ApplyBounds({0, 0, 0}, {12 * h, 12 * h, 12 * h}));
    }
    TestScene::Run(emitter, threads);
  }
  /// Every cell holds `value` times the mean of f(point, distance in radii) over the points near
  /// it.
  template <class F>
  void Expect(double scale, F&& f) const {
    const EGrid<double>& g = *smoke.mGrid;
    const double radius = 1.4 * s.scene->mDomain.cellSize;
    i32 reached = 0;
    ForEachCell({{1, 1, 1}, g.Dims() - VecInt3D{1, 1, 1}}, [&](int x, int y, int z) {
      const Vec3d p = g.PositionOf(x, y, z);
      double sum = 0;
      i32 count = 0;
      for (const Vec3d& q : cloud) {
        const double r = Length(q - p);
        const double w = r <= radius ? f(q, r / radius) : 0;
        if (w == 0) continue;
        sum += w;
        ++count;
      }
      reached += count > 0;
      const double mean = count > 0 ? sum / count : 0;
      ASSERT_NEAR(g(x, y, z), 3 * scale * mean, 1e-12);
      ASSERT_NEAR((*flow.mGrids[2])(x, y, z), 4 * scale * mean, 1e-12);
    });
    EXPECT_GT(reached, 100);
  }

  TestScene s;
  Points& points;
  PlainField& smoke;
  VectorField& flow;
  ChannelValue& value;
  ChannelValue& vector;
  ParticleToGridEmitter& emitter;
  std::vector<Vec3d> cloud;
};

TEST_F(PointsToGrid, CellsTakeTheMeanOfThePointsNearby) {
  Run();
  Expect(1, [](const Vec3d&, double) { return 1.0; });
  TestScene::Set(emitter, 1005, 2.0);
  TestScene::Set(emitter, 1006, 0.25);
  TestScene::Set(emitter, 1007, i32{1});
  Run();
  Expect(2 * 0.25 * 0.04, [](const Vec3d&, double) { return 1.0; });
  TestScene::Set(emitter, 1003, i32{2});
  Run();
  Expect(2 * 0.25 * 0.04, [](const Vec3d&, double r) { return 1 - r; });
}

TEST_F(PointsToGrid, FieldsThatPlayFromACacheAreLeftAlone) {
  smoke.SetFlag(FLAG_CACHED, true);
  Run();
  const EGrid<double>&a = *smoke.mGrid, &b = *flow.mGrids[0];
  EXPECT_EQ(std::count(a.mData, a.mData + a.mCount, 0.0), a.mCount);
  EXPECT_NE(std::count(b.mData, b.mData + b.mCount, 0.0), b.mCount);
}

TEST_F(PointsToGrid, LooseObjectsOfPointsBringTheSame) {
  Run();
  const EGrid<double> byMesh = *smoke.GetGrid(0);
  auto& loose = s.document.Create<host::PointsObject>(host::kPointsObject, "loose", nullptr);
  for (const Vec3d& p : cloud) loose.points.push_back(p * 100);
  emitter.Node()->Set(ParticleToGridEmitter::kSourceRow, host::Link{loose.Id()});
  Run();
  i32 filled = 0;
  for (i32 i = 0; i < byMesh.mCount; ++i) {
    if (byMesh.mData[i] == 0) continue;
    ASSERT_NEAR(smoke.GetGrid(0)->mData[i], byMesh.mData[i], 1e-9);
    ++filled;
  }
  EXPECT_GT(filled, 100);
}

TEST_F(PointsToGrid, ConstraintsWeighPoints) {
  auto& below = s.AddOwn<BelowHalf>("duration", "below");
  TestScene::Links(emitter, 2502, {&below});
  TestScene::Set(emitter, 1013, i32{1});
  Run();
  Expect(0.25, [](const Vec3d& q, double) { return q.y < 0.5 ? 1.0 : 0.0; });
  // Or cells.
  TestScene::Set(emitter, 1013, i32{0});
  Run();
  i32 reached = 0;
  const EGrid<double>& g = *smoke.mGrid;
  ForEachCell({{0, 0, 0}, g.Dims()}, [&](int x, int y, int z) {
    if (g(x, y, z) == 0) return;
    EXPECT_LT(g.PositionOf(x, y, z).y, 0.5);
    EXPECT_EQ(g(x, y, z), 0.75);
    ++reached;
  });
  EXPECT_GT(reached, 30);
}

TEST_F(PointsToGrid, CellsWithoutPointsKeepTheirs) {
  points.Make({{0.55, 0.55, 0.55}});
  s.SetUp();
  const double h = s.scene->mDomain.cellSize;
  smoke.ApplyBounds({0, 0, 0}, {12 * h, 12 * h, 12 * h});
  flow.ApplyBounds({0, 0, 0}, {12 * h, 12 * h, 12 * h});
  smoke.mGrid->Fill(0.5);
  TestScene::Run(emitter);
  EXPECT_EQ((*smoke.mGrid)(2, 2, 2), 0.5);
  EXPECT_EQ((*smoke.mGrid)(5, 5, 5), 3.5);
  EXPECT_EQ((*smoke.mGrid)(6, 5, 5), 3.5);
  EXPECT_EQ((*smoke.mGrid)(6, 6, 6), 0.5) << "1.73 cells away";
  Vec3d min{9, 9, 9}, max{-9, -9, -9};
  emitter.ExpandBounds(min, max);
  EXPECT_EQ(min, (Vec3d{0.55, 0.55, 0.55}));
  points.Make({});
  TestScene::Run(emitter);
  EXPECT_FALSE(emitter.Has(FLAG_ACTIVE));
}

TEST_F(PointsToGrid, WhatComesNowhereCountsAsNoRun) {
  const auto runsAfter = [&] {
    emitter.mRuns = 1;  // as its stage notes it
    emitter.mInactiveReason = nullptr;
    Run();
    return emitter.mRuns;
  };
  EXPECT_EQ(runsAfter(), 1u);
  EXPECT_EQ(emitter.mInactiveReason, nullptr);
  points.Make({{5, 5, 5}});
  EXPECT_EQ(runsAfter(), 0u);
  EXPECT_STREQ(emitter.mInactiveReason,
               "no cell whose centre lies inside of its shape is in the box of a gas");
  points.Make({{0.55, 0.55, 0.55}});
  TestScene::Set(emitter, ParticleToGridEmitter::kMassScaleRow, 0.0);
  EXPECT_EQ(runsAfter(), 0u);
  EXPECT_THAT(emitter.mInactiveReason, testing::HasSubstr("its weight is 0 in all cells"));
}

TEST_F(PointsToGrid, SameBytesOnAnyNumberOfWorkers) {
  Run(1);
  const EGrid<double> one = *smoke.mGrid, w = *flow.mGrids[2];
  for (const i32 threads : {2, 3, 7}) {
    Run(threads);
    EXPECT_EQ(std::memcmp(one.mData, smoke.mGrid->mData, one.mCount * sizeof(double)), 0);
    EXPECT_EQ(std::memcmp(w.mData, flow.mGrids[2]->mData, w.mCount * sizeof(double)), 0);
  }
}

}  // namespace
