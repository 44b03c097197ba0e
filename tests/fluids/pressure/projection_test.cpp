#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "projection_box.h"
#include "threads.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using projection::Ball;
using projection::Box;
using projection::LargestDifference;

namespace {}  // namespace

// A random field in a closed box with a ball: flow without divergence, and a second projection
// finds nothing left to do.
TEST(Projection, RandomFieldInAClosedBoxWithABall) {
  const f32 h = 0.05f;
  const auto ball = Ball({30.3, 33.7, 31.1}, 11.4, h);
  Box box({64, 64, 64}, h, kWallsAll, {ball.get()});
  box.Randomise(1);
  const double before = box.LargestDivergence();
  box.Project();
  const auto reports = box.projection.TakeReports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_LT(reports[0].iterations, 120);
  EXPECT_LE(reports[0].residual, 1e-8);
  EXPECT_LT(box.LargestDivergence(), 1e-7 * before);
  EXPECT_NEAR(box.projection.DivergenceMax(), box.LargestDivergence(), 1e-8 * before);
  const std::vector<double> once = box.Faces();
  box.Project();
  EXPECT_LT(LargestDifference(box.Faces(), once), 1e-6);
  EXPECT_TRUE(box.projection.TakeReports().size() == 1 && box.projection.TakeReports().empty());
}

TEST(Projection, ClosedFacesEndAtRestAndKeepNoPressure) {
  const f32 h = 0.1f;
  const auto ball = Ball({9, 9, 9}, 4.2, h);
  Box box({18, 18, 18}, h, kWallsAll, {ball.get()});
  box.Randomise(3);
  box.Project();
  i32 closed = 0, solid = 0;
  for (i32 axis = 0; axis < 3; ++axis)
    box.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
      if ((*box.fractions.GetRead(axis, 1))(x, y, z) > 0) return;
      ++closed;
      ASSERT_EQ((*box.velocity[axis])(x, y, z), 0.0);
    });
  box.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
    if (box.IsOpen(x, y, z)) return;
    ++solid;
    ASSERT_EQ(box.projection.GetPressure()[(z * 18 + y) * 18 + x], 0.0);
  });
  EXPECT_GT(closed, 500);
  EXPECT_GT(solid, 50);
}

// Wanted divergence, with every mix of open sides: the balance is met to the tolerance, and what
// the sources give leaves through the open sides. In a closed box what is too much is taken off all
// cells, in proportion to their open volume.
TEST(Projection, MeetsTheSourceThroughOpenSides) {
  const f32 h = 0.1f;
  const auto ball = Ball({8.5, 10.2, 9.1}, 3.3, h);
  for (const u8 walls : {u8(kWallsAll & ~kWallHighY), u8(0), u8(kWallLowX | kWallHighZ), u8(63)}) {
    Box box({18, 20, 19}, h, walls, {ball.get()});
    box.Randomise(7);
    (*box.source)(4, 5, 6) = 3.0;
    (*box.source)(5, 5, 6) = -1.0;
    (*box.source)(8, 13, 9) = 2.0;
    box.Project();
    double given = 0, flow = 0, top = 0, volume = 0;
    box.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
      if (!box.IsOpen(x, y, z)) return;
      given += (*box.fractions.GetRead(0, 0))(x, y, z) * (*box.source)(x, y, z);
      flow += box.Divergence(x, y, z);
      volume += (*box.fractions.GetRead(0, 0))(x, y, z);
    });
    const double excess = walls == kWallsAll ? given / volume : 0.0;
    box.ForEachInnerCell([&](i32 x, i32 y, i32 z) {
      if (!box.IsOpen(x, y, z)) return;
      const double wanted =
          (*box.fractions.GetRead(0, 0))(x, y, z) * ((*box.source)(x, y, z) - excess);
      top = std::max(top, std::fabs(wanted - box.Divergence(x, y, z)));
    });
    EXPECT_LT(top, 2e-6) << int(walls);
    EXPECT_NEAR(box.projection.DivergenceMax(), top, 1e-9);
    EXPECT_NEAR(flow, walls == kWallsAll ? 0.0 : given, 1e-5);
    EXPECT_GT(given, 3.0);
    const VolumeLedger ledger = box.projection.TakeLedger();
    const double volumes = double{h} * h * h * box.projection.fields.dt;
    EXPECT_NEAR(ledger.made / volumes, given, 1e-9);
    EXPECT_NEAR(ledger.left / volumes, flow, 1e-9);
    EXPECT_NEAR(ledger.squeezed / volumes, walls == kWallsAll ? -given : 0.0, 1e-9);
    EXPECT_EQ(ledger.solids, 0);
    EXPECT_LT(ledger.drift / volumes, 1e-6 * volume);
  }
}

