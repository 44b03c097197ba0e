#include "host/shapes.h"

#include <gtest/gtest.h>

#include <numbers>

#include "host/geometry_facts.h"

namespace MELDO_GLOBAL::host {
namespace {
using std::numbers::pi;

/// Area of a regular polygon of n sides in a circle of radius r.
double PolygonArea(int n, double r) { return 0.5 * n * r * r * std::sin(2 * pi / n); }
double PolygonSide(int n, double r) { return 2 * r * std::sin(pi / n); }

TEST(Shapes, AreClosedAndFillTheirExtents) {
  struct Case {
    const char* type;
    i64 euler;
    Vec3d extent;
  };
  ShapeArguments a;
  a.size = {20, 40, 80};
  a.radius = 30;
  a.height = 70;
  a.tube = 10;
  for (const i32 segments : {3, 4, 7, 24, 33}) {
    a.segments = segments;
    for (const Case& c : {Case{"box", 2, {20, 40, 80}}, Case{"sphere", 2, {60, 60, 60}},
                          Case{"cylinder", 2, {60, 70, 60}}, Case{"cone", 2, {60, 70, 60}},
                          Case{"torus", 0, {80, 20, 80}}}) {
      SCOPED_TRACE(std::string(c.type) + " " + std::to_string(segments));
      const Geometry g = *MakeShape(c.type, a);
      const GeometryFacts facts = FactsOf(g);
      EXPECT_TRUE(facts.closed);
      EXPECT_EQ(facts.euler, c.euler);
      EXPECT_GT(facts.volume, 0);
      EXPECT_EQ(g.uvs.size(), g.polygons.size());
      if (segments != 24) continue;  // whose corners lie on all four half axes
      const Vec3d extent = facts.high - facts.low;
      for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(extent[axis], c.extent[axis], 1e-12);
      for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(facts.low[axis], -facts.high[axis]);
    }
  }
}

TEST(Shapes, HaveTheVolumesAndAreasOfTheirPolyhedra) {
  ShapeArguments a;
  a.size = {20, 40, 80};
  const GeometryFacts box = FactsOf(MakeBox(a));
  EXPECT_DOUBLE_EQ(box.volume, 64000);
  EXPECT_DOUBLE_EQ(box.area, 2 * (800 + 3200 + 1600));

  const GeometryFacts plane = FactsOf(MakePlane(a));
  EXPECT_DOUBLE_EQ(plane.area, 1600);
  EXPECT_FALSE(plane.closed);

  a = {};
  a.segments = 20;
  const double base = PolygonArea(20, 50), side = PolygonSide(20, 50);
  const double apothem = 50 * std::cos(pi / 20);
  const GeometryFacts cylinder = FactsOf(MakeCylinder(a));
  EXPECT_NEAR(cylinder.volume, base * 100, 1e-7);
  EXPECT_NEAR(cylinder.area, 2 * base + 20 * side * 100, 1e-8);
  const GeometryFacts cone = FactsOf(MakeCone(a));
  EXPECT_NEAR(cone.volume, base * 100 / 3, 1e-8);
  EXPECT_NEAR(cone.area, base + 10 * side * std::hypot(100, apothem), 1e-8);
  // A stack of frustums: quads between rings are planar, so slices are regular polygons.
  const GeometryFacts sphere = FactsOf(MakeSphere(a));
  double volume = 0;
  for (int k = 0; k < 10; ++k) {
    const double r0 = 50 * std::sin(pi * k / 10), r1 = 50 * std::sin(pi * (k + 1) / 10);
    const double h = 50 * (std::cos(pi * k / 10) - std::cos(pi * (k + 1) / 10));
    volume += h / 3 * (r0 * r0 + r0 * r1 + r1 * r1) * PolygonArea(20, 1);
  }
  EXPECT_NEAR(sphere.volume, volume, 1e-7);
}

TEST(Shapes, ConvergeToTheRoundOnesAtSecondOrder) {
  const double sphere = 4 * pi / 3 * 50 * 50 * 50, torus = 2 * pi * pi * 50 * 20 * 20;
  double lastSphere = 0, lastTorus = 0;
  for (const i32 segments : {32, 64, 128}) {
    ShapeArguments a;
    a.segments = segments;
    const double errorSphere = 1 - FactsOf(MakeSphere(a)).volume / sphere;
    const double errorTorus = 1 - FactsOf(MakeTorus(a)).volume / torus;
    if (lastSphere > 0) {
      EXPECT_NEAR(lastSphere / errorSphere, 4, 0.1);
      EXPECT_NEAR(lastTorus / errorTorus, 4, 0.15);
    }
    lastSphere = errorSphere;
    lastTorus = errorTorus;
  }
}

TEST(Shapes, SphereHasQuadsAndTrianglesOnlyAtThePoles) {
  ShapeArguments a;
  a.segments = 16;
  const Geometry g = MakeSphere(a);
  EXPECT_EQ(g.points.size(), 16u * 7 + 2);
  EXPECT_EQ(g.polygons.size(), 16u * 8);
  for (const Polygon& p : g.polygons) {
    bool pole = false;
    for (const i32 i : {p.a, p.b, p.c, p.d}) pole |= std::abs(g.points[i].y) == 50;
    EXPECT_EQ(p.IsQuad(), !pole);
  }
}

// A symmetric set-up stays symmetric only when its geometry is so to the bit.
TEST(Shapes, AreMirrorSymmetricToTheBit) {
  const auto has = [](const Geometry& g, const Vec3d& p) {
    return std::find(g.points.begin(), g.points.end(), p) != g.points.end();
  };
  ShapeArguments a;
  a.segments = 32;
  for (const char* type : {"box", "sphere", "cylinder", "torus"}) {
    const Geometry g = *MakeShape(type, a);
    for (const Vec3d& p : g.points) {
      EXPECT_TRUE(has(g, {-p.x, p.y, p.z})) << type;
      EXPECT_TRUE(has(g, {p.x, -p.y, p.z})) << type;
      EXPECT_TRUE(has(g, {p.z, p.y, p.x})) << type;
    }
  }
}

TEST(Shapes, IcosphereFacts) {
  struct Case {
    size_t points, triangles;
    double area, volume;
  };
  constexpr Case cases[] = {{12, 20, .7619, .6055},       {42, 80, .9284, .8735},
                            {162, 320, .9812, .9662},     {642, 1280, .99524, .99139},
                            {2562, 5120, .99881, .99784}, {10242, 20480, .99970, .99946}};
  for (i32 level = 0; level < 6; ++level) {
    const Geometry g = MakeIcosphere(level, 2.0);
    const GeometryFacts facts = FactsOf(g);
    EXPECT_EQ(g.points.size(), cases[level].points);
    EXPECT_EQ(facts.triangles, cases[level].triangles);
    EXPECT_TRUE(facts.closed);
    EXPECT_NEAR(facts.area / (16 * pi), cases[level].area, 1e-4);
    EXPECT_NEAR(facts.volume / (32 * pi / 3), cases[level].volume, 1e-4);
  }
}

TEST(Shapes, RefuseWhatTheyCannotMake) {
  ShapeArguments a;
  EXPECT_FALSE(MakeShape("teapot", a));
  a.segments = 2;
  EXPECT_THROW(MakeShape("sphere", a), std::invalid_argument);
  a.segments = kMaxSegments + 1;
  EXPECT_THROW(MakeShape("cone", a), std::invalid_argument);
  a = {};
  a.tube = 50;
  EXPECT_THROW(MakeShape("torus", a), std::invalid_argument);
  a.size.y = 0;
  EXPECT_THROW(MakeShape("box", a), std::invalid_argument);
  EXPECT_NO_THROW(MakeShape("plane", a));
  a.radius = std::nan("");
  EXPECT_THROW(MakeShape("cylinder", a), std::invalid_argument);
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
