#include <gtest/gtest.h>

#include <cmath>

#include "fluids/constraints/constraint_rig.h"
#include "fluids/emission/sphere_volume.h"
#include "fluids/flow/ifluid_solver.h"
#include "host/noise.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using Rig = ConstraintRig;

TEST(ConstraintRange, IsItsFormulaForAllSettings) {
  Rig rig;
  Constraint& c = rig.Add<Constraint>("constraint_quadratic", "range");
  std::mt19937 random(3);
  std::uniform_real_distribution<double> number(-2, 2);
  const host::SplineData bend{{{0, 1}, {0.5, 0.25}, {1, 0.75}}};
  for (i32 i = 0; i < 300; ++i) {
    const double low = number(random), high = i % 10 == 0 ? low : number(random);
    const double from = number(random), to = number(random), strength = number(random);
    const bool clampLow = i & 1, clampHigh = i & 2, curve = i & 4, invert = i & 8;
    Rig::Set(c, 1100, i32{invert});
    Rig::Set(c, 1103, strength);
    Rig::Set(c, 1106, i32{clampLow});
    Rig::Set(c, 1107, i32{clampHigh});
    Rig::Set(c, 1108, low);
    Rig::Set(c, 1109, high);
    Rig::Set(c, 1110, from);
    Rig::Set(c, 1111, to);
    Rig::Set(c, 1112, i32{curve});
    Rig::Set(c, 1113, bend);
    ASSERT_TRUE(c.ReadParameters());
    for (const double m : {-3.0, -0.4, low, 0.3, high, 3.0}) {
      double v = m;
      if (clampLow && v < low)
        v = low;
      else if (clampHigh && v > high)
        v = high;
      double t = high == low ? 1.0 : (v - low) / (high - low);
      if (curve) t = bend.Evaluate(t);
      if (invert) t = 1 - t;
      EXPECT_NEAR(c.FactorOf(m), (from + (to - from) * t) * strength, 1e-12);
    }
  }
}

TEST(ShapeConstraints, FalloffsAreTheirFormulasInTheAxesOfTheNode) {
  Rig rig;
  Constraint& c = rig.Add<Constraint>("constraint_quadratic", "falloff");
  Rig::OpenRange(c);
  const Vec3d place{30, -20, 10}, turn{20, 40, 70}, size{1, 2, 0.5}, radii{60, 30, 45};
  c.Node()->SetPlacement(place, turn, size);
  Rig::Set(c, 1001, radii);
  Rig::Set(c, 1002, 55.0);
  const Matrix inverse = Inverse(Placement(place, turn, size));
  const auto limited = [](double v) { return std::min(std::max(v, 0.0), 1.0); };
  for (i32 shape = 0; shape < 5; ++shape) {
    Rig::Set(c, 1000, shape);
    rig.Begin();
    Rig::Opened(c);
    i32 inside = 0;
    Rig::ForEachPoint(400, -1, 1, [&](const Vec3d& p) {
      const Vec3d q = inverse * (p * 100.0), s{q.x / radii.x, q.y / radii.y, q.z / radii.z};
      const double ring = std::hypot(q.x, q.z);
      const double wanted[5] = {
          1 - Length(q) / 55, limited(1 - Length(s)),
          limited(1 - std::max({std::abs(s.x), std::abs(s.y), std::abs(s.z)})),
          limited(1 - std::hypot(ring - radii.x, q.y) / radii.y),
          limited(std::min(1 - std::abs(s.y), 1 - s.x * s.x - s.z * s.z))};
      EXPECT_NEAR(Rig::At(c, p), wanted[shape], 1e-6) << shape;
      inside += wanted[shape] > 0;
    });
    EXPECT_GT(inside, 5) << shape;
  }
}

