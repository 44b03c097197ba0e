#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "fluids/gas_rig.h"
#include "fluids/pressure/grid_viscosity.h"
#include "fluids/pressure/projection_box.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using std::numbers::pi;

/// A channel along x, 1 high, that is open at its ends and to the sides.
struct Channel {
  GasRig rig;
  Grid_Viscosity viscosity;
  i32 n;

  Channel(i32 cells, i32 length, double dt) : rig({length, cells, 2}, 1.0 / cells), n(cells) {
    rig.Walls(0, 0, 1, 1, 0, 0);
    rig.scene->mTime.stepDuration = dt;
    rig.Begin();
    viscosity.mAccuracy = {100, 1e-7};
  }
  Flow& Get() { return rig.gas->mFlow; }
  /// The speed along x in the middle of the channel, at the row of cells j of the user's box.
  double At(i32 j) { return At(Get().mVelocity.GetGrid(0)->mNx / 2, j); }
  double At(i32 x, i32 j) { return (*Get().mVelocity.GetGrid(0))(x, j + 1, 1); }
  /// Fits a sine that is 0 at the walls `low` and 1.
  double Amplitude(double low = 0) {
    double sum = 0, weight = 0;
    for (i32 j = 0; j < n; ++j) {
      const double y = (j + 0.5) / n;
      if (y < low) continue;
      const double mode = std::sin(pi * (y - low) / (1 - low));
      sum += mode * At(j);
      weight += mode * mode;
    }
    return sum / weight;
  }
  void FillSine(double low = 0) {
    rig.FillVelocity([&](const Vec3d& p) {
      return Vec3d{std::max(0.0, std::sin(pi * (p.y - low) / (1 - low))), 0, 0};
    });
  }
};

TEST(Viscosity, AShearModeDecaysAsItShould) {
  Channel channel(32, 160, 0.05);
  channel.FillSine();
  for (i32 step = 0; step < 20; ++step)
    ASSERT_TRUE(channel.viscosity.Apply(channel.Get(), {.viscosity = 0.2, .density = 2}));
  EXPECT_NEAR(channel.Amplitude(), 0.38189, 0.005 * 0.38189);
}

TEST(Viscosity, WallsThatLieBetweenFacesHoldWhereTheyAre) {
  for (const double cells : {4.3, 4.8}) {
    Channel channel(32, 160, 0.05);
    const double floor = cells / 32;
    projection::FormulaVolume slab(projection::MakeLayout({180, 12, 12}, 1.0F / 32, {-8, -4, -4}),
                                   [&](const Vec3d& p) { return p.y - floor; });
    slab.SetFlag(FLAG_ENABLED, true);
    channel.Get().mBoundary.mObstacles = {&slab};
    channel.Get().BuildSolids();
    channel.FillSine(floor);
    const double before = channel.Amplitude(floor);
    for (i32 step = 0; step < 20; ++step)
      channel.viscosity.Apply(channel.Get(), {.viscosity = 0.1, .density = 1});
    const double rate = 0.1 * pi * pi / ((1 - floor) * (1 - floor));
    const double left = std::pow(1 + 0.05 * rate, -20);
    EXPECT_NEAR(channel.Amplitude(floor) / before, left, 0.02 * left) << cells;
    channel.Get().mBoundary.mObstacles.clear();
  }
}

