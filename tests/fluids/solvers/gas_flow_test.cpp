// Whole gas steps against known flows.
#include <numbers>

#include "fluids/gas_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

struct FlowRig : GasRig {
  using GasRig::GasRig;
  ScalarField* heat = nullptr;
  ScalarField* smoke = nullptr;

  void AddPlume(bool swirls = true) {
    host::BaseNode& h = Add("channel_temp", "heat");
    host::BaseNode& s = Add("channel_scalar", "smoke");
    heat = Object<ScalarField>(h);
    smoke = Object<ScalarField>(s);
    host::BaseNode& lift = Add("force_buoyancy", "lift");
    lift.Set(1000, LinkTo(h));
    lift.Set(1002, LinkTo(s));
    lift.Set(1004, 0.03);
    lift.Set(1005, -0.2);
    if (swirls) Add("force_swirling", "swirl");
    for (const host::BaseNode* target : {&h, &s, static_cast<host::BaseNode*>(gasNode)})
      AddAdvection(*target, 1);
  }
  void AddAdvection(const host::BaseNode& target, i32 scheme) {
    host::BaseNode& node = Add("grid_advection", "move");
    node.Set(1000, LinkTo(target));
    node.Set(1005, LinkTo(*gasNode));
    node.Set(1002, scheme);
  }
  double Energy() const {
    double sum = 0;
    for (i32 a = 0; a < 3; ++a) {
      const EGrid<double>& g = *gas->mFlow.mVelocity.GetGrid(a);
      const VecInt3D up = ExtraOf(a);
      ForEachCell({{1, 1, 1}, gas->mFlow.GetLayout()->dims - VecInt3D{1, 1, 1}},
                  [&](i32 x, i32 y, i32 z) {
                    const double v = 0.5 * (g(x, y, z) + g(x + up.x, y + up.y, z + up.z));
                    sum += v * v;
                  });
    }
    return sum;
  }
  void AppendState(std::vector<double>& out) const {
    for (const EGrid<double>* g :
         {gas->mFlow.mVelocity.GetGrid(0), gas->mFlow.mVelocity.GetGrid(1),
          gas->mFlow.mVelocity.GetGrid(2), heat->GetGrid(0), smoke->GetGrid(0)})
      out.insert(out.end(), g->mData, g->mData + g->mCount);
  }
};

/// Energy left at t = 1 and 5 of the steady vortex in [0, pi]^2.
std::array<double, 2> TaylorGreenDecay(i32 scheme, double cellsPerStep) {
  constexpr i32 n = 64;
  const double h = std::numbers::pi / n;
  FlowRig rig({n, n, 2}, h, 2);
  rig.AddAdvection(*rig.gasNode, scheme);
  rig.gasNode->Set(1022, 0.4);
  rig.scene->mTime.stepDuration = cellsPerStep * h;
  rig.Begin();
  rig.FillVelocity([](const Vec3d& p) {
    return Vec3d{std::sin(p.x) * std::cos(p.y), -std::cos(p.x) * std::sin(p.y), 0};
  });
  rig.RunGas(kForcesEmission);
  rig.RunGas(kPressure);
  const double start = rig.Energy();
  std::array<double, 2> left{};
  double t = 0;
  for (const double until : {1.0, 5.0}) {
    while (t < until - 1e-9) rig.Step(), t += cellsPerStep * h;
    left[until > 2] = rig.Energy() / start;
  }
  return left;
}

}  // namespace

TEST(GasFlow, TaylorGreenDecaysAsPublishedSchemesDo) {
  const auto plain = TaylorGreenDecay(0, 1.0), corrected = TaylorGreenDecay(1, 1.0);
  EXPECT_NEAR(plain[0], 0.962, 0.02);
  EXPECT_NEAR(plain[1], 0.836, 0.02);
  EXPECT_NEAR(corrected[0], 0.976, 0.02);
  EXPECT_NEAR(corrected[1], 0.892, 0.02);
  EXPECT_LT(1 - corrected[1], 0.75 * (1 - plain[1]));
}