TEST(ShapeConstraints, RampsRunAlongAxesByDistanceAndByDirections) {
  Rig rig;
  Constraint& c = rig.Add<Constraint>("constraint_gradient", "ramp");
  rig.Begin();
  EXPECT_EQ(Rig::At(Rig::Opened(c), {1, 2, 3}), 1) << "without a ramp all passes";
  const host::Gradient ramp{{{0, {0.2, 1, 1}}, {0.4, {0.9, 0, 0}}, {1, {0.1, 0, 0}}}};
  auto& object = rig.document.Create<host::BaseNode>(host::kLightObject, "lamp", nullptr);
  const Vec3d place{20, 30, -10}, turn{0, 30, 50};
  object.SetPlacement(place, turn, {1, 1, 1});
  Rig::Set(c, 1000, ramp);
  Rig::Set(c, 1002, host::Link{object.Id()});
  Rig::Set(c, 1003, 80.0);
  const Matrix inverse = Inverse(Placement(place, turn, {1, 1, 1}));
  for (i32 mode = 0; mode < 4; ++mode)
    for (const bool oneSided : {false, true})
      for (const bool squared : {false, true}) {
        Rig::Set(c, 1001, mode);
        Rig::Set(c, 1004, i32{oneSided});
        Rig::Set(c, 1007, i32{squared});
        rig.Begin();
        Rig::Opened(c);
        Rig::ForEachPoint(60, -1, 1, [&](const Vec3d& p) {
          const Vec3d l = inverse * (p * 100.0) * 0.01;
          double v = mode == 3 ? Length(l) : std::abs(l[mode]);
          if (mode < 3 && oneSided && l[mode] < 0) v = 0;
          const double t = std::min(squared ? v * v / 0.64 : v / 0.8, 1.0);
          EXPECT_NEAR(Rig::At(c, p), ramp.Evaluate(t).x, 1e-6) << mode << oneSided << squared;
        });
      }
  iBase& direction = rig.Add<iBase>("alignment", "direction");
  Rig::Set(direction, 1000, i32{5});  // away from an axis: as long as the distance from it
  Rig::Link(c, 1005, direction);
  Rig::Set(c, 1007, i32{0});
  rig.Begin();
  Rig::Opened(c);
  EXPECT_NEAR(Rig::At(c, {0.16, 0.12, 5}), ramp.Evaluate(0.2 / 0.8).x, 1e-6);
}

TEST(ShapeConstraints, NoiseIsScaledCutAndStretchedAboutItsNode) {
  using host::NoiseType;
  Rig rig;
  Constraint& c = rig.Add<Constraint>("constraint_noise", "noise");
  Rig::OpenRange(c);
  const Vec3d place{37, 11, -50}, axes{1, 2, 0.5};
  c.Node()->SetPlacement(place, {}, {1, 1, 1});
  Rig::Set(c, 1001, 40.0);
  Rig::Set(c, 1002, axes);
  Rig::Set(c, 1008, i32{5});
  Rig::Set(c, 1010, 0.3);
  Rig::Set(c, 1011, 0.7);
  Rig::Set(c, 1005, 1.5);
  Rig::Set(c, 1007, 0.1);
  rig.scene->mTime.elapsed = 3;
  const host::Noise noise(5 + 920111);
  for (const NoiseType type : {NoiseType::Gradient, NoiseType::Cells, NoiseType::Turbulence,
                               NoiseType::Fbm, NoiseType::Ridged, NoiseType::Voronoi})
    for (const double speed : {0.0, 0.7})
      for (const bool absolute : {false, true}) {
        Rig::Set(c, 1004, static_cast<i32>(type));
        Rig::Set(c, 1006, speed);
        Rig::Set(c, 1012, i32{absolute});
        rig.Begin();
        Rig::Opened(c);
        i32 kept = 0;
        Rig::ForEachPoint(400, -2, 2, [&](const Vec3d& p) {
          const Vec3d q = (p * 100.0 - place) / (axes * 40.0);
          double n =
              speed != 0 ? noise.Evaluate(type, q, 3 * speed, 3) : noise.Evaluate(type, q, 3);
          const bool swings = type == NoiseType::Gradient || type == NoiseType::Fbm;
          if (swings) n = absolute ? std::abs(n) : (n + 1) / 2;
          const double s = std::min(std::max((n - 0.3) / 0.4, 0.0), 1.0);
          const double m = (std::min(s + 0.1, 1.0) - 0.5) * 1.5 + 0.5;
          EXPECT_NEAR(Rig::At(c, p), n > 0 ? std::max(m, 0.0) : 0.0, 2e-4)
              << static_cast<i32>(type);
          kept += m > 0;
        });
        EXPECT_GT(kept, 5);
      }
  // A hole stays one, whatever the range makes of it.
  Rig::Set(c, Constraint::kInvertRow, i32{1});
  Rig::Set(c, 1007, -1.0);
  rig.Begin();
  EXPECT_EQ(Rig::At(Rig::Opened(c), {0.1, 0.2, 0.3}), 0);
  Rig::Set(c, 1001, 0.0);
  rig.Begin();
  EXPECT_EQ(Rig::At(Rig::Opened(c), {0.1, 0.2, 0.3}), 1) << "no scale, no pattern";
}

