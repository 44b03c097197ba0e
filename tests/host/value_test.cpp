#include "host/value.h"

#include <gtest/gtest.h>

#include "host/node.h"

namespace MELDO_GLOBAL::host {
namespace {

TEST(SplineData, IsLinearBetweenKnotsAndConstantOutside) {
  SplineData spline;
  EXPECT_EQ(spline.Evaluate(0.5), 0);
  EXPECT_EQ(spline.Insert(0.8, 4), 0);
  EXPECT_EQ(spline.Evaluate(-3), 4);
  EXPECT_EQ(spline.Insert(0.2, 1), 0);
  EXPECT_EQ(spline.Insert(0.4, 2), 1);
  EXPECT_EQ(spline.Insert(0.4, 3), 1);  // replaces
  ASSERT_EQ(spline.knots.size(), 3u);
  EXPECT_EQ(spline.Evaluate(0), 1);
  EXPECT_DOUBLE_EQ(spline.Evaluate(0.3), 2);
  EXPECT_DOUBLE_EQ(spline.Evaluate(0.4), 3);
  EXPECT_DOUBLE_EQ(spline.Evaluate(0.5), 3.25);
  EXPECT_EQ(spline.Evaluate(0.8), 4);
  EXPECT_EQ(spline.Evaluate(2), 4);
}

TEST(SplineData, TwoKnotsAtOnePlaceAreAStep) {
  const SplineData spline{{{0, 0}, {0.5, 1}, {0.5, 3}, {1, 4}}};
  EXPECT_NEAR(spline.Evaluate(0.5 - 1e-12), 1, 1e-11);
  EXPECT_EQ(spline.Evaluate(0.5), 3);
}

TEST(Gradient, IsLinearBetweenKnotsAndConstantOutside) {
  EXPECT_EQ(Gradient{}.Evaluate(0.5), Vec3d{});
  const Gradient gradient{{{0.25, {1, 0, 0}}, {0.75, {0, 0.5, 1}}}};
  EXPECT_EQ(gradient.Evaluate(0), (Vec3d{1, 0, 0}));
  EXPECT_EQ(gradient.Evaluate(0.5), (Vec3d{0.5, 0.25, 0.5}));
  EXPECT_EQ(gradient.Evaluate(0.75), (Vec3d{0, 0.5, 1}));
  EXPECT_EQ(gradient.Evaluate(9), (Vec3d{0, 0.5, 1}));
}

double RealAt(const Track& track, double frame) { return std::get<double>(track.Evaluate(frame)); }

TEST(Track, FollowsItsInterpolation) {
  Track track{{{10, 1.0}, {20, 3.0}, {30, -1.0}}, Interpolation::Linear};
  EXPECT_EQ(RealAt(track, -5), 1);
  EXPECT_EQ(RealAt(track, 10), 1);
  EXPECT_DOUBLE_EQ(RealAt(track, 12.5), 1.5);
  EXPECT_EQ(RealAt(track, 20), 3);
  EXPECT_DOUBLE_EQ(RealAt(track, 25), 1);
  EXPECT_EQ(RealAt(track, 99), -1);

  track.interpolation = Interpolation::Step;
  EXPECT_EQ(RealAt(track, 19.999), 1);
  EXPECT_EQ(RealAt(track, 20), 3);

  track.interpolation = Interpolation::Smooth;
  EXPECT_DOUBLE_EQ(RealAt(track, 15), 2);
  EXPECT_LT(RealAt(track, 12.5), 1.5);
  EXPECT_NEAR(RealAt(track, 20 - 1e-4), 3, 1e-8);  // arrives with slope 0
  EXPECT_TRUE(std::holds_alternative<std::monostate>(Track{}.Evaluate(3)));
}

TEST(Track, RoundsLongsDownAndMixesVectors) {
  const Track longs{{{0, i32{0}}, {10, i32{-5}}}, Interpolation::Linear};
  EXPECT_EQ(longs.Evaluate(1), Value(i32{-1}));
  EXPECT_EQ(longs.Evaluate(10), Value(i32{-5}));
  const Track wide{{{0, i32{-2000000000}}, {4, i32{2000000000}}}, Interpolation::Linear};
  EXPECT_EQ(wide.Evaluate(3), Value(i32{1000000000}));
  const Track vectors{{{0, Vec3d{0, 2, 4}}, {2, Vec3d{2, 2, 0}}}, Interpolation::Linear};
  EXPECT_EQ(vectors.Evaluate(1), Value(Vec3d{1, 2, 2}));
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
