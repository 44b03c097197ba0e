#include "host/spline_line.h"

#include <gtest/gtest.h>

#include <numbers>

#include "host/document.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::host;

namespace {

using std::numbers::pi;

struct LineRig {
  Document document;
  SplineObject& spline = document.Create<SplineObject>(kSplineObject, "s", nullptr);
  SplineLine Line() const { return {spline, spline.GlobalMatrix(), {1, 1, 1}}; }
};

std::vector<Vec3d> Circle(i32 n, double radius) {
  std::vector<Vec3d> points;
  for (i32 i = 0; i < n; ++i)
    points.push_back({radius * std::cos(2 * pi * i / n), 0, radius * std::sin(2 * pi * i / n)});
  return points;
}

void ExpectNear(const Vec3d& a, const Vec3d& b, double within, const char* what = "") {
  for (i32 c = 0; c < 3; ++c) EXPECT_NEAR(a[c], b[c], within) << what << " " << c;
}

}  // namespace

TEST(SplineLine, MeasuresItsSegmentsOneAfterTheOther) {
  LineRig rig;
  rig.spline.points = {{0, 0, 0},  {3, 0, 0}, {3, 1, 0}, {10, 0, 0},
                       {10, 0, 2}, {9, 9, 9}, {9, 9, 9}};
  rig.spline.segments = {3, 2, 2};
  const SplineLine line = rig.Line();
  ASSERT_EQ(line.SegmentCount(), 2) << "one without length is left out";
  EXPECT_EQ(line.LengthOf(0), 4);
  EXPECT_EQ(line.TotalLength(), 6);
  ExpectNear(line.PositionAt({0, 0.5}), {2, 0, 0}, 1e-15);
  EXPECT_EQ(line.PlaceOfPoint(0, 1).u, 0.75);
  for (const auto& [length, at] : std::map<double, Vec3d>{
           {-1, {0, 0, 0}}, {3.5, {3, 0.5, 0}}, {5, {10, 0, 1}}, {99, {10, 0, 2}}})
    ExpectNear(line.PositionAt(line.PlaceAt(length)), at, 1e-15);
  rig.spline.closed = true;
  EXPECT_NEAR(rig.Line().LengthOf(0), 4 + std::sqrt(10), 1e-15);
  EXPECT_EQ(rig.Line().PlaceOfPoint(0, 1).segment, 0);
}

TEST(SplineLine, FindsWhatABruteForceSearchFinds) {
  LineRig rig;
  u32 state = 7;
  const auto draw = [&] { return (state = state * 1664525 + 1013904223) / 4294967296.0; };
  for (i32 i = 0; i < 300; ++i) rig.spline.points.push_back({draw(), draw(), draw()});
  rig.spline.segments = {200, 100};
  const SplineLine line = rig.Line();
  for (i32 k = 0; k < 300; ++k) {
    const Vec3d p{draw() * 2 - 0.5, draw() * 2 - 0.5, draw() * 2 - 0.5};
    double onLine = 0.3, atPoint = 0.3;
    for (i32 i = 0; i < 300; ++i) {
      const Vec3d& a = rig.spline.points[i];
      atPoint = std::min(atPoint, Length(p - a));
      if (i == 199 || i == 299) continue;
      const Vec3d way = rig.spline.points[i + 1] - a;
      const double t = std::clamp(Dot(p - a, way) / Dot(way, way), 0.0, 1.0);
      onLine = std::min(onLine, Length(p - a - way * t));
    }
    const auto near = line.FindNearest(p, 0.3), point = line.FindNearestPoint(p, 0.3);
    ASSERT_EQ(near.has_value(), onLine < 0.3);
    ASSERT_EQ(point.has_value(), atPoint < 0.3);
    if (point) {
      EXPECT_NEAR(point->distance, atPoint, 1e-14);
    }
    if (!near) continue;
    EXPECT_NEAR(near->distance, onLine, 1e-14);
    ExpectNear(line.PositionAt(near->place), near->position, 1e-12);
  }
}