/// Two balls that count as one volume.
class Pair : public iVolume {
 public:
  using iVolume::iVolume;
  void GetCategories(u32& mask) const override { mask |= kCategoryVolume; }
  i32 GetListIndex() const override { return kListGeometry; }
  bool ResolveLinks() override { return true; }
  void CollectMembers(std::vector<VolumeBase*>& out) override {
    out.insert(out.end(), members.begin(), members.end());
  }
  std::vector<VolumeBase*> members;
};

/// A solver with nothing but a flow.
class Bare : public iFluidSolver {
 public:
  Bare(host::BaseNode* node, Scene* scene) : iFluidSolver(node, scene), flow(scene) {}
  i32 GetListIndex() const override { return kListSolvers; }
  Flow& GetFlow() override { return flow; }
  Flow flow;
};

TEST(ShapeConstraints, VolumesHoldPointsAsOneAndMeasureDepth) {
  Rig rig;
  auto& a = rig.AddOwn<SphereVolume>("volume", "a");
  auto& b = rig.AddOwn<SphereVolume>("volume", "b");
  auto& both = rig.AddOwn<Pair>("volume_multi", "both");
  both.members = {&a, &b};
  Constraint& c = rig.Add<Constraint>("constraint_volume", "inside");
  const Vec3d ca{0.6, 0.6, 0.6}, cb{1.4, 0.6, 0.6};
  a.Make(ca, 0.5, {12, 12, 12}, {0, 0, 0});
  b.Make(cb, 0.5, {12, 12, 12}, {0.8, 0, 0});
  const auto compare = [&](double offset, bool depth) {
    Rig::Set(c, 1001, i32{depth});
    Rig::Set(c, 1004, offset);
    rig.Begin();
    Rig::Opened(c);
    i32 held = 0;
    Rig::ForEachPoint(6000, -0.6, 2.2, [&](const Vec3d& p) {
      const double da = Length(p - ca) - 0.5, db = Length(p - cb) - 0.5, limit = offset * 0.1;
      // Distances between nodes and beyond grids are near the true ones.
      if (std::abs(std::min(da, db) - limit) < 0.08 || std::abs(da - limit) < 0.05) return;
      const bool inA = da < limit, inB = db < limit;
      const double deep = std::abs(inA ? da : db) / 0.5;
      EXPECT_NEAR(Rig::At(c, p), inA || inB ? (depth ? deep : 1.0) : 0.0, depth ? 0.15 : 0);
      held += inA || inB;
    });
    EXPECT_GT(held, 10);
  };
  Rig::Link(c, 1000, both);
  compare(0, false);
  compare(0, true);
  compare(3, false);  // farther than the grids reach
  compare(-2, false);
  Rig::Link(c, 1000, a);
  rig.Begin();
  Rig::Set(c, 1004, 0.0);
  Rig::Set(c, 1001, i32{0});
  rig.Begin();
  Rig::Opened(c);
  EXPECT_EQ(Rig::At(c, ca), 1);
  EXPECT_EQ(Rig::At(c, cb), 0);

  auto& liquid = rig.AddOwn<Bare>("fluid", "liquid");
  Rig::Link(c, 1000, liquid);
  rig.Begin();
  EXPECT_EQ(Rig::At(Rig::Opened(c), cb), 1) << "a gas has no surface: everything passes";
  EGrid<double> surface({10, 10, 10}, {100, 100, 100}, 0.1f, kCentre, {});
  Rig::Fill(surface, [](const Vec3d& p) { return p.y - 0.42; });
  liquid.flow.mSurface = &surface;
  rig.Begin();
  Rig::Opened(c);
  EXPECT_EQ(Rig::At(c, {0.5, 0.41, 0.5}), 1);
  EXPECT_EQ(Rig::At(c, {0.5, 0.43, 0.5}), 0);
}