TEST(Viscosity, ADrivenFlowStartsAndEndsAsPoiseuilles) {
  constexpr i32 kSteps = 50;  // to a time of 0.05
  const double expected[3][2] = {{0.3042, 0.3704}, {0.4780, 0.6154}, {0.7448, 0.9926}};
  Channel channel(16, 64, 0.05 / kSteps);
  EGrid<double>& u = *channel.Get().mVelocity.GetGrid(0);
  const auto drive = [&](i32 steps) {
    for (i32 step = 0; step < steps; ++step) {
      for (i32 i = 0; i < u.mCount; ++i) u[i] += channel.Get().StepDuration();
      channel.viscosity.Apply(channel.Get(), {.viscosity = 1, .density = 1});
    }
  };
  const double top = 1.0 / 8;
  // Between the two rows about a place.
  const auto at = [&](double y) {
    const i32 j = static_cast<i32>(y * 16);
    return 0.5 * (channel.At(j - 1) + channel.At(j)) / top;
  };
  i32 done = 0;
  for (i32 k = 0; k < 3; ++k) {
    const i32 steps = kSteps * std::array{1, 2, 10}[k];
    drive(steps - std::exchange(done, steps));
    EXPECT_NEAR(at(0.25), expected[k][0], 0.01) << k;
    EXPECT_NEAR(at(0.5), expected[k][1], 0.01) << k;
  }
  channel.rig.scene->mTime.stepDuration = 1;
  drive(20);
  EXPECT_NEAR(at(0.5), 1, 0.01);
}

TEST(Viscosity, LayersShareTheirStress) {
  Channel channel(32, 160, 100);
  const GridLayout& layout = *channel.Get().GetLayout();
  EGrid<double> thick(layout, kCentre);
  GasRig::Fill(thick, [](const Vec3d& p) { return p.y < 0.5 ? 1.0 : 10.0; });
  EGrid<double>& u = *channel.Get().mVelocity.GetGrid(0);
  for (i32 step = 0; step < 20; ++step) {
    for (i32 i = 0; i < u.mCount; ++i) u[i] += channel.Get().StepDuration();
    channel.viscosity.Apply(channel.Get(), {.viscosities = &thick, .density = 1});
  }
  // The stress is y0 - y, the speed 0 at both walls; the row of edges between the layers has the
  // mean of both.
  constexpr i32 kParts = 3200;
  const auto viscosity = [&](double y) {
    return y < 0.5 - 0.5 / 32 ? 1.0 : y < 0.5 + 0.5 / 32 ? 5.5 : 10.0;
  };
  double first = 0, all = 0;
  for (i32 k = 0; k < kParts; ++k) {
    const double y = (k + 0.5) / kParts;
    first += y / viscosity(y);
    all += 1 / viscosity(y);
  }
  const auto expected = [&](double top) {
    double sum = 0;
    for (i32 k = 0; (k + 0.5) / kParts < top; ++k)
      sum += (first / all - (k + 0.5) / kParts) / viscosity((k + 0.5) / kParts) / kParts;
    return sum;
  };
  for (const i32 j : {3, 8, 14, 23, 29})
    EXPECT_NEAR(channel.At(j), expected((j + 0.5) / 32), 0.01 * expected((j + 0.5) / 32)) << j;
}

/// A box with a ball in it, and a flow of noise.
struct Stirred {
  GasRig rig;
  std::unique_ptr<projection::FormulaVolume> ball;
  Grid_Viscosity viscosity;

  explicit Stirred(i32 threads = 1, i32 n = 16) : rig({n, n, n}, 0.1, threads) {
    ball = projection::Ball({0.55 * n, 0.4 * n, 0.5 * n}, 0.2 * n, 0.1F);
    ball->SetFlag(FLAG_ENABLED, true);
    rig.Begin();
    rig.gas->mFlow.mBoundary.mObstacles = {ball.get()};
    rig.gas->mFlow.BuildSolids();
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(-1, 1);
    for (i32 axis = 0; axis < 3; ++axis) {
      EGrid<double>& grid = *rig.gas->mFlow.mVelocity.GetGrid(axis);
      for (i32 i = 0; i < grid.mCount; ++i) grid[i] = unit(random);
    }
    rig.gas->mFlow.SetWallVelocities(0);
  }
  ~Stirred() { rig.gas->mFlow.mBoundary.mObstacles.clear(); }
  double Energy() {
    double sum = 0;
    for (i32 axis = 0; axis < 3; ++axis) {
      const EGrid<double>& grid = *rig.gas->mFlow.mVelocity.GetGrid(axis);
      const EGrid<float>& open = *rig.gas->mFlow.GetOpenFaces(axis);
      for (i32 i = 0; i < grid.mCount; ++i) sum += open[i] > 0 ? grid[i] * grid[i] : 0.0;
    }
    return sum;
  }
  /// With nu dt / h^2 = `stiffness`.
  bool Step(double stiffness) {
    return viscosity.Apply(
        rig.gas->mFlow,
        {.viscosity = stiffness * 0.01 / rig.scene->mTime.stepDuration, .density = 1});
  }
};

