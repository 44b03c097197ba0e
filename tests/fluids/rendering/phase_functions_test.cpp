#include "fluids/rendering/phase_functions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace MELDO_GLOBAL::ZOLT_RENDERING {
namespace {

struct Moments {
  double integral, meanCosine;
};

/// Over the sphere, by Simpson's rule in the cosine, densely towards the forward direction.
Moments MomentsOf(const PhaseFunction& phase, double g, double g2 = 0) {
  constexpr int n = 20000;
  Moments m{0, 0};
  for (int i = 0; i <= n; ++i) {
    const double u = double(i) / n;
    const double c = 1 - 2 * u * u;
    const double weight = (i == 0 || i == n ? 1 : i % 2 ? 4 : 2) / 3.0 / n * 4 * u;
    const double value = phase.Evaluate(c, true, g, g2) * 2 * std::numbers::pi * weight;
    m.integral += value;
    m.meanCosine += value * c;
  }
  return m;
}

TEST(PhaseFunctions, IntegrateToOneWithTheirMeanCosine) {
  struct Case {
    i32 index;
    double g, g2, mean;
  };
  const Case cases[] = {
      {PhaseFunction::kIsotropic, 0.6, 0, 0},
      {PhaseFunction::kHenyeyGreenstein, -0.5, 0, -0.5},
      {PhaseFunction::kHenyeyGreenstein, 0, 0, 0},
      {PhaseFunction::kHenyeyGreenstein, 0.6, 0, 0.6},
      {PhaseFunction::kHenyeyGreenstein, 0.95, 0, 0.95},
      {PhaseFunction::kRayleigh, 1, 0, 0},
      {PhaseFunction::kMieHazy, 0.6, 0, 0.4},
      {PhaseFunction::kMieMurky, 0.6, 0, 8.0 / 17},
      {PhaseFunction::kDoubleHenyeyGreenstein, 0.8, -0.3, 0.7 * 0.8 - 0.3 * 0.3},
  };
  for (const Case& c : cases) {
    const Moments m = MomentsOf(*PhaseFunction::Make(c.index), c.g, c.g2);
    EXPECT_NEAR(m.integral, 1, 1e-3) << c.index << " g " << c.g;
    EXPECT_NEAR(m.meanCosine, c.mean, 1e-3) << c.index << " g " << c.g;
  }
  for (const i32 index :
       {PhaseFunction::kMie, PhaseFunction::kSchlick, PhaseFunction::kCornetteShanks})
    for (const double g : {-0.7, 0.0, 0.5, 0.9})
      EXPECT_NEAR(MomentsOf(*PhaseFunction::Make(index), g).integral, 1, 1e-3) << index << " " << g;
}

TEST(PhaseFunctions, StayFiniteAtTheEndsOfTheRange) {
  for (i32 index = 0; index < PhaseFunction::kCount; ++index)
    for (const double g : {-1.0, 1.0})
      for (const double c : {-1.0, 0.0, 1.0}) {
        const double value = PhaseFunction::Make(index)->Evaluate(c, false, g, g);
        EXPECT_TRUE(std::isfinite(value)) << index << " " << g << " " << c;
      }
  EXPECT_EQ(PhaseFunction::Make(9), nullptr);
  EXPECT_EQ(PhaseFunction::Make(-1), nullptr);
}

}  // namespace
}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
