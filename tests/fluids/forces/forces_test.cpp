#include <random>

#include "fluids/forces/force_swirling.h"
#include "fluids/gas_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::InExcludeData;

namespace {

struct ForceRig : GasRig {
  using GasRig::GasRig;
  ScalarField* heat = nullptr;
  ScalarField* smoke = nullptr;
  ScalarField* dust = nullptr;
  host::BaseNode* force = nullptr;

  void AddBuoyancy(bool second) {
    host::BaseNode& h = Add("channel_temp", "heat");
    host::BaseNode& s = Add("channel_scalar", "smoke");
    heat = Object<ScalarField>(h);
    smoke = Object<ScalarField>(s);
    force = &Add("force_buoyancy", "lift");
    force->Set(1000, LinkTo(h));
    force->Set(1002, LinkTo(s));
    force->Set(1003, Vec3d{0, 1, 0.5});
    force->Set(1004, 0.02);
    force->Set(1005, -0.3);
    if (!second) return;
    host::BaseNode& d = Add("channel_scalar", "dust");
    dust = Object<ScalarField>(d);
    force->Set(1001, LinkTo(d));
  }
  double V(i32 axis, i32 x, i32 y, i32 z) const {
    return (*gas->mFlow.mVelocity.GetGrid(axis))(x, y, z);
  }
};

}  // namespace

TEST(Forces, GravityAddsExactlyItsStepToOpenFaces) {
  ForceRig rig({6, 6, 6});
  rig.Add("force_gravity", "g").Set(1002, 2.0);
  rig.Begin();
  rig.RunGas(kForcesEmission);
  const double change = -9.81 * (0.04 * 2.0);
  for (i32 y = 2; y <= 6; ++y) EXPECT_EQ(rig.V(1, 3, y, 3), change) << y;
  EXPECT_EQ(rig.V(1, 3, 1, 3), 0) << "a closed face";
  EXPECT_EQ(rig.V(0, 3, 3, 3), 0);
  rig.RunGas(kForcesEmission);
  EXPECT_EQ(rig.V(1, 3, 3, 3), 2 * change);
}

TEST(Forces, GravityTurnsWithItsNodeButKeepsItsLength) {
  ForceRig rig({6, 6, 6});
  host::BaseNode& g = rig.Add("force_gravity", "g");
  g.SetPlacement({100, 50, 0}, {0, 0, 90}, {3, 3, 3});
  rig.Begin();
  rig.RunGas(kForcesEmission);
  EXPECT_NEAR(rig.V(0, 3, 3, 3), 9.81 * 0.04, 1e-12);
  EXPECT_NEAR(rig.V(1, 3, 3, 3), 0, 1e-12);
}

TEST(Forces, GravityIsGatedByTheWindowOfItsSettings) {
  ForceRig rig({6, 6, 6});
  host::BaseNode& window = rig.Add("duration", "window");
  window.Set(1000, 2.0);  // at 1 s half of it has passed
  host::BaseNode& settings = rig.Add("emission_setting", "settings");
  settings.Set(1004, LinkTo(window));
  rig.Add("force_gravity", "g").Set(1003, LinkTo(settings));
  rig.Begin();
  rig.RunGas(kForcesEmission);
  EXPECT_NEAR(rig.V(1, 3, 3, 3), 0.5 * -9.81 * 0.04, 1e-15);
  rig.scene->mTime.elapsed = 3;
  rig.RunGas(kForcesEmission);
  EXPECT_NEAR(rig.V(1, 3, 3, 3), 0.5 * -9.81 * 0.04, 1e-15) << "closed";
}

TEST(Forces, GravityTakesItsDirectionFromAnAlignment) {
  ForceRig rig({6, 6, 6});
  host::BaseNode& inwards = rig.Add("alignment", "inwards");
  inwards.Set(1000, i32{3});
  inwards.Set(1001, i32{1});
  // The middle of the box; the grids have one more layer on each side.
  inwards.SetPlacement({30, 30, 30}, {}, {1, 1, 1});
  host::BaseNode& g = rig.Add("force_gravity", "g");
  g.Set(1001, LinkTo(inwards));
  g.Set(1002, 2.0);
  rig.Begin();
  rig.RunGas(kForcesEmission);
  const double left = rig.V(0, 2, 3, 3), right = rig.V(0, 6, 3, 3);
  EXPECT_GT(left, 0.04);
  EXPECT_LT(left, 0.08) << "a unit a second, times its strength";
  EXPECT_LT(right, -0.04);
}

TEST(Forces, AnEmptyListMeansNoForces) {
  ForceRig rig({6, 6, 6});
  host::BaseNode& first = rig.Add("force_gravity", "a");
  rig.Add("force_gravity", "b");
  const auto fall = [&] {
    rig.SetUp();
    rig.Fit();
    rig.gas->mFlow.mVelocity.Reset();
    rig.RunGas(kEmitters);
    rig.RunGas(kForcesEmission);
    return rig.V(1, 3, 3, 3) / (-9.81 * 0.04);
  };
  EXPECT_NEAR(fall(), 2, 1e-12);
  rig.gasNode->Set(1008, InExcludeData{});
  EXPECT_NEAR(fall(), 0, 1e-12);
  rig.gasNode->Set(1008, InExcludeData{{{first.Id(), 0}}});
  EXPECT_NEAR(fall(), 1, 1e-12);
}