TEST(Viscosity, AStiffStepTakesEnergyAndConverges) {
  for (const double stiffness : {1.0, 100.0, 1e4}) {
    Stirred box(1, 32);
    double before = box.Energy();
    for (i32 step = 0; step < 5; ++step) {
      ASSERT_TRUE(box.Step(stiffness));
      const double after = box.Energy();
      ASSERT_TRUE(std::isfinite(after));
      EXPECT_LE(after, before * (1 + 1e-5)) << stiffness << " " << step;
      before = after;
    }
    for (const ViscosityReport& report : box.viscosity.TakeReports()) {
      EXPECT_LE(report.iterations, 25) << stiffness;
      EXPECT_LE(report.residual, 2e-4) << stiffness;
    }
  }
}

TEST(Viscosity, DoesNotDependOnTheNumberOfWorkers) {
  Stirred one(1), three(3);
  for (Stirred* box : {&one, &three}) ASSERT_TRUE(box->Step(50));
  for (i32 axis = 0; axis < 3; ++axis) {
    const EGrid<double>&a = *one.rig.gas->mFlow.mVelocity.GetGrid(axis),
          &b = *three.rig.gas->mFlow.mVelocity.GetGrid(axis);
    ASSERT_TRUE(std::equal(a.mData, a.mData + a.mCount, b.mData));
  }
}

TEST(Viscosity, ADropThatTurnsAndFliesIsLeftAlone) {
  GasRig rig({24, 24, 24});
  rig.Begin();
  Flow& flow = rig.gas->mFlow;
  const Vec3d middle{1.23, 1.17, 1.21}, spin{1, -2, 3}, way{0.5, -4, 1};
  EGrid<double> surface(*flow.GetLayout(), kCentre);
  GasRig::Fill(surface, [&](const Vec3d& p) { return Length(p - middle) - 0.73; });
  flow.mSurface = &surface;
  const auto expected = [&](const Vec3d& p) { return way + Cross(spin, p - middle); };
  Grid_Viscosity viscosity;
  rig.FillVelocity(expected);
  ASSERT_TRUE(viscosity.Apply(flow, {.viscosity = 2e6, .density = 1000}));
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (i32 axis = 0; axis < 3; ++axis) {
    EGrid<double>& grid = *flow.mVelocity.GetGrid(axis);
    ForEachCell({{0, 0, 0}, grid.Dims()}, [&](i32 x, i32 y, i32 z) {
      const Vec3d p = grid.PositionOf(x, y, z);
      if (Length(p - middle) < 0.6) {
        ASSERT_NEAR(grid(x, y, z), expected(p)[axis], 1e-5);
      }
      grid(x, y, z) += unit(random);
    });
  }
  ASSERT_TRUE(viscosity.Apply(flow, {.viscosity = 2e6, .density = 1000}));
  // It moves as a whole, as its noise does on average.
  double worst = 0;
  const EGrid<double>& u = *flow.mVelocity.GetGrid(0);
  const i32 j = 12, k = 12;
  const double slope = u(13, j, k) - u(12, j, k);
  for (i32 x = 8; x < 18; ++x) worst = std::max(worst, std::fabs(u(x + 1, j, k) - u(x, j, k)));
  EXPECT_LT(worst, 2e-2);
  EXPECT_LT(std::fabs(slope), 2e-2);
  EXPECT_NEAR(u(12, j, k), expected(u.PositionOf(12, j, k)).x, 0.1);
  flow.mSurface = nullptr;
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
