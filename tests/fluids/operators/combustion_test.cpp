#include <gtest/gtest.h>

#include "fluids/fields/field_rows.h"
#include "fluids/gas_rig.h"
#include "fluids/operators/grid_combustion.h"
#include "fluids/operators/operator_rig.h"
#include "framework/rest.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

/// A solver with nothing but a divergence.
class DivergenceOnly : public iFluidSolver {
 public:
  DivergenceOnly(host::BaseNode* node, Scene* scene) : iFluidSolver(node, scene), flow(scene) {}
  i32 GetListIndex() const override { return kListSolvers; }
  Flow& GetFlow() override { return flow; }
  Flow flow;
  ScalarField& divergence = flow.mDivergence;
};

class Combustion : public testing::Test {
 protected:
  static constexpr double kStep = 0.04;

  Combustion()
      : fuel(s.Add<FuelField>("channel_fuel", "fuel")),
        fire(s.Add<FireField>("channel_fire", "fire")),
        heat(s.Add<TemperatureField>("channel_temp", "heat")),
        smoke(s.Add<PlainField>("channel_scalar", "smoke")),
        solver(s.AddOwn<DivergenceOnly>("fluid", "gas")),
        burn(s.Add<GridCombustion>("grid_combustion_fire", "burn")) {
    OperatorRig::Link(burn, 1000, heat);
    OperatorRig::Link(burn, 1001, fire);
    OperatorRig::Link(burn, 1002, fuel);
    OperatorRig::Link(burn, 1003, smoke);
    OperatorRig::Link(burn, 12, solver);
  }
  void Begin() {
    s.Begin();
    solver.divergence.ApplyBounds({}, ToReal(s.cells) * double{s.scene->mDomain.cellSize});
    divergence = solver.divergence.GetGrid(0);
    divergence->Fill(0);
  }

  OperatorRig s{{8, 7, 9}};
  FuelField& fuel;
  FireField& fire;
  TemperatureField& heat;
  PlainField& smoke;
  DivergenceOnly& solver;
  GridCombustion& burn;
  EGrid<double>* divergence = nullptr;
};

}  // namespace

// Fuel falls by the burn rate until it is gone; heat, smoke and expansion follow what burnt.
TEST_F(Combustion, FuelFollowsTheBurnLaw) {
  const double rate = 1.5, first = 0.7, step = rate * kStep;
  OperatorRig::Set(burn, 2, rate);
  Begin();
  fuel.mGrid->Fill(first);
  heat.mGrid->Fill(650);
  for (i32 n = 1; n <= 14; ++n) {
    divergence->Fill(0);
    s.Run(burn);
    const double left = std::max(first - n * step, 0.0), burnt = first - left;
    const double now = left > 0 ? step : std::max(0.0, first - (n - 1) * step);
    s.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
      ASSERT_NEAR((*fuel.mGrid)(x, y, z), left, 1e-12) << n;
      ASSERT_NEAR((*heat.mGrid)(x, y, z), 650 + 1000 * burnt, 1e-9);
      ASSERT_NEAR((*smoke.mGrid)(x, y, z), 0.2 * kStep * burnt, 1e-12);
      ASSERT_NEAR((*divergence)(x, y, z), rate * 0.2 * now, 1e-12);
      ASSERT_EQ((*fire.mGrid)(x, y, z), 1.0);
    });
  }
  EXPECT_EQ((*fuel.mGrid)(3, 3, 3), 0.0) << "the last of it burns to exactly nothing";
  EXPECT_EQ((*fuel.mGrid)(0, 3, 3), first) << "the border keeps its fuel";
}

TEST_F(Combustion, OnlyHotFuelBurns) {
  Begin();
  fuel.mGrid->Fill(0.5);
  OperatorRig::Fill(*heat.mGrid, [](i32 x, i32, i32) { return x == 3 ? 600.0 : 599.9; });
  (*fuel.mGrid)(3, 2, 2) = 0;
  s.Run(burn);
  EXPECT_EQ((*fire.mGrid)(3, 3, 3), 1.0) << "at the ignition itself";
  EXPECT_EQ((*fire.mGrid)(2, 3, 3), 0.0);
  EXPECT_EQ((*fuel.mGrid)(2, 3, 3), 0.5);
  EXPECT_EQ((*fire.mGrid)(3, 2, 2), 0.0) << "no fuel, no fire";
}