TEST(Forces, BuoyancyFollowsItsFormula) {
  for (const bool second : {false, true}) {
    ForceRig rig({6, 6, 6});
    rig.AddBuoyancy(second);
    host::BaseNode& window = rig.Add("duration", "window");
    window.Set(1000, 4.0);  // at 1 s of 4 s the weight has faded to 0.75
    rig.force->Set(1009, LinkTo(window));
    rig.Begin();
    GasRig::Fill(*rig.heat->GetGrid(0), [](const Vec3d& p) { return 100 * p.x; });
    rig.smoke->GetGrid(0)->Fill(0.4);
    if (second) rig.dust->GetGrid(0)->Fill(0.2);
    rig.RunGas(kForcesEmission);
    const double t = 100 * rig.heat->GetGrid(0)->PositionOf(4, 3, 3).x;
    const double lift = t * 0.02 + 0.4 * -0.3 + (second ? 0.2 * -0.3 : 0);
    const double weight = second ? 0.75 * 0.75 : 0.75;
    EXPECT_NEAR(rig.V(1, 4, 3, 3), 0.5 * 0.04 * lift * weight, 1e-14);
    EXPECT_NEAR(rig.V(2, 4, 3, 3), 0.25 * 0.04 * lift * weight, 1e-14);
    EXPECT_EQ(rig.V(0, 4, 3, 3), 0);
  }
}

TEST(Forces, BuoyancyNeedsTemperature) {
  ForceRig rig({6, 6, 6});
  rig.Add("force_buoyancy", "lift");
  rig.Begin();
  rig.RunGas(kForcesEmission);
  EXPECT_EQ(rig.V(1, 3, 3, 3), 0);
}

TEST(Forces, RowsAddWhatSamplesAdd) {
  ForceRig rig({9, 7, 5});
  rig.AddBuoyancy(true);
  host::BaseNode& swirl = rig.Add("force_swirling", "swirl");
  swirl.Set(1004, i32{1});
  host::BaseNode& gravity = rig.Add("force_gravity", "g");
  rig.Begin();
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(-0.2, 1);
  for (ScalarField* field : {rig.heat, rig.smoke, rig.dust})
    for (i32 i = 0; i < field->GetGrid(0)->mCount; ++i) (*field->GetGrid(0))[i] = unit(random);
  for (i32 a = 0; a < 3; ++a)
    for (i32 i = 0; i < rig.gas->mFlow.mVelocity.GetGrid(a)->mCount; ++i)
      (*rig.gas->mFlow.mVelocity.GetGrid(a))[i] = unit(random);

  const GridLayout& layout = *rig.gas->mFlow.GetLayout();
  for (const host::BaseNode* node : {rig.force, &swirl, &gravity}) {
    Force& force = *rig.Object<Force>(*node);
    force.PrepareFor(rig.gas->mFlow);
    ASSERT_TRUE(force.Has(FLAG_ACTIVE)) << node->Name();
    const i32 n = layout.dims.x - 2;
    std::vector<u8> open(n, 1);
    std::vector<float> fraction(n, 1);
    std::vector<double> sums[3];
    ForceRow row;
    row.count = n;
    row.cell = {1, 3, 2};
    row.open = open.data();
    row.step = layout.simCell.x;
    row.position = layout.simOrigin + Vec3d{1.5, 3.5, 2.5} * layout.simCell;
    row.cellIndex = (layout.dims.y * 2 + 3) * layout.dims.x + 1;
    for (int a = 0; a < 3; ++a) {
      sums[a].assign(n, 0.125);
      row.force[a] = sums[a].data();
      row.fraction[a] = fraction.data();
    }
    force.EvaluateRow(row);
    double largest = 0;
    for (i32 x = 0; x < n; ++x) {
      ForceSample sample;
      sample.cellIndex = row.cellIndex + x;
      sample.position = row.PositionOf(x);
      sample.force = {0.125, 0.125, 0.125};
      force.Evaluate(sample);
      for (int a = 0; a < 3; ++a) {
        EXPECT_EQ(sums[a][x], sample.force[a]) << node->Name() << " " << x;
        largest = std::max(largest, std::abs(sample.force[a] - 0.125));
      }
    }
    EXPECT_GT(largest, 1e-6) << node->Name();
    force.Finish();
  }
}

