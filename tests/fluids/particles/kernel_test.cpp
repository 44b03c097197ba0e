// Kernels hold what their formulas promise.
#include "fluids/particles/kernel.h"

#include <gtest/gtest.h>

#include <numbers>

#include "fluids/test_scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using enum KernelType;

/// The integral over the ball of the radius, by Simpson's rule over shells.
double IntegralOf(KernelType type, double radius) {
  const KernelBase kernel(type);
  constexpr int kShells = 20000;
  const double h = radius / kShells;
  double sum = 0;
  for (int i = 0; i <= kShells; ++i) {
    const double r = i * h;
    const double shell = 4 * std::numbers::pi * r * r *
                         kernel.EvaluateSquared(r * r, radius * radius, std::pow(radius, 3));
    sum += shell * (i == 0 || i == kShells ? 1 : i % 2 ? 4 : 2);
  }
  return sum * h / 3;
}

}  // namespace

TEST(Kernel, IntegratesToWhatItsFactorSays) {
  // Those of a density give 1 whatever the radius; the rest follow from the integral over q.
  for (const double radius : {0.25, 1.0, 3.0}) {
    EXPECT_NEAR(IntegralOf(kPoly6, radius), 1, 1e-9);
    EXPECT_NEAR(IntegralOf(kPoly6Power, radius), 1, 1e-9);
    EXPECT_NEAR(IntegralOf(kParabola, radius), 24.0 / 13, 1e-9);
    EXPECT_NEAR(IntegralOf(kCube, radius), 64.0 / 21, 1e-9);
    // erf(1 / sqrt 2) - sqrt(2 / pi) / sqrt e: a Gauss cut at one deviation.
    EXPECT_NEAR(IntegralOf(kGauss, radius), 0.19874804309879915, 1e-9);
  }
  EXPECT_NEAR(IntegralOf(kCubePower, 1.0), 64.0 / 21, 1e-9);
  const KernelBase poly6(kPoly6);
  EXPECT_NEAR(poly6.Evaluate({}, {0.25, 0, 0}, 1), 1.29091, 1e-5);
  EXPECT_NEAR(poly6.Evaluate({}, {0, 0.5, 0}, 1), 0.66094, 1e-5);
}

TEST(Kernel, FallsFromItsCentreAndEndsAtTheRadius) {
  const double h = 0.7;
  for (i32 type = 0; type <= 13; ++type) {
    SCOPED_TRACE(type);
    const KernelBase kernel(static_cast<KernelType>(type));
    const double beyond = type == static_cast<i32>(kCurve) ? -1 : 0;
    EXPECT_EQ(kernel.Evaluate({1, 2, 3}, {1, 2 + h, 3}, h), beyond);
    EXPECT_EQ(kernel.Evaluate({}, {}, 0), beyond);
    double last = std::numeric_limits<double>::infinity();
    for (double r = 0; r < h; r += h / 50) {
      const double w = kernel.Evaluate({}, {0, 0, r}, h);
      EXPECT_EQ(w, kernel.EvaluateSquared(r * r, h * h, h * h * h));
      EXPECT_TRUE(w >= 0 && std::isfinite(w));
      if (type != static_cast<i32>(kCurve)) {
        EXPECT_LE(w, last);
      }
      last = w;
    }
  }
  EXPECT_EQ(KernelBase(kSharp).Evaluate({}, {}, h), h * h / 1e-5 - 1);
  EXPECT_EQ(KernelBase(kExponential).Evaluate({}, {}, h), std::exp(1.0));
}

TEST(Kernel, LooksUpTheCurveOfItsNode) {
  TestScene scene;
  auto& kernel = scene.Add<Kernel>("kernel", "own");
  TestScene::Set(kernel, 7150, static_cast<i32>(kCurve));
  scene.SetUp();
  EXPECT_NEAR(kernel.Evaluate({}, {std::sqrt(0.4), 0, 0}, 1), 0.8, 1e-12);
  EXPECT_EQ(kernel.Evaluate({}, {2, 0, 0}, 1), 0);
  kernel.Node()->Erase(13);
  scene.SetUp();
  EXPECT_EQ(kernel.Evaluate({}, {0.5, 0, 0}, 1), 0);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
