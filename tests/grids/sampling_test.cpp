#include "grids/sampling.h"

#include <gtest/gtest.h>

#include "grids/random_stream.h"

namespace MELDO_GLOBAL {
namespace {

constexpr i32 kAllModes[] = {SAMPLE_LINEAR, SAMPLE_COSINE, SAMPLE_CUBIC, SAMPLE_MONOTONIC,
                             SAMPLE_BSPLINE};

template <class F>
Grid<double> Filled(const VecInt3D& dims, F&& f) {
  Grid<double> g(dims, kCentre);
  for (i32 z = 0; z < dims.z; ++z)
    for (i32 y = 0; y < dims.y; ++y)
      for (i32 x = 0; x < dims.x; ++x) g(x, y, z) = f(x, y, z);
  return g;
}

double PlaneAt(double x, double y, double z) { return 3 * x - 0.5 * y + 2 * z + 1; }

Grid<double> Noise(const VecInt3D& dims) {
  RandomStream stream;
  return Filled(dims, [&](i32, i32, i32) { return stream.NextUnit() * 2 - 1; });
}

/// A point up to two cells beyond the array on every side.
Vec3d PointRound(RandomStream& stream, const VecInt3D& dims) {
  const auto c = [&](i32 n) { return stream.NextUnit() * (n + 4) - 2.5; };
  return {c(dims.x), c(dims.y), c(dims.z)};
}

TEST(Sampling, ConstantsAreKeptInsideAndOutside) {
  const Grid<double> g = Filled({5, 4, 6}, [](i32, i32, i32) { return 0.7; });
  Grid<float> f({5, 4, 6}, kCentre);
  f.Fill(0.7f);
  RandomStream stream;
  for (int i = 0; i < 500; ++i) {
    const Vec3d c = PointRound(stream, g.Dims());
    EXPECT_EQ(SampleLinear(g, c), 0.7);
    for (const i32 mode : kAllModes) {
      EXPECT_NEAR(Sample(g, c, mode), 0.7, 1e-14) << mode;
      EXPECT_NEAR(Sample(f, c, mode), 0.7f, 1e-7) << mode;
    }
  }
}

TEST(Sampling, RampsAreExactWhereTheStencilFits) {
  const Grid<double> g = Filled({8, 7, 9}, PlaneAt);
  RandomStream stream;
  const auto inner = [&](i32 n) { return 1 + stream.NextUnit() * (n - 4.001); };
  for (int i = 0; i < 500; ++i) {
    const Vec3d c{inner(8), inner(7), inner(9)};
    const double exact = PlaneAt(c.x, c.y, c.z);
    EXPECT_NEAR(Sample(g, c, SAMPLE_LINEAR), exact, 1e-12);
    EXPECT_NEAR(Sample(g, c, SAMPLE_CUBIC), exact, 1e-12);
    EXPECT_NEAR(Sample(g, c, SAMPLE_MONOTONIC), exact, 1e-12);
    EXPECT_NEAR(Sample(g, c + Vec3d{0.5, 0.5, 0.5}, SAMPLE_BSPLINE), exact, 1e-12);
    const Vec3d slope = SampleGradient(g, c, 0.25);
    EXPECT_NEAR(slope.x, 12, 1e-11);
    EXPECT_NEAR(slope.y, -2, 1e-11);
    EXPECT_NEAR(slope.z, 8, 1e-11);
  }
}

TEST(Sampling, CubicsAreExactForTheLagrangeStencil) {
  const auto cubic = [](double x, double y, double z) {
    return x * x * x - 2 * x * y * y + z * z * z * 0.5 + x * y * z;
  };
  const Grid<double> g = Filled({7, 7, 7}, cubic);
  for (const Vec3d c : {Vec3d{2.3, 3.7, 1.25}, Vec3d{1.0, 3.5, 4.0}, Vec3d{3.999, 1.5, 2.5}})
    EXPECT_NEAR(Sample(g, c, SAMPLE_CUBIC), cubic(c.x, c.y, c.z), 1e-11);
}

TEST(Sampling, PointsOutsideTakeTheNearestSample) {
  const Grid<double> g = Noise({5, 6, 7});
  EXPECT_EQ(SampleLinear(g, {-3, 2, 3}), g(0, 2, 3));
  EXPECT_EQ(SampleLinear(g, {-0.4, 2, 3}), g(0, 2, 3));
  EXPECT_DOUBLE_EQ(SampleLinear(g, {4.6, 2, 3}), g(4, 2, 3));
  EXPECT_DOUBLE_EQ(SampleLinear(g, {1e12, -1e12, 1e12}), g(4, 0, 6));
  EXPECT_EQ(SampleLinear(g, {std::nan(""), 0, 0}), g(0, 0, 0));
  EXPECT_DOUBLE_EQ(Sample(g, {2, 3, -1.7}, SAMPLE_COSINE), g(2, 3, 0));
  EXPECT_DOUBLE_EQ(Sample(g, {2, 3, 9.2}, SAMPLE_COSINE), g(2, 3, 6));
  EXPECT_EQ(Sample(g, {-2.6, 3, 9.2}, SAMPLE_MONOTONIC), g(0, 3, 6));
  EXPECT_EQ(Sample(g, {-0.6, 6.4, -0.3}, SAMPLE_MONOTONIC), g(0, 5, 0));
  // The modes with a margin stop one sample before the border.
  EXPECT_DOUBLE_EQ(Sample(g, {0.2, 3, 3}, SAMPLE_CUBIC), g(1, 3, 3));
  EXPECT_DOUBLE_EQ(Sample(g, {9, 3, 3}, SAMPLE_CUBIC), g(4, 3, 3));
}

TEST(Sampling, SmallestGridsAreNeverLeft) {
  // Under the address sanitizer a read outside would end the run; here the limits show it.
  for (const VecInt3D dims : {VecInt3D{2, 2, 2}, VecInt3D{2, 3, 5}, VecInt3D{3, 2, 4}}) {
    const Grid<double> g = Noise(dims);
    RandomStream stream;
    stream.Seed(3);
    for (int i = 0; i < 300; ++i) {
      const Vec3d c = PointRound(stream, dims);
      for (const i32 mode : kAllModes) EXPECT_LE(std::abs(Sample(g, c, mode)), 3.0);
    }
  }
}

TEST(Sampling, CosineEasesTheFraction) {
  const Grid<double> g = Filled({4, 4, 4}, [](i32 x, i32, i32 z) { return x + 10.0 * z; });
  const double eased = (1 - std::cos(M_PI * 0.25)) / 2;
  EXPECT_NEAR(Sample(g, {1.25, 2, 2.25}, SAMPLE_COSINE), 1 + eased + 10 * (2 + eased), 1e-12);
}

TEST(Sampling, MonotonicNeverLeavesTheCentralSamples) {
  const Grid<double> g = Noise({6, 6, 6});
  RandomStream stream;
  for (int i = 0; i < 3000; ++i) {
    const Vec3d c = PointRound(stream, g.Dims());
    const MonotonicStencil s = MakeMonotonicStencil(c, g.Dims());
    double low = 1, high = -1;
    for (int corner = 0; corner < 8; ++corner) {
      const double v = g(s.index[0][1 + (corner & 1)], s.index[1][1 + (corner >> 1 & 1)],
                         s.index[2][1 + (corner >> 2)]);
      low = std::min(low, v);
      high = std::max(high, v);
    }
    const double v = Sample(g, c, SAMPLE_MONOTONIC, &s);
    EXPECT_GE(v, low);
    EXPECT_LE(v, high);
    EXPECT_EQ(v, Sample(g, c, SAMPLE_MONOTONIC));
  }
}

TEST(Sampling, MonotonicIsSharperThanLinearOnACurve) {
  const auto f = [](double x) { return std::sin(0.4 * x); };
  const Grid<double> g = Filled({12, 4, 4}, [&](i32 x, i32, i32) { return f(x); });
  double linear = 0, monotonic = 0;
  for (double x = 1; x < 3; x += 0.05) {  // the rising part
    linear = std::max(linear, std::abs(SampleLinear(g, {x, 1, 1}) - f(x)));
    monotonic = std::max(monotonic, std::abs(Sample(g, {x, 1, 1}, SAMPLE_MONOTONIC) - f(x)));
  }
  EXPECT_LT(monotonic, linear / 5);
}

TEST(Sampling, SplineWeightsAreAPartitionOfUnity) {
  // One sample of 1 at a time: the responses at a point add up to 1 and are never negative.
  for (const Vec3d c : {Vec3d{1.9, 2.35, 2.5}, Vec3d{0.1, 9, 2.2}}) {
    double sum = 0;
    for (i32 i = 0; i < 125; ++i) {
      Grid<double> g({5, 5, 5}, kCentre);
      g[i] = 1;
      const double w = Sample(g, c, SAMPLE_BSPLINE);
      EXPECT_GE(w, 0);
      sum += w;
    }
    EXPECT_NEAR(sum, 1, 1e-14);
  }
}

TEST(Splat, AddSpreadsTheValueAndSamplesFindItsCentre) {
  Grid<double> g({6, 6, 6}, kCentre);
  Splat(g, 5.0, {2.25, 3.5, 1.75}, SplatOperation::Add);
  double sum = 0;
  Vec3d centre{};
  for (i32 z = 0; z < 6; ++z)
    for (i32 y = 0; y < 6; ++y)
      for (i32 x = 0; x < 6; ++x) {
        sum += g(x, y, z);
        centre += Vec3d{double(x), double(y), double(z)} * g(x, y, z);
      }
  EXPECT_NEAR(sum, 5, 1e-14);
  EXPECT_NEAR(centre.x / sum, 2.25, 1e-14);
  EXPECT_NEAR(centre.y / sum, 3.5, 1e-14);
  EXPECT_NEAR(centre.z / sum, 1.75, 1e-14);
}

TEST(Splat, OperationsActOnTheWeightedValue) {
  const auto at = [](SplatOperation operation) {
    Grid<double> g({3, 3, 3}, kCentre);
    g.Fill(8);
    Splat(g, 4.0, {0.25, 0, 0}, operation);
    return Vec3d{g(0, 0, 0), g(1, 0, 0), g(2, 0, 0)};
  };
  EXPECT_EQ(at(SplatOperation::Assign), (Vec3d{3, 1, 8}));
  EXPECT_EQ(at(SplatOperation::Add), (Vec3d{11, 9, 8}));
  EXPECT_EQ(at(SplatOperation::Subtract), (Vec3d{5, 7, 8}));
  EXPECT_EQ(at(SplatOperation::Multiply), (Vec3d{24, 8, 8}));
  EXPECT_EQ(at(SplatOperation::Divide).x, 8.0 / 3);
}

TEST(Splat, OutsideGoesToTheBorderSample) {
  Grid<float> g({4, 4, 4}, kCentre);
  Splat(g, 2.0, {-0.9, 7, -5}, SplatOperation::Add);
  EXPECT_EQ(g(0, 3, 0), 2.0f);
}

}  // namespace
}  // namespace MELDO_GLOBAL