TEST(Projection, AllLinearSolversGiveOnePressure) {
  const f32 h = 0.1f;
  const auto ball = Ball({8, 8.3, 7.6}, 3, h);
  Box box({16, 16, 16}, h, u8(kWallsAll & ~kWallHighY), {ball.get()});
  box.Randomise(11);
  box.Project();
  const auto p = box.projection.GetPressure();
  for (const i32 solver : {1, 2}) {
    Box other({16, 16, 16}, h, u8(kWallsAll & ~kWallHighY), {ball.get()});
    other.Randomise(11);
    other.projection.mLinearSolver = solver;
    other.projection.mGauss.mAccuracy = {20000, 1e-12};
    other.projection.mMultigrid.mAccuracy = {30, 1e-10};
    other.Project();
    const auto q = other.projection.GetPressure();
    double top = 0, largest = 0;
    for (std::size_t i = 0; i < p.size(); ++i) {
      top = std::max(top, std::fabs(p[i] - q[i]));
      largest = std::max(largest, std::fabs(p[i]));
    }
    EXPECT_GT(largest, 0.01);
    EXPECT_LT(top, 1e-6 * largest) << solver;
    const auto report = other.projection.TakeReports();
    ASSERT_EQ(report.size(), 1u);
    EXPECT_GT(report[0].iterations, solver == 1 ? 50 : 4);
    EXPECT_LT(report[0].residual, 1e-8);
    EXPECT_LT(other.projection.DivergenceMax(), 1e-6);
  }
}

TEST(Projection, GivesTheSameBytesForEveryThreadCount) {
  const f32 h = 0.1f;
  const auto ball = Ball({10, 9.2, 13}, 4, h);
  for (const i32 solver : {0, 1, 2}) {
    std::vector<std::vector<double>> results;
    std::vector<double> divergences;
    for (const i32 threads : {1, 2, 5}) {
      const Threads fixed(threads);
      Box box({20, 18, 27}, h, kWallsAll, {ball.get()});
      box.projection.mLinearSolver = solver;
      box.projection.mGauss.mAccuracy.maxIterations = 20;
      box.projection.moving = {{ball.get(), {1, 0.92, 1.3}, {1, 0.3, -0.2}, {0.1, 2, 0.5}}};
      box.Randomise(5);
      (*box.source)(4, 5, 6) = 3.0;
      box.Project();
      results.push_back(box.Faces());
      divergences.push_back(box.projection.DivergenceMax());
    }
    for (const auto& faces : results)
      EXPECT_EQ(std::memcmp(faces.data(), results[0].data(), faces.size() * sizeof(double)), 0);
    EXPECT_EQ(divergences[0], divergences[1]);
    EXPECT_EQ(divergences[0], divergences[2]);
  }
}