TEST(ShapeConstraints, DistancesAreThoseOfMiddlePointsAndLine) {
  Rig rig;
  Constraint& c = rig.Add<Constraint>("constraint_voxeldistance", "distance");
  Rig::OpenRange(c);
  Rig::Set(c, 1001, 50.0);
  auto& spline = rig.document.Create<host::SplineObject>(host::kSplineObject, "line", nullptr);
  spline.points = {{0, 0, 0}, {100, 0, 0}, {100, 60, 20}, {10, 90, 20}};
  const Vec3d place{10, 5, -5};
  spline.SetPlacement(place, {0, 0, 30}, {1, 1, 1});
  std::vector<Vec3d> points;
  for (const Vec3d& p : spline.points) points.push_back((spline.GlobalMatrix() * p) * 0.01);
  const auto toSegment = [&](const Vec3d& p, const Vec3d& a, const Vec3d& b) {
    double least = 1e9;
    for (i32 i = 0; i <= 2000; ++i) least = std::min(least, Length(a + (b - a) * (i / 2000.0) - p));
    return least;
  };
  Rig::Set(c, 1000, host::Link{spline.Id()});
  for (const bool closed : {false, true})
    for (i32 mode = 0; mode < 3; ++mode) {
      spline.closed = closed;
      Rig::Set(c, 1004, mode);
      rig.Begin();
      Rig::Opened(c);
      Rig::ForEachPoint(40, -0.5, 1.5, [&](const Vec3d& p) {
        double wanted = mode == 0 ? Length(p - place * 0.01) : 1e9;
        for (std::size_t i = 0; mode == 1 && i < points.size(); ++i)
          wanted = std::min(wanted, Length(points[i] - p));
        for (std::size_t i = 0; mode == 2 && i + (closed ? 0 : 1) < points.size(); ++i)
          wanted = std::min(wanted, toSegment(p, points[i], points[(i + 1) % points.size()]));
        EXPECT_NEAR(Rig::At(c, p), wanted / 0.5, 1e-3) << mode << closed;
      });
    }
  // Two lines: nothing stands between the end of one and the start of the other.
  spline.segments = {2, 2};
  spline.closed = false;
  rig.Begin();
  Rig::Opened(c);
  Rig::ForEachPoint(40, -0.5, 1.5, [&](const Vec3d& p) {
    const double wanted =
        std::min(toSegment(p, points[0], points[1]), toSegment(p, points[2], points[3]));
    EXPECT_NEAR(Rig::At(c, p), wanted / 0.5, 1e-3);
  });
  auto& cube = rig.document.Create<host::PolygonObject>(host::kMeshObject, "cube", nullptr);
  host::Geometry corners;
  corners.points = {{0, 0, 0}, {100, 0, 0}, {0, 100, 0}};
  cube.SetGeometry(corners);
  Rig::Set(c, 1000, host::Link{cube.Id()});
  rig.Begin();
  Rig::Opened(c);
  EXPECT_NEAR(Rig::At(c, {0.9, 0.3, 0}), std::hypot(0.1, 0.3) / 0.5, 1e-6);
  cube.SetPlacement({0, 0, 100}, {}, {1, 1, 1});
  rig.Begin();
  EXPECT_NEAR(Rig::At(Rig::Opened(c), {0, 0, 0.6}), 0.4 / 0.5, 1e-6) << "it has moved";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
