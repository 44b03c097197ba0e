#include "io/measure.h"

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/fields/channel.h"
#include "grids/for_each_cell.h"
#include "nodes/catalogue.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// A scene with a gas solver and a scalar channel, as after a step over `cells` cells.
struct MeasuredScene {
  explicit MeasuredScene(const VecInt3D& cells, f32 h) {
    layout.Set(cells, ToReal(cells) * (100.0 * h), h, {-100, 0, 0});
    host::BaseNode& server = CreateNode(document, *FindKind("server"), "scene", nullptr);
    gasNode = &CreateNode(document, *FindKind("fluid"), "gas", &server);
    smokeNode = &CreateNode(document, *FindKind("channel_scalar"), "smoke", &server);
    scene = CreateScene(server);
    scene->Synchronise(&document);
    solver = static_cast<FluidSolver*>(scene->List(kListSolvers).at(gasNode->Id()).get());
    channel = static_cast<ScalarField*>(scene->List(kListChannels).at(smokeNode->Id()).get());
    for (i32 axis = 0; axis < 3; ++axis)
      solver->mFlow.mVelocity.mGrids[axis] = std::make_unique<EGrid<double>>(layout, axis);
    channel->mGrid = std::make_unique<EGrid<double>>(layout, kCentre);
  }
  EGrid<double>& Velocity(i32 axis) { return *solver->mFlow.mVelocity.mGrids[axis]; }

  GridLayout layout;
  host::Document document;
  host::BaseNode* gasNode = nullptr;
  host::BaseNode* smokeNode = nullptr;
  std::unique_ptr<SulvaScene> scene;
  FluidSolver* solver = nullptr;
  ScalarField* channel = nullptr;
};

}  // namespace

TEST(Measure, UniformFlowHasTheEnergyOfTheInnerCells) {
  MeasuredScene m({9, 7, 12}, 0.1f);
  m.solver->density = 2.5;
  for (i32 axis = 0; axis < 3; ++axis) {
    for (i32 other = 0; other < 3; ++other) m.Velocity(other).Fill(other == axis ? -3.0 : 0.0);
    const SolverRecord record = MeasureSolver(*m.solver, 1);
    const double volume = 7 * 5 * 10 * std::pow(double{0.1f}, 3);
    EXPECT_NEAR(record.kineticEnergy, 0.5 * 2.5 * 9 * volume, 1e-12);
    EXPECT_EQ(record.maxSpeed, 3);
    EXPECT_EQ(record.dims, (VecInt3D{9, 7, 12}));
  }
  // Faces that nothing flows through neither move nor store energy.
  for (i32 axis = 0; axis < 3; ++axis) m.Velocity(axis).Fill(0);
  const SolverRecord rest = MeasureSolver(*m.solver, 2);
  EXPECT_EQ(rest.maxSpeed, 0);
  EXPECT_EQ(rest.kineticEnergy, 0);
}

TEST(Measure, LiquidHasTheVolumeOfItsCells) {
  MeasuredScene m({9, 7, 12}, 0.1f);
  EXPECT_FALSE(MeasureSolver(*m.solver, 1).liquid);
  EGrid<double> surface(m.layout, kCentre);
  surface.Fill(0.06);
  ForEachCell({{1, 1, 2}, {8, 4, 11}}, [&](i32 x, i32 y, i32 z) { surface(x, y, z) = -0.06; });
  m.solver->mFlow.mSurface = &surface;
  for (const i32 threads : {1, 3}) {
    const SolverRecord record = MeasureSolver(*m.solver, threads);
    ASSERT_TRUE(record.liquid);
    EXPECT_NEAR(*record.liquid, 7 * 3 * 9 * std::pow(double{0.1f}, 3), 1e-12);
  }
  m.solver->mFlow.mSurface = nullptr;
}

TEST(Measure, BrokenVelocitiesAreSeenOnEveryFace) {
  for (const double broken : {std::nan(""), HUGE_VAL}) {
    MeasuredScene m({6, 6, 6}, 0.1f);
    m.Velocity(1)(5, 6, 5) = broken;
    FrameRecord record;
    MeasureScene(*m.scene, NodeNames(m.document), record);
    EXPECT_NE(FindNonFinite(record).find("gas"), std::string::npos);
  }
}

TEST(Measure, ChannelsDontDependOnTheThreadCount) {
  MeasuredScene m({13, 11, 17}, 0.05f);
  EGrid<double>& grid = *m.channel->mGrid;
  double sum = 0;
  for (i32 i = 0; i < grid.mCount; ++i) sum += grid[i] = std::sin(0.37 * i) * std::exp(0.003 * i);
  const ChannelRecord one = MeasureChannel(*m.channel, 1);
  const ChannelRecord two = MeasureChannel(*m.channel, 2);
  EXPECT_EQ(one.min.x, *std::min_element(grid.mData, grid.mData + grid.mCount));
  EXPECT_EQ(one.max.x, *std::max_element(grid.mData, grid.mData + grid.mCount));
  EXPECT_NEAR(one.sum.x, sum, 1e-9 * std::abs(sum));
  EXPECT_EQ(one.sum.x, two.sum.x);
  EXPECT_EQ(one.dims, (VecInt3D{13, 11, 17}));
  EXPECT_NEAR(one.origin.x, -1, 1e-6);

  grid(12, 10, 16) = std::nan("");
  EXPECT_TRUE(std::isnan(MeasureChannel(*m.channel, 2).sum.x));
  m.channel->mGrid.reset();
  EXPECT_EQ(MeasureChannel(*m.channel, 2).dims, VecInt3D{});
}