TEST(Swirling, LeavesUniformAndRigidFlowAlone) {
  for (const bool rigid : {false, true}) {
    ForceRig rig({10, 10, 10});
    Force_Swirling& swirl = *rig.Object<Force_Swirling>(rig.Add("force_swirling", "swirl"));
    rig.Begin();
    rig.FillVelocity([&](const Vec3d& p) {
      return rigid ? Vec3d{-3 * p.y, 3 * p.x, 0} : Vec3d{1, -2, 0.5};
    });
    swirl.PrepareFor(rig.gas->mFlow);
    // The rotation of the whole is its mean, which is left out.
    const EGrid<double>& m = *swirl.GetMagnitude();
    for (i32 i = 0; i < m.mCount; ++i) ASSERT_NEAR(m[i], 0, 1e-11);
    if (rigid) continue;
    rig.RunGas(kForcesEmission);
    EXPECT_EQ(rig.V(0, 5, 5, 5), 1);
    EXPECT_EQ(rig.V(1, 5, 5, 5), -2);
  }
}

TEST(Swirling, PushesRoundAVortexAndNotOutOfIt) {
  ForceRig rig({24, 24, 8});
  host::BaseNode& node = rig.Add("force_swirling", "swirl");
  node.Set(1003, i32{0});
  rig.Begin();
  const double h = rig.gas->mFlow.GetLayout()->cellSize, centre = 12 * h, core = 3 * h;
  // A vortex about the z axis whose vorticity falls off as a bell, counter-clockwise.
  rig.FillVelocity([&](const Vec3d& p) {
    const double x = p.x - centre, y = p.y - centre, r2 = x * x + y * y;
    const double spin = r2 > 0 ? (1 - std::exp(-r2 / (core * core))) / r2 : 1 / (core * core);
    return Vec3d{-y * spin, x * spin, 0};
  });
  const Vec3d before{rig.V(0, 17, 13, 4), rig.V(1, 17, 13, 4), 0};
  Force_Swirling& swirl = *rig.Object<Force_Swirling>(node);
  swirl.PrepareFor(rig.gas->mFlow);
  ASSERT_TRUE(swirl.GetMagnitude());
  const double atCore = (*swirl.GetMagnitude())(13, 13, 4);
  EXPECT_NEAR(atCore, 2 / (core * core), 0.15 * atCore);
  ForceSample sample;
  sample.position = rig.gas->mFlow.GetLayout()->simOrigin + Vec3d{16.5, 13, 4.5} * h;
  sample.cellIndex = 0;
  swirl.Evaluate(sample);
  // The gradient points to the core, so N x W points along the rotation: at (3.5, 0.5) cells from
  // the core that is (-0.5, 3.5).
  EXPECT_GT(sample.force.y, 0);
  EXPECT_NEAR(sample.force.x / sample.force.y, -1.0 / 7, 0.02);
  EXPECT_NEAR(sample.force.z, 0, 1e-12);
  // Its size is h x strength x dt x vorticity.
  const double w = (*swirl.GetMagnitude())(16, 13, 4);
  const double whole = h * 0.8 * 0.2 * 0.04 * w;
  EXPECT_NEAR(Length(sample.force), whole, 1e-5 * whole);
  EXPECT_GT(before.y, 0);
}

TEST(Swirling, TakesNoDirectionFromRounding) {
  // Uniform shear, but for rounding: its vorticity changes nowhere.
  ForceRig rig({10, 10, 10}, 0.1, 1);
  rig.Begin();
  rig.FillVelocity([](const Vec3d& p) { return Vec3d{3 * p.y, 0, 0}; });
  host::BaseNode& node = rig.Add("force_swirling", "swirl");
  node.Set(1003, false);
  rig.SetUp();
  Force_Swirling& swirl = *rig.Object<Force_Swirling>(node);
  swirl.PrepareFor(rig.gas->mFlow);
  double most = 0;
  ForEachCell({{3, 3, 3}, {8, 8, 8}}, [&](i32 x, i32 y, i32 z) {
    ForceSample sample;
    sample.position =
        rig.gas->mFlow.GetLayout()->simOrigin + Vec3d{x + 0.5, y + 0.5, z + 0.5} * 0.1;
    swirl.Evaluate(sample);
    most = std::max(most, Length(sample.force));
  });
  EXPECT_LT(most, 1e-7 * 0.1 * 0.8 * 0.2 * 0.04 * 3) << "a share of what a whole direction gives";
}

TEST(Swirling, IsTheSameForAnyNumberOfThreads) {
  std::vector<double> results[2];
  for (const i32 threads : {1, 2}) {
    ForceRig rig({12, 9, 11}, 0.1, threads);
    rig.Add("force_swirling", "swirl");
    rig.Begin();
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(-1, 1);
    for (i32 a = 0; a < 3; ++a)
      for (i32 i = 0; i < rig.gas->mFlow.mVelocity.GetGrid(a)->mCount; ++i)
        (*rig.gas->mFlow.mVelocity.GetGrid(a))[i] = unit(random);
    rig.RunGas(kForcesEmission);
    for (i32 a = 0; a < 3; ++a) {
      const EGrid<double>& g = *rig.gas->mFlow.mVelocity.GetGrid(a);
      results[threads - 1].insert(results[threads - 1].end(), g.mData, g.mData + g.mCount);
    }
  }
  EXPECT_EQ(results[0], results[1]);
}