// A ball that starts to move through gas at rest sets up the potential flow round it: u = U R^3/r^3
// ahead of it and -U R^3 / (2 r^3) beside it (Lamb, Hydrodynamics, article 92). The flow is
// symmetric, and the balance includes what the ball pushes.
TEST(Projection, MovingBallPushesPotentialFlow) {
  const f32 h = 0.05f;
  const i32 n = 48;
  const Vec3d centre{n / 2.0, n / 2.0, n / 2.0};
  const double radius = 8;
  const auto ball = Ball(centre, radius, h);
  Box box({n, n, n}, h, 0, {ball.get()});
  const double speed = 1.5;
  box.projection.moving = {{ball.get(), centre * double(h), {speed, 0, 0}, {}}};
  box.Project();
  EXPECT_LT(box.projection.DivergenceMax(), 1e-6);
  EXPECT_GT(box.LargestDivergence(), 1.0) << "the gas makes room for the ball";
  const EGrid<double>&u = *box.velocity[0], &v = *box.velocity[1];
  const i32 m = n / 2;
  for (const double r : {1.25, 1.5}) {
    const i32 x = m + static_cast<i32>(r * radius);
    const double ahead = 0.5 * (u(x, m, m) + u(x, m - 1, m - 1));
    EXPECT_NEAR(ahead, speed / (r * r * r), 0.08 * speed) << r;
    const double beside = 0.5 * (u(m, m + static_cast<i32>(r * radius), m) +
                                 u(m, m + static_cast<i32>(r * radius) - 1, m));
    EXPECT_NEAR(beside, -0.5 * speed / (r * r * r), 0.08 * speed) << r;
  }
  double asymmetry = 0, largest = 0;
  ForEachCell({{2, 2, 2}, {n - 2, n - 2, n - 2}}, [&](i32 x, i32 y, i32 z) {
    asymmetry = std::max(asymmetry, std::fabs(u(x, y, z) - u(n - x, y, z)));
    asymmetry = std::max(asymmetry, std::fabs(u(x, y, z) - u(x, n - 1 - y, z)));
    asymmetry = std::max(asymmetry, std::fabs(v(x, y, z) + v(n - 1 - x, y, z)));
    largest = std::max(largest, std::fabs(u(x, y, z)));
  });
  EXPECT_LT(asymmetry, 1e-6 * largest);

  // A ball that spins on the spot moves next to nothing, and one at rest nothing at all.
  Box spinning({n, n, n}, h, 0, {ball.get()});
  spinning.projection.moving = {{ball.get(), centre * double(h), {}, {0, 4, 0}}};
  spinning.Project();
  double top = 0;
  for (const double face : spinning.Faces()) top = std::max(top, std::fabs(face));
  EXPECT_LT(top, 0.1 * 4 * radius * h);
  Box still({n, n, n}, h, 0, {ball.get()});
  still.Project();
  for (const double face : still.Faces()) ASSERT_EQ(face, 0.0);
}

// Pressure forces have no curl: what a projection takes off, times the density of the face, is a
// gradient, so its circulation round every edge is 0.
TEST(Projection, DensityWeighsThePressureForce) {
  const f32 h = 0.1f;
  const VecInt3D cells{14, 15, 16};
  Box box(cells, h, kWallLowY);
  EGrid<double> density(box.layout, kCentre);
  ForEachCell({{0, 0, 0}, cells}, [&](i32 x, i32 y, i32 z) {
    density(x, y, z) = 1 + 0.5 * std::sin(0.9 * x) + 3 * (y > 7) + 0.1 * z;
  });
  box.Randomise(13);
  const auto before = std::array{EGrid<double>(*box.velocity[0]), EGrid<double>(*box.velocity[1])};
  box.projection.fields.density.fill(&density);
  box.Project();
  EXPECT_LT(box.LargestDivergence(), 2e-6);
  const auto force = [&](i32 axis, i32 x, i32 y, i32 z) {
    const VecInt3D below{x - (axis == 0), y - (axis == 1), z};
    const double rho = 0.5 * (density(x, y, z) + density(below.x, below.y, below.z));
    return rho * (before[axis](x, y, z) - (*box.velocity[axis])(x, y, z));
  };
  double circulation = 0, largest = 0;
  ForEachCell({{2, 2, 2}, cells - VecInt3D{2, 2, 2}}, [&](i32 x, i32 y, i32 z) {
    const double round =
        force(0, x, y, z) - force(0, x, y - 1, z) - (force(1, x, y, z) - force(1, x - 1, y, z));
    circulation = std::max(circulation, std::fabs(round));
    largest = std::max(largest, std::fabs(force(0, x, y, z)));
  });
  EXPECT_GT(largest, 0.1);
  EXPECT_LT(circulation, 1e-12 * largest * 100);

  // A density that is the same everywhere is no different from the constant one.
  density.Fill(1.23);
  Box one(cells, h, kWallLowY), other(cells, h, kWallLowY);
  one.Randomise(2);
  other.Randomise(2);
  one.projection.fields.density.fill(&density);
  one.Project();
  other.Project();
  EXPECT_LT(LargestDifference(one.Faces(), other.Faces()), 1e-9);
  EXPECT_LT(other.projection.DivergenceMax(), 1e-6);
}

