#include "fluids/emission/grid_cell_emitter.h"

#include <gtest/gtest.h>

#include "fluids/fields/fuel_grid_channel.h"
#include "fluids/test_scene.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// Scales a cell and adds weight times height and host position to it; adds to each component of a
/// vector its number.
class AddHeight : public ChannelOperator {
 public:
  AddHeight(host::BaseNode* node, Scene* scene, double factor)
      : ChannelOperator(node, scene), mFactor(factor) {}
  void GetCategories(u32& mask) const override { mask |= kCategoryGrid; }
  bool Open() override { return ++prepared; }
  void Close() override { ++finished; }
  void ChangeCells(const CellRecord* cells, i32 count, const EvaluationThreadData&) override {
    for (i32 i = 0; i < count; ++i) {
      const CellRecord& cell = cells[i];
      if (mScalar) {
        double& v = (*mScalar->mGrid)[cell.cellIndex];
        v = mFactor * v + cell.weight * (cell.position.y + cell.worldPosition.x);
      } else {
        for (i32 a = 0; a < 3; ++a) (*mVectorChannel->mGrids[a])[cell.cellIndices[a]] += a + 1;
      }
    }
  }
  int prepared = 0, finished = 0;

 private:
  double mFactor;
};

class LeftOnly : public Constraint {
 public:
  using Constraint::Constraint;
  bool Test(const Vec3d& p, double& weight, const ConstraintUse&) override {
    weight *= p.x < 0.3 ? 0.5 : 0.0;
    return weight != 0;
  }
};

/// A solver with nothing but fields.
class Fields : public iFluidSolver {
 public:
  Fields(host::BaseNode* node, Scene* scene) : iFluidSolver(node, scene), flow(scene) {}
  i32 GetListIndex() const override { return kListSolvers; }
  Flow& GetFlow() override { return flow; }
  Flow flow;
  ScalarField& divergence = flow.mDivergence;
  VelocityField& velocity = flow.mVelocity;
};

class CellEmitter : public testing::Test {
 protected:
  CellEmitter()
      : emitter(s.Add<Grid_CellEmitter>("grid_celliterator", "cells")),
        smoke(s.Add<PlainField>("channel_scalar", "smoke")) {
    TestScene::Link(emitter, 1000, smoke);
    TestScene::Set(smoke, 1051, 1e6);
  }
  template <class C>
  void Fit(C& channel) {
    const double h = s.scene->mDomain.cellSize;
    ASSERT_TRUE(channel.ApplyBounds({0, -2 * h, -4 * h}, {6 * h, 5 * h, 7 * h}));
  }
  TestScene s;
  Grid_CellEmitter& emitter;
  PlainField& smoke;
};

TEST_F(CellEmitter, OperatorsRunInOrderOnAllCellsButTheBorder) {
  auto& once = s.AddOwn<AddHeight>("duration", "once", 1.0);
  auto& thrice = s.AddOwn<AddHeight>("duration", "thrice", 3.0);
  for (const i32 threads : {1, 2, 5}) {
    TestScene::Links(emitter, 1001, {&thrice, &once});
    s.SetUp();
    Fit(smoke);
    smoke.mGrid->Fill(0);
    TestScene::Run(emitter, threads);
    const EGrid<double>& g = *smoke.mGrid;
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](int x, int y, int z) {
      const bool border =
          x == 0 || y == 0 || z == 0 || x == g.mNx - 1 || y == g.mNy - 1 || z == g.mNz - 1;
      const Vec3d p = g.PositionOf(x, y, z);
      // (0 * 3 + h) * 1 + h: the other way round it would be four times h.
      EXPECT_NEAR(g(x, y, z), border ? 0 : 2 * (p.y + 100 * p.x), 1e-5);
    });
  }
  EXPECT_EQ(once.prepared, 3);
  EXPECT_EQ(once.finished, 3);
  EXPECT_TRUE(smoke.IsDirty());
}

TEST_F(CellEmitter, ConstraintsWeighAndDrop) {
  auto& once = s.AddOwn<AddHeight>("duration", "once", 1.0);
  auto& left = s.AddOwn<LeftOnly>("duration", "left");
  TestScene::Links(emitter, 1001, {&once});
  TestScene::Links(emitter, 2502, {&left});
  s.SetUp();
  Fit(smoke);
  TestScene::Run(emitter);
  const EGrid<double>& g = *smoke.mGrid;
  const Vec3d p = g.PositionOf(2, 3, 4);
  EXPECT_NEAR(g(2, 3, 4), 0.5 * (p.y + 100 * p.x), 1e-5);
  EXPECT_EQ(g(3, 3, 4), 0);
}

TEST_F(CellEmitter, ASolverGivesDivergenceOrVelocity) {
  auto& add = s.AddOwn<AddHeight>("duration", "add", 1.0);
  auto& fields = s.AddOwn<Fields>("fluid", "gas");
  TestScene::Link(emitter, 1000, fields);
  TestScene::Links(emitter, 1001, {&add});
  Fit(fields.velocity);
  Fit(fields.divergence);
  s.SetUp();
  TestScene::Run(emitter);
  EXPECT_NE((*fields.divergence.mGrid)(2, 2, 2), 0);
  TestScene::Set(emitter, 1004, i32{2});
  s.SetUp();
  TestScene::Run(emitter);
  for (i32 a = 0; a < 3; ++a) {
    const EGrid<double>& g = *fields.velocity.mGrids[a];
    EXPECT_EQ(g(4, 5, 9), a + 1) << "the low faces of the last inner cell";
    EXPECT_EQ(g(5, 5, 9), 0);
    EXPECT_EQ(g(4, 5, 10), 0);
  }
}

TEST_F(CellEmitter, WithoutAGridOrOperatorsItRests) {
  s.SetUp();
  emitter.Prepare();
  EXPECT_STREQ(emitter.mInactiveReason, "its channel has no grid");
  Fit(smoke);
  TestScene::Run(emitter);
  EXPECT_STREQ(emitter.mInactiveReason, "it has no operators; name some under 'operators'");
  // No list at all means every operator of the scene.
  auto& add = s.AddOwn<AddHeight>("duration", "add", 1.0);
  emitter.Node()->Erase(1001);
  s.SetUp();
  TestScene::Run(emitter);
  EXPECT_EQ(add.prepared, 1);
}

}  // namespace