// What oxygen leaves to burn: min(3.23 - fuel - smoke, fuel * ratio), times the burn step.
TEST_F(Combustion, OxygenLimitsTheBurn) {
  OperatorRig::Set(burn, 1004, i32{1});
  OperatorRig::Set(burn, 2, 2.0);
  OperatorRig::Set(burn, 3, 0.5);
  OperatorRig::Set(smoke, 1051, 10.0);
  OperatorRig::Set(fuel, 1051, 10.0);
  Begin();
  heat.mGrid->Fill(1000);
  fuel.mGrid->Fill(1.0);
  (*fuel.mGrid)(2, 2, 2) = 3.0;   // 0.13 of oxygen left
  (*smoke.mGrid)(2, 2, 2) = 0.1;  //
  (*fuel.mGrid)(4, 4, 4) = 3.0;   // none left
  (*smoke.mGrid)(4, 4, 4) = 0.25;
  s.Run(burn);
  const double step = 2 * kStep, smokeStep = 0.2 * kStep;
  const auto expect = [&](const VecInt3D& c, double fuelBefore, double smokeBefore, double oxygen) {
    const double burnt = oxygen * step;
    EXPECT_NEAR((*fuel.mGrid)(c.x, c.y, c.z), fuelBefore - burnt / 0.5, 1e-12);
    EXPECT_NEAR((*smoke.mGrid)(c.x, c.y, c.z), smokeBefore + 3 * burnt * smokeStep, 1e-12);
    EXPECT_NEAR((*heat.mGrid)(c.x, c.y, c.z), 1000 + 1000 * burnt, 1e-9);
    EXPECT_NEAR((*divergence)(c.x, c.y, c.z), 0.2 * burnt, 1e-12);
    EXPECT_EQ((*fire.mGrid)(c.x, c.y, c.z), 1.0);
  };
  expect({3, 3, 3}, 1.0, 0, 0.5);
  expect({2, 2, 2}, 3.0, 0.1, 3.23 - 3.1);
  expect({4, 4, 4}, 3.0, 0.25, 0);
}

// Without fuel the age of the fire sets temperature and smoke, for values in (threshold, 1].
TEST_F(Combustion, AFlameIsShapedByItsAge) {
  OperatorRig::Link(burn, 1002, burn);  // no channel
  OperatorRig::Set(burn, 6, host::SplineData{{{0, 1}, {1, 0.5}}});
  OperatorRig::Set(burn, 8, host::SplineData{{{0, 0}, {1, 2}}});
  OperatorRig::Set(heat, 1050, 1000.0);
  OperatorRig::Set(heat, 1051, 4000.0);
  Begin();
  const double threshold = 1600.0 / 4000;
  const double values[] = {threshold, 0.7, 1.0, 1.0001, 0.1};
  for (i32 i = 0; i < 5; ++i) (*fire.mGrid)(i + 1, 3, 3) = values[i];
  heat.mGrid->Fill(1234);
  s.Run(burn);
  const auto at = [](const ScalarField& channel, i32 i) { return (*channel.mGrid)(i + 1, 3, 3); };
  for (const i32 untouched : {0, 3, 4}) {
    EXPECT_EQ(at(heat, untouched), 1234) << values[untouched];
    EXPECT_EQ(at(smoke, untouched), 0);
    EXPECT_EQ((*divergence)(untouched + 1, 3, 3), 0);
  }
  EXPECT_NEAR(at(heat, 1), 0.75 * 3000 + 500, 1e-9);
  EXPECT_NEAR(at(smoke, 1), 1 * 0.2, 1e-12);
  EXPECT_NEAR(at(heat, 2), 3500, 1e-9);
  EXPECT_NEAR(at(smoke, 2), 0, 1e-12);
  for (const i32 burning : {1, 2}) EXPECT_NEAR((*divergence)(burning + 1, 3, 3), 0.2, 1e-12);
  EXPECT_EQ(at(fire, 1), 0.7) << "cooling ages it, not the flame";
}

TEST_F(Combustion, ConstraintsChooseTheCellsAndWeighNothing) {
  int asked = 0;
  auto& left = s.AddOwn<HalfLeft>("duration", "left", 0.4, &asked);
  OperatorRig::Links(burn, 2502, {&left});
  Begin();
  fuel.mGrid->Fill(0.5);
  heat.mGrid->Fill(700);
  s.Run(burn);
  EXPECT_NEAR((*fuel.mGrid)(3, 3, 3), 0.5 - kStep, 1e-12);
  EXPECT_EQ((*fuel.mGrid)(4, 3, 3), 0.5);
  EXPECT_EQ((*fire.mGrid)(4, 3, 3), 0);
  EXPECT_GT(asked, 0);
}

TEST_F(Combustion, WithoutItsChannelsItSleepsAndSaysWhy) {
  OperatorRig::Link(burn, 1001, burn);
  Begin();
  fuel.mGrid->Fill(0.5);
  heat.mGrid->Fill(700);
  burn.Prepare();
  EXPECT_FALSE(burn.Has(FLAG_ACTIVE));
  EXPECT_STREQ(burn.mInactiveReason, "it has no fire; name one under 'fire'");
  s.scene->mFlags &= ~Scene::kTimeChanged;
  burn.SetFlag(FLAG_DIRTY_CHECKED, false);
  burn.CheckDirty();
  EXPECT_FALSE(burn.IsDirty()) << "outside a simulation there is nothing to burn";
}