TEST(SplineLine, StraightLinesTurnAtTheirCorners) {
  LineRig rig;
  rig.spline.points = {{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {1, 1, 1}};
  const SplineLine line = rig.Line();
  const Vec3d along[] = {{1, 0, 0}, {0, 0, 1}, {0, 1, 0}};
  const Vec3d normal[] = {{0, 1, 0}, {0, 1, 0}, {0, 0, -1}};
  for (i32 piece = 0; piece < 3; ++piece)
    for (const double t : {0.1, 0.9}) {
      const Matrix frame = line.FrameAt({0, (piece + t) / 3});
      ExpectNear(frame.v3, along[piece], 1e-15, "tangent");
      ExpectNear(frame.v1, normal[piece], 1e-12, "the least turn from the piece before");
      ExpectNear(frame.v2, Cross(frame.v3, frame.v1), 1e-15);
    }
}

TEST(SplineLine, SmoothLinesComeNearACircle) {
  LineRig rig;
  rig.spline.points = Circle(24, 2);
  rig.spline.closed = rig.spline.smooth = true;
  const SplineLine line = rig.Line();
  EXPECT_NEAR(line.TotalLength(), 4 * pi, 2e-3);
  for (double u = 0; u <= 1; u += 0.0113) {
    const Matrix frame = line.FrameAt({0, u});
    EXPECT_NEAR(Length(frame.offset), 2, 1e-3);
    EXPECT_NEAR(Dot(frame.v3, Normalised(frame.offset)), 0, 5e-3);
    ExpectNear(frame.v1, {0, 1, 0}, 1e-9, "a plane line doesn't turn about itself");
  }
}

/// About a helix of radius r and pitch 2 pi c the Frenet frame turns by its torsion against one
/// that minimises rotation: c s / (r^2 + c^2) behind the length s.
TEST(SplineLine, FramesOfAHelixTurnByItsTorsionAlone) {
  LineRig rig;
  const double r = 1, c = 0.4, turns = 1.5;
  const i32 n = 60;
  for (i32 i = 0; i <= n; ++i) {
    const double a = 2 * pi * turns * i / n;
    rig.spline.points.push_back({r * std::cos(a), r * std::sin(a), c * a});
  }
  rig.spline.smooth = true;
  const SplineLine line = rig.Line();
  const auto turned = [&](double u) {
    const double a = 2 * pi * turns * u;
    const Matrix frame = line.FrameAt({0, u});
    const Vec3d inwards{-std::cos(a), -std::sin(a), 0};
    return std::atan2(Dot(Cross(frame.v1, inwards), frame.v3), Dot(frame.v1, inwards));
  };
  const double length = line.TotalLength();
  EXPECT_NEAR(length, 2 * pi * turns * std::hypot(r, c), 5e-3);
  for (double u = 0.1; u < 0.95; u += 0.05) {
    const double expected = c * (u - 0.1) * length / (r * r + c * c);
    const double off = std::remainder(turned(u) - turned(0.1) - expected, 2 * pi);
    EXPECT_NEAR(off, 0, 5e-3) << u;
  }
}

TEST(SplineLine, ClosedLinesOutOfAPlaneEndInTheFrameThatTheyBeganIn) {
  LineRig rig;
  for (i32 i = 0; i < 40; ++i) {
    const double a = 2 * pi * i / 40;
    rig.spline.points.push_back(
        {std::cos(a), 0.5 * std::sin(2 * a), std::sin(a) + 0.3 * std::cos(3 * a)});
  }
  rig.spline.closed = true;
  for (const bool smooth : {false, true}) {
    rig.spline.smooth = smooth;
    const SplineLine line = rig.Line();
    const Matrix first = line.FrameAt({0, 0}), last = line.FrameAt({0, 1});
    if (smooth) ExpectNear(first.v1, last.v1, 1e-9, "smooth");
    // Across the corner at the first point the normal takes the least turn.
    const Vec3d axis = Cross(last.v3, first.v3);
    const Vec3d along = Normalised(axis);
    if (!smooth) {
      EXPECT_NEAR(Dot(first.v1, along), Dot(last.v1, along), 1e-9);
    }
  }
}

TEST(SplineLine, FollowsItsObject) {
  LineRig rig;
  BaseNode& parent = rig.document.Create<BaseNode>(0, "parent", nullptr);
  rig.document.Reparent(rig.spline, &parent);
  rig.spline.points = {{0, 0, 0}, {100, 0, 0}};
  rig.spline.track.keys = {{0, {{0, 0, 0}, {100, 0, 0}}}, {10, {{0, 0, 0}, {100, 200, 0}}}};
  SplineTracker tracker;
  const Vec3d scale{0.01, 0.01, 0.02};
  ASSERT_TRUE(tracker.Update(rig.spline, scale));
  ASSERT_TRUE(tracker.Update(rig.spline, scale));
  EXPECT_EQ(tracker.Counter(), 1u) << "nothing moved";
  parent.SetPlacement({0, 0, 50}, {0, 90, 0}, {1, 1, 1});
  tracker.Update(rig.spline, scale);
  EXPECT_EQ(tracker.Counter(), 2u);
  ExpectNear(tracker.Line().PositionAt({0, 1}), {0, 0, -1}, 1e-12, "its parent has moved");
  rig.document.SetFrame(5);
  tracker.Update(rig.spline, scale);
  EXPECT_EQ(tracker.Counter(), 3u);
  ExpectNear(tracker.Line().PositionAt({0, 1}), {0, 1, -1}, 1e-12, "keys");
  rig.spline.points.resize(1);
  rig.spline.Touch();
  EXPECT_FALSE(tracker.Update(rig.spline, scale));
}