TEST(GasFlow, TaylorGreenWithHalfTheStep) {
  const auto plain = TaylorGreenDecay(0, 0.5), corrected = TaylorGreenDecay(1, 0.5);
  EXPECT_NEAR(plain[0], 0.960, 0.02);
  EXPECT_NEAR(plain[1], 0.823, 0.02);
  EXPECT_NEAR(corrected[0], 0.988, 0.02);
  EXPECT_NEAR(corrected[1], 0.942, 0.02);
  EXPECT_LT(1 - corrected[1], 0.4 * (1 - plain[1]));
}

TEST(GasFlow, AWarmSphereStartsWithTwoThirdsOfItsLift) {
  // The gas round it moves out of its way: added mass of half the displaced gas.
  constexpr i32 n = 48;
  FlowRig rig({n, n, n}, 0.125);
  rig.AddPlume();
  rig.Begin();
  const double h = 0.125;
  const Vec3d centre{n * h / 2, n * h / 2, n * h / 2};
  GasRig::Fill(*rig.heat->GetGrid(0), [&](const Vec3d& p) {
    // The share of a cell that lies in the sphere, along the radius.
    return 100 * std::clamp((8 * h - Length(p - centre)) / h + 0.5, 0.0, 1.0);
  });
  rig.RunGas(kForcesEmission);
  rig.RunGas(kPressure);
  const double lift = 0.5 * 0.04 * 0.03 * 100;
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  double sum = 0, cells = 0;
  for (i32 z = 0; z < v.mNz; ++z)
    for (i32 y = 0; y < v.mNy; ++y)
      for (i32 x = 0; x < v.mNx; ++x)
        if (Length(v.PositionOf(x, y, z) - centre) < 6 * h) sum += v(x, y, z), ++cells;
  EXPECT_NEAR(sum / cells / lift, 2.0 / 3, 0.1 * 2 / 3);
}

TEST(GasFlow, AMirrorSymmetricPlumeStaysSymmetric) {
  constexpr i32 n = 20;
  FlowRig rig({n, 28, n}, 0.1);
  rig.Walls(1, 1, 1, 0, 1, 1);
  rig.AddPlume();
  rig.Begin();
  const auto puff = [&](EGrid<double>& g, double amount) {
    GasRig::Fill(g, [&](const Vec3d& p) {
      const Vec3d d = p - Vec3d{1.0, 0.6, 1.0};
      return amount * std::exp(-Dot(d, d) / 0.08);
    });
  };
  puff(*rig.heat->GetGrid(0), 300);
  puff(*rig.smoke->GetGrid(0), 0.8);
  for (i32 step = 0; step < 100; ++step) rig.Step();
  const EGrid<double>& g = *rig.smoke->GetGrid(0);
  const EGrid<double>& v = *rig.gas->mFlow.mVelocity.GetGrid(1);
  double most = 0, difference = 0, rise = 0;
  ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
    most = std::max(most, g(x, y, z));
    rise = std::max(rise, v(x, y, z));
    difference = std::max({difference, std::abs(g(x, y, z) - g(g.mNx - 1 - x, y, z)),
                           std::abs(g(x, y, z) - g(x, y, g.mNz - 1 - z))});
  });
  EXPECT_GT(most, 0.01);
  EXPECT_GT(rise, 0.1);
  EXPECT_LT(difference, 1e-5 * most);
}

TEST(GasFlow, OneAndTwoThreadsGiveTheSameBytes) {
  for (const i32 linearSolver : {0, 1}) {
    std::vector<double> results[2];
    for (const i32 threads : {1, 2}) {
      FlowRig rig({18, 20, 17}, 0.1, threads);
      rig.gasNode->Set(1020, linearSolver);
      rig.Walls(1, 1, 1, 0, 1, 1);
      rig.AddPlume();
      rig.Begin();
      GasRig::Fill(*rig.heat->GetGrid(0), [](const Vec3d& p) {
        const Vec3d d = p - Vec3d{0.8, 0.6, 1.0};
        return 300 * std::exp(-Dot(d, d) / 0.1);
      });
      for (i32 step = 0; step < 4; ++step) rig.Step();
      rig.AppendState(results[threads - 1]);
    }
    EXPECT_EQ(results[0], results[1]) << linearSolver;
  }
}
