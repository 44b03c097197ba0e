#include "host/noise.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

namespace MELDO_GLOBAL::host {
namespace {

struct Moments {
  double mean = 0, deviation = 0, low = 1e9, high = -1e9;
};

/// Moments of a field over random points of a box of 200 units.
Moments MomentsOf(const std::function<double(const Vec3d&, double)>& field, int count = 100000) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> coordinate(-100, 100);
  double sum = 0, squares = 0;
  Moments m;
  for (int i = 0; i < count; ++i) {
    const Vec3d p{coordinate(random), coordinate(random), coordinate(random)};
    const double value = field(p, coordinate(random));
    sum += value;
    squares += value * value;
    m.low = std::min(m.low, value);
    m.high = std::max(m.high, value);
  }
  m.mean = sum / count;
  m.deviation = std::sqrt(squares / count - m.mean * m.mean);
  return m;
}

TEST(Noise, HasZeroMeanAndTheSameContrastInSpaceAndTime) {
  const Noise noise(17);
  const Moments space =
      MomentsOf([&](const Vec3d& p, double) { return noise.Evaluate(NoiseType::Gradient, p, 1); });
  const Moments time = MomentsOf(
      [&](const Vec3d& p, double t) { return noise.Evaluate(NoiseType::Gradient, p, t, 1); });
  for (const Moments& m : {space, time}) {
    EXPECT_NEAR(m.mean, 0, 0.004);
    EXPECT_GT(m.high, 0.75);
    EXPECT_LT(m.low, -0.75);
    EXPECT_LE(m.high, 1.001);
    EXPECT_GE(m.low, -1.001);
  }
  EXPECT_NEAR(space.deviation / time.deviation, 1, 0.01);
}

TEST(Noise, TypesKeepTheirRangeWhateverTheOctaves) {
  const Noise noise(18);
  for (const i32 octaves : {1, 3, 8}) {
    const auto of = [&](NoiseType type) {
      return MomentsOf(
          [&, type](const Vec3d& p, double) { return noise.Evaluate(type, p, octaves); }, 20000);
    };
    const Moments fbm = of(NoiseType::Fbm), turbulence = of(NoiseType::Turbulence),
                  ridged = of(NoiseType::Ridged);
    EXPECT_NEAR(fbm.mean, 0, 0.01);
    EXPECT_GE(fbm.low, -1.001);
    EXPECT_LE(fbm.high, 1.001);
    for (const Moments& m : {turbulence, ridged}) {
      EXPECT_GE(m.low, 0);
      EXPECT_LE(m.high, 1.001);
      EXPECT_GT(m.deviation, 0.05);
    }
    EXPECT_GT(ridged.mean, turbulence.mean);
    const Moments cells = of(NoiseType::Cells), voronoi = of(NoiseType::Voronoi);
    for (const Moments& m : {cells, voronoi}) {
      EXPECT_GE(m.low, 0);
      EXPECT_LE(m.high, 1);
      EXPECT_GT(m.deviation, 0.05);
    }
    EXPECT_NEAR(cells.mean, 0.5, 0.02);
  }
}

// A distance to points changes by as much as its place moves, and is 0 at some of them; cells are
// flat, and end where two points are as near as each other.
TEST(Noise, LoosePointsHaveDistancesAndCells) {
  const Noise noise(21);
  std::mt19937 random(4);
  std::uniform_real_distribution<double> coordinate(-20, 20);
  double least = 1;
  i32 sameCell = 0, changes = 0;
  for (int i = 0; i < 20000; ++i) {
    const Vec3d p{coordinate(random), coordinate(random), coordinate(random)};
    const Vec3d q = p + Vec3d{0.01, -0.02, 0.02};
    const double d = noise.Evaluate(NoiseType::Voronoi, p, 1);
    EXPECT_LE(std::abs(noise.Evaluate(NoiseType::Voronoi, q, 1) - d), 0.03 + 1e-9);
    EXPECT_LE(std::abs(noise.Evaluate(NoiseType::Voronoi, q, 0.5, 1) -
                       noise.Evaluate(NoiseType::Voronoi, p, 0.5, 1)),
              0.03 + 1e-9);
    least = std::min(least, d);
    const bool isSame =
        noise.Evaluate(NoiseType::Cells, p, 1) == noise.Evaluate(NoiseType::Cells, q, 1);
    sameCell += isSame;
    changes += !isSame;
  }
  EXPECT_LT(least, 0.06);
  EXPECT_GT(sameCell, 18000);
  EXPECT_GT(changes, 100);
  for (const NoiseType type : {NoiseType::Cells, NoiseType::Voronoi})
    EXPECT_NEAR(noise.Evaluate(type, {0.2, 0.4, 0.1}, 0.3, 2, 4),
                noise.Evaluate(type, {0.2, 0.4, 0.1}, 8.3, 2, 4), 1e-12);
}

// The slope found from steps of two sizes agrees to second order everywhere, lattice planes too.
TEST(Noise, IsSmoothAcrossTheLattice) {
  const Noise noise(5);
  const auto along = [&](double x) {
    return noise.Evaluate(NoiseType::Fbm, {x, 0.3 * x, -0.7 * x}, 0.2 * x, 2);
  };
  const auto slope = [&](double x, double h) { return (along(x + h) - along(x - h)) / (2 * h); };
  double last = slope(0, 1e-5), steepest = 0, kink = 0;
  for (int i = 1; i < 20000; ++i) {
    const double now = slope(i * 1e-3, 1e-5);
    steepest = std::max(steepest, std::abs(now));
    kink = std::max(kink, std::abs(now - last));
    last = now;
  }
  EXPECT_GT(steepest, 0.5);
  EXPECT_LT(kink, 0.05);
}

TEST(Noise, SeedsDifferInEveryBitAndRepeatExactly) {
  const auto correlation = [](u32 a, u32 b) {
    const Noise first(a), second(b);
    double product = 0, squares = 0;
    std::mt19937 random(11);
    std::uniform_real_distribution<double> coordinate(-50, 50);
    for (int i = 0; i < 4000; ++i) {
      const Vec3d p{coordinate(random), coordinate(random), coordinate(random)};
      const double v = first.Evaluate(NoiseType::Gradient, p, 1);
      product += v * second.Evaluate(NoiseType::Gradient, p, 1);
      squares += v * v;
    }
    return product / squares;
  };
  EXPECT_DOUBLE_EQ(correlation(7, 7), 1);
  for (int bit = 0; bit < 32; ++bit) EXPECT_NEAR(correlation(0, 1u << bit), 0, 0.08) << bit;
}

TEST(Noise, RepeatsInTimeWhenAsked) {
  const Noise noise(1);
  const Vec3d p{0.3, 1.7, -2.2};
  for (const double t : {-3.4, 0.0, 0.6, 4.9}) {
    const double value = noise.Evaluate(NoiseType::Fbm, p, t, 3, 5);
    EXPECT_NEAR(value, noise.Evaluate(NoiseType::Fbm, p, t + 5, 3, 5), 1e-12);
    EXPECT_NEAR(value, noise.Evaluate(NoiseType::Fbm, p, t - 20, 3, 5), 1e-12);
    EXPECT_GT(std::abs(value - noise.Evaluate(NoiseType::Fbm, p, t + 2, 3, 5)), 1e-3);
  }
}

TEST(Noise, TakesAnyArgument) {
  const Noise noise(0);
  for (const double x : {1e300, -1e300, std::nan(""), HUGE_VAL})
    EXPECT_EQ(noise.Evaluate(NoiseType::Gradient, {x, 0, 0}, 1), 0);
  EXPECT_TRUE(std::isfinite(noise.Evaluate(NoiseType::Ridged, {1, 2, 3}, 1e9, -5)));
  EXPECT_TRUE(std::isfinite(noise.Evaluate(NoiseType::Fbm, {-1e9, 2, 3}, 1000)));
  EXPECT_EQ(NoiseTypeOf(99), NoiseType::Fbm);
  EXPECT_EQ(NoiseTypeOf(30), NoiseType::Turbulence);
  for (const Choice& choice : NoiseChoices())
    EXPECT_EQ(static_cast<i32>(NoiseTypeOf(choice.value)), choice.value);
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