// A divergence on another layout gets splats: nothing is lost, and the order is the same for any
// number of workers.
TEST_F(Combustion, ExpansionOnAnotherLayout) {
  Begin();
  const double h = s.scene->mDomain.cellSize;
  solver.divergence.ApplyBounds({-h, -2 * h, -h}, {9 * h, 9 * h, 11 * h});
  divergence = solver.divergence.GetGrid(0);
  divergence->mLayout.SetOrigin({-13.7, -16.1, -6.2});
  EXPECT_TRUE(IsSameForAllThreads([&](i32 threads) {
    OperatorRig::Randomise(*fuel.mGrid, 3, 0, 0.06);
    heat.mGrid->Fill(700);
    smoke.mGrid->Fill(0);
    divergence->Fill(0);
    double burnt = 0, sum = 0;
    s.ForEachInnerCell(
        [&](i32 x, i32 y, i32 z) { burnt += std::min((*fuel.mGrid)(x, y, z), kStep); });
    s.Run(burn, threads);
    for (i32 i = 0; i < divergence->mCount; ++i) sum += (*divergence)[i];
    EXPECT_NEAR(sum, 0.2 * burnt, 1e-12);
    std::vector<double> all = OperatorRig::Copy(*divergence);
    for (const ScalarField* channel :
         {static_cast<ScalarField*>(&fuel), static_cast<ScalarField*>(&heat),
          static_cast<ScalarField*>(&smoke)})
      all.insert(all.end(), channel->mGrid->mData, channel->mGrid->mData + channel->mGrid->mCount);
    return all;
  }));
}

// The gas that a fire makes leaves a box through its open top in the same step.
TEST(CombustionFlow, ExpansionLeavesThroughTheOpenTop) {
  GasRig rig({14, 16, 13});
  rig.Walls(1, 1, 1, 0, 1, 1);
  rig.gasNode->Set(1022, 1.0);
  host::BaseNode& fuelNode = rig.Add("channel_fuel", "fuel");
  host::BaseNode& heatNode = rig.Add("channel_temp", "heat");
  host::BaseNode& fireNode = rig.Add("channel_fire", "fire");
  host::BaseNode& burnNode = rig.Add("grid_combustion_fire", "burn");
  burnNode.Set(1000, LinkTo(heatNode));
  burnNode.Set(1001, LinkTo(fireNode));
  burnNode.Set(1002, LinkTo(fuelNode));
  burnNode.Set(12, LinkTo(*rig.gasNode));
  burnNode.Set(2, 3.0);
  burnNode.Set(9, 5.0);
  rig.Begin();
  EGrid<double>& fuel = *rig.Object<FuelField>(fuelNode)->mGrid;
  rig.Object<TemperatureField>(heatNode)->mGrid->Fill(900);
  i32 burning = 0;
  ForEachCell({{4, 3, 5}, {9, 8, 8}}, [&](i32 x, i32 y, i32 z) {
    fuel(x, y, z) = 1;
    ++burning;
  });
  rig.RunOperators();
  rig.RunGas(kPressure);
  const double h = rig.scene->mDomain.cellSize, dt = 0.04;
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  const EGrid<float>& open = *rig.gas->mFlow.GetOpenFaces(1);
  double flow = 0;
  ForEachCell({{1, v.mNy - 2, 1}, {v.mNx - 1, v.mNy - 1, v.mNz - 1}},
              [&](i32 x, i32 y, i32 z) { flow += open(x, y, z) * v(x, y, z) * h * h; });
  // Divergence of a burning cell: what burnt, times rate and expansion.
  const double made = burning * (3 * dt) * (3 * 5) * h * h * h;
  EXPECT_GT(made, 0.1);
  EXPECT_NEAR(flow, made, 1e-5 * made);
  EXPECT_EQ((*rig.gas->mFlow.mDivergence.GetGrid(0))(5, 5, 6), 0)
      << "the source lives for one step";
}

// What burns nothing says what it lacks, and counts as no run.
TEST_F(Combustion, TellsWhyNothingBurns) {
  OperatorRig::Set(burn, GridCombustion::kModeRow, i32{1});
  OperatorRig::Set(fuel, field_row::kValueMax, 100.0);
  Begin();
  const auto why = [&](double fuelThere, double heatThere) -> std::string {
    fuel.mGrid->Fill(fuelThere);
    heat.mGrid->Fill(heatThere);
    burn.mRuns = 1;
    burn.mInactiveReason = nullptr;
    s.Run(burn);
    EXPECT_EQ(burn.mRuns, burn.mInactiveReason ? 0u : 1u);
    EXPECT_TRUE(!burn.mInactiveReason || MayPass(burn.mInactiveReason));
    return burn.mInactiveReason ? burn.mInactiveReason : "";
  };
  EXPECT_EQ(why(0, 900), kNoFuelReason);
  EXPECT_EQ(why(1, 599), kColdFuelReason);
  EXPECT_EQ(why(1, 600), "");
  EXPECT_EQ(why(4, 900), kNoAirReason) << "more than the air of a cell";
  burn.Node()->Set(GridCombustion::kFuelRow, host::Link{});
  Begin();
  fire.mGrid->Fill(0);
  EXPECT_EQ(why(0, 900), kNoFlameReason);
  fire.mGrid->Fill(0.9);
  EXPECT_EQ(why(0, 900), "");
}