TEST(Projection, RestsOutsideItsDuration) {
  Box box({12, 12, 12}, 0.1f, 0);
  Duration window;
  window.start = 1;
  window.length = 2;
  SceneTime time;
  box.projection.Gate(&window, &time);
  box.Randomise(1);
  const std::vector<double> before = box.Faces();
  for (const double outside : {0.5, 3.5}) {
    time.elapsed = outside;
    box.Project();
    EXPECT_EQ(LargestDifference(box.Faces(), before), 0);
    EXPECT_TRUE(box.projection.TakeReports().empty());
  }
  time.elapsed = 1.5;
  box.Project();
  EXPECT_LT(box.LargestDivergence(), 1e-5);
}

TEST(Projection, GridsTooSmallForUnknownsStayAsTheyAre) {
  for (const VecInt3D cells : {VecInt3D{1, 1, 1}, VecInt3D{2, 6, 2}})
    for (const i32 solver : {0, 1, 2}) {
      Box box(cells, 0.1f, 0);
      box.projection.mLinearSolver = solver;
      box.Randomise(1);
      box.Project();
      EXPECT_EQ(box.projection.DivergenceMax(), 0);
    }
}

namespace {

/// A block that fills a tunnel and stretches: its high x side moves, its low one rests.
class StretchingBlock : public projection::FormulaVolume {
 public:
  StretchingBlock(f32 h, double low, double high, double way)
      : projection::FormulaVolume(projection::MakeLayout({40, 20, 20}, h, {-4, -4, -4}),
                                  [=](const Vec3d& p) { return std::max(low - p.x, p.x - high); }),
        mMiddle((low + high) / 2),
        mWay(way) {}
  Vec3d SurfaceVelocityAt(const Vec3d& p) const override {
    return {p.x > mMiddle ? mWay : 0, 0, 0};
  }

 private:
  double mMiddle, mWay;
};

}  // namespace

// A block that fills a tunnel and stretches towards its open end pushes the gas there at the speed
// of its side, wherever in a cell that stands, and leaves the gas behind it alone.
TEST(Projection, StretchingBlockPushesWithTheSideThatMoves) {
  const f32 h = 0.1f;
  const double dt = 0.02, speed = 1.5;
  for (const double high : {1.2, 1.23, 1.25, 1.28}) {
    StretchingBlock block(h, 0.7, high, speed * dt);
    Box box({24, 10, 10}, h, u8(kWallsAll & ~kWallHighX), {&block});
    box.projection.moving = {{.volume = &block, .perStep = 1 / dt}};
    box.Project();
    EXPECT_LT(box.projection.DivergenceMax(), 1e-6);
    const EGrid<double>& u = *box.velocity[0];
    ForEachCell({{14, 1, 1}, {23, 9, 9}}, [&](i32 x, i32 y, i32 z) {
      ASSERT_NEAR(u(x, y, z), speed, 1e-6) << high << " at " << x << " " << y << " " << z;
    });
    ForEachCell({{1, 1, 1}, {7, 9, 9}},
                [&](i32 x, i32 y, i32 z) { ASSERT_NEAR(u(x, y, z), 0, 1e-9) << x; });
  }
}
