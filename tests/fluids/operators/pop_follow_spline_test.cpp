#include "fluids/operators/pop_follow_spline.h"

#include <numbers>

#include "fluids/operators/group_operator_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using host::SplineObject;
using Node = Pop_FollowSpline;

namespace {

/// A straight line from x = 1 to x = 3 m, and particles that go exactly onto it.
struct SplineRig : GroupRig {
  SplineObject& spline = AddSpline("way", {{100, 0, 0}, {300, 0, 0}});
  Node& node = AddOperator<Node>("pop_followspline", Node::kKindRow);
  std::vector<SplineObject*> splines = {&spline};

  SplineRig() {
    Name();
    Set(node, Node::kPlaceRow, i32{Node::kNearest});
    Set(node, Node::kDirectionRow, i32{Node::kForwards});
    Set(node, Node::kRadiusRow, 0.0);
    Set(node, Node::kSpeedFactorRow, 1.0);
    Set(node, Node::kSpeedModeRow, i32{Node::kFixedSpeed});
    Set(node, Node::kSpeedRow, 100.0);
  }
  SplineObject& AddSpline(const char* name, std::vector<Vec3d> points) {
    auto& made = document.Create<SplineObject>(host::kSplineObject, name, nullptr);
    made.points = std::move(points);
    return made;
  }
  void Name() {
    host::InExcludeData list;
    for (const SplineObject* each : splines) list.entries.push_back({each->Id(), 0});
    node.Node()->Set(Node::kSplinesRow, list);
  }
  bool Follows(i32 row) { return Store().Flags()[row] & PF_SPLINE_FOLLOW; }
  Vec3d Position(i32 row) { return Store().Positions()[row]; }
  Vec3d Velocity(i32 row) { return Store().Velocities()[row]; }
  /// A step in which what flies moves first.
  void Fly() {
    for (i32 row = 0; row < Store().Count(); ++row)
      Store().Positions()[row] += Store().Velocities()[row] * scene->mTime.stepDuration;
    Step(node);
  }
};

}  // namespace

TEST(PopFollowSpline, BrakesInTimeWhateverTheStep) {
  // Half of a metre to speed up in and half to brake in take 2 sqrt(d / a) at 1.5 m/s^2.
  const double best = 2 * std::sqrt(1 / 1.5);
  for (const double dt : {0.04, 0.01}) {
    SplineRig rig;
    rig.scene->mTime.stepDuration = dt;
    rig.Put({0, 0, 0});
    double time = 0, farthest = 0;
    Vec3d before{};
    while (!rig.Follows(0) && time < 5) {
      rig.Fly();
      EXPECT_LE(Length(rig.Velocity(0) - before), 1.5 * dt + 1e-6) << dt;
      before = rig.Velocity(0);
      farthest = std::max(farthest, rig.Position(0).x);
      time += dt;
    }
    EXPECT_GT(time, 0.85 * best) << dt << ", it arrives a tenth of a cell before";
    EXPECT_LT(time, 1.2 * best) << dt;
    EXPECT_LT(farthest, 1.011) << dt;
  }
}

TEST(PopFollowSpline, ComesAsFastAsItsModeAllows) {
  for (const i32 mode : {i32{Node::kFixedApproach}, i32{Node::kOwnApproach}}) {
    SplineRig rig;
    GroupRig::Set(rig.node, Node::kApproachModeRow, mode);
    GroupRig::Set(rig.node, Node::kApproachForceRow, 1e6);
    GroupRig::Set(rig.node, Node::kApproachSpeedRow, 200.0);
    rig.Put({-2, 0, 0}, {0, 0.5, 0});
    rig.Put({-2, 0, 0});
    rig.Step(rig.node);
    ExpectClose(rig.Velocity(0), {mode == Node::kOwnApproach ? 0.5 : 2, 0, 0});
    ExpectClose(rig.Velocity(1), {2, 0, 0}, 1e-6, "at rest");
    // Slower on the last 20 host units: a tenth of a metre off it is half as fast.
    rig.Store().Positions()[1] = {0.9, 0, 0};
    rig.Step(rig.node);
    ExpectClose(rig.Velocity(1), {1, 0, 0});
  }
  SplineRig rig;
  GroupRig::Set(rig.node, Node::kApproachWeightRow, 0.0);
  rig.Put({0, 0, 0}, {0, 1, 0});
  rig.Step(rig.node);
  EXPECT_EQ(rig.Velocity(0), (Vec3d{0, 1, 0}));
}

TEST(PopFollowSpline, GoesAlongAsFastAsItsModeSays) {
  for (const auto& [mode, speed] : {std::pair{Node::kOwnSpeed, 0.5},
                                    {Node::kFixedSpeed, 1.0},
                                    {Node::kByFrames, 2.0 * 25 / 60}})
    for (const i32 backwards : {0, 1})
      for (const double dt : {0.04, 0.02}) {
        SplineRig rig;
        rig.scene->mTime.stepDuration = dt;
        GroupRig::Set(rig.node, Node::kSpeedModeRow, i32{mode});
        GroupRig::Set(rig.node, Node::kDirectionRow, backwards);
        GroupRig::Set(rig.node, Node::kSpeedFactorRow, 0.8);
        rig.Put({2, 0, 0}, {0, 0.5, 0});
        rig.Step(rig.node);
        ASSERT_TRUE(rig.Follows(0));
        const double way = (backwards ? -0.8 : 0.8) * speed;
        for (i32 step = 1; step <= 5; ++step) {
          rig.Fly();  // whatever else moves it
          ExpectClose(rig.Position(0), {2 + way * dt * step, 0, 0});
          ExpectClose(rig.Velocity(0), {way, 0, 0});
        }
      }
}

TEST(PopFollowSpline, EndsAsItIsTold) {
  const auto run = [](i32 end, bool again, SplineRig& rig) {
    GroupRig::Set(rig.node, Node::kEndRow, end);
    GroupRig::Set(rig.node, Node::kAgainRow, i32{again});
    rig.Put({2.97, 0, 0});
    rig.Step(rig.node);
    rig.Step(rig.node);
  };
  for (const bool again : {false, true}) {
    SplineRig rig;
    run(Node::kRelease, again, rig);
    ExpectClose(rig.Position(0), {3, 0, 0});
    ExpectClose(rig.Velocity(0), {1, 0, 0}, 1e-6, "released");
    EXPECT_FALSE(rig.Follows(0));
    rig.Store().Positions()[0] = {3, 1, 0};
    rig.Step(rig.node);
    EXPECT_EQ(rig.Velocity(0).y < 0, again);
  }
  SplineRig wraps;
  run(Node::kWrap, false, wraps);
  ExpectClose(wraps.Position(0), {1.01, 0, 0});
  ExpectClose(wraps.Velocity(0), {1, 0, 0}, 1e-6, "no leap");
  EXPECT_TRUE(wraps.Follows(0));
  SplineRig ends;
  run(Node::kFinishThere, false, ends);
  EXPECT_TRUE(ends.Store().Flags()[0] & PF_SPLINE_DONE);
  EXPECT_EQ(ends.Velocity(0), Vec3d{});
  ends.Store().Positions()[0] = {0, 0, 0};
  ends.Store().Velocities()[0] = {0, 0, 7};
  ends.Step(ends.node);
  EXPECT_EQ(ends.Velocity(0), (Vec3d{0, 0, 7}));
  EXPECT_EQ(ends.Position(0), Vec3d{});
}

/// The line rises a metre a second.
TEST(PopFollowSpline, KeepsTheSpeedOfAMovingLineAtItsEnds) {
  for (const double blend : {1.0, 0.3})
    for (const i32 end : {i32{Node::kRelease}, i32{Node::kWrap}}) {
      SplineRig rig;
      GroupRig::Set(rig.node, Node::kBlendRow, blend);
      GroupRig::Set(rig.node, Node::kEndRow, end);
      rig.Put({2.01, 0, 0});
      rig.Step(rig.node);
      Vec3d before = rig.Position(0);
      for (i32 step = 1; step <= 40 && rig.Follows(0); ++step) {
        rig.spline.SetPlacement({0, 4.0 * step, 0}, {}, {1, 1, 1});
        rig.Step(rig.node);
        const Vec3d way = rig.Position(0) - before;
        before = rig.Position(0);
        if (way.x < 0) ExpectClose(way, {-1.96, 0.04, 0}, 0.002, "a leap, and no flight back");
        // What drags behind has caught up with the speed of the line by then.
        if (step > 20) ExpectClose(rig.Velocity(0), {1, 1, 0}, 0.002, std::to_string(step));
      }
      EXPECT_EQ(rig.Follows(0), end == Node::kWrap);
    }
}

TEST(PopFollowSpline, PicksByNearnessByChanceAndById) {
  constexpr i32 kCount = 400;
  for (const i32 pick : {i32{Node::kNearest}, i32{Node::kRandom}, i32{Node::kById}}) {
    std::vector<Vec3d> first;
    for (const i32 threads : {1, 3}) {
      SplineRig rig;
      rig.splines.push_back(&rig.AddSpline("other", {{100, 200, 0}, {300, 200, 0}}));
      rig.Name();
      GroupRig::Set(rig.node, Node::kPickRow, pick);
      GroupRig::Set(rig.node, Node::kPlaceRow, pick);
      for (i32 i = 0; i < kCount; ++i) rig.Put({1.5, 0.9, 0});
      rig.Step(rig.node, threads);
      const auto& targets = *rig.Store().Find<Vec3d>(property_id::kSplineStateA);
      i32 onFirst = 0;
      std::vector<double> along;
      for (i32 i = 0; i < kCount; ++i) {
        const Vec3d target = targets.Get(i, {});
        onFirst += target.y < 1e-6;
        along.push_back(target.x);
        if (pick == Node::kById) {
          EXPECT_EQ(target.y < 1e-6, i % 2 == 0);
        }
      }
      std::sort(along.begin(), along.end());
      if (pick == Node::kNearest) {
        EXPECT_EQ(onFirst, kCount);
        EXPECT_NEAR(along.front(), 1.5, 1e-6);
        EXPECT_NEAR(along.back(), 1.5, 1e-6);
      } else {
        // Chance leaves gaps of several times the mean one, ids none.
        double widest = 0;
        for (std::size_t i = 1; i < along.size(); ++i)
          widest = std::max(widest, (along[i] - along[i - 1]) * kCount / 2);
        EXPECT_NEAR(onFirst, kCount / 2, pick == Node::kById ? 0 : 50);
        EXPECT_EQ(widest > 3, pick == Node::kRandom) << widest;
      }
      const std::span<const Vec3d> velocities = std::as_const(rig.Store()).Velocities();
      if (first.empty()) first.assign(velocities.begin(), velocities.end());
      EXPECT_TRUE(std::equal(first.begin(), first.end(), velocities.begin())) << threads;
    }
  }
}

TEST(PopFollowSpline, LeadsTheShareThatItIsTold) {
  SplineRig rig;
  GroupRig::Set(rig.node, Node::kShareRow, 0.25);
  for (i32 i = 0; i < 1000; ++i) rig.Put({0, 0, 0});
  i32 led[2];
  for (i32& count : led) {
    rig.Step(rig.node);
    count = 0;
    for (const u16 flags : rig.Store().Flags()) count += (flags & PF_SPLINE_APPROACH) != 0;
  }
  EXPECT_NEAR(led[0], 250, 50);
  EXPECT_EQ(led[1], led[0]) << "the others aren't drawn anew";
}

TEST(PopFollowSpline, SpreadsRoundTheLine) {
  for (const auto& [spread, meanSquare] : {std::pair{Node::kDisc, (0.04 + 0.16) / 2},
                                           {Node::kEvenRadius, (0.04 + 0.08 + 0.16) / 3},
                                           {Node::kRim, 0.16}}) {
    SplineRig rig;
    GroupRig::Set(rig.node, Node::kRadiusRow, 40.0);
    GroupRig::Set(rig.node, Node::kInnerRadiusRow, 20.0);
    GroupRig::Set(rig.node, Node::kSpreadRow, i32{spread});
    for (i32 i = 0; i < 1000; ++i) rig.Put({1, 0, 0});
    rig.Step(rig.node);
    double sum = 0;
    Vec3d mean{};
    for (i32 i = 0; i < 1000; ++i) {
      const Vec3d p = rig.Store().Find<Vec3d>(property_id::kSplineStateA)->Get(i, {});
      EXPECT_NEAR(p.x, 1, 1e-6);
      const double radius = std::hypot(p.y, p.z);
      EXPECT_TRUE(radius > 0.2 - 1e-6 && radius < 0.4 + 1e-6) << radius;
      sum += radius * radius / 1000;
      mean += p * 0.001;
    }
    EXPECT_NEAR(sum, meanSquare, 0.006) << spread;
    ExpectClose(mean, {1, 0, 0}, 0.05, "all round");
  }
}

TEST(PopFollowSpline, SwirlsAndTapers) {
  SplineRig rig;
  GroupRig::Set(rig.node, Node::kRadiusRow, 50.0);
  GroupRig::Set(rig.node, Node::kSpreadRow, i32{Node::kRim});
  GroupRig::Set(rig.node, Node::kAngleRangeRow, 0.0);
  GroupRig::Set(rig.node, Node::kTaperRow, 0.5);
  GroupRig::Set(rig.node, Node::kSwirlRow, 5.0);
  GroupRig::Set(rig.node, Node::kSwirlVariationRow, 0.0);
  rig.Put({1, 0, 0});
  rig.Step(rig.node);
  rig.Store().Positions()[0] = rig.Store().Find<Vec3d>(property_id::kSplineStateA)->Get(0, {});
  const Vec3d start = rig.Position(0);
  rig.Step(rig.node);
  rig.Step(rig.node);
  const Vec3d p = rig.Position(0);
  const double radius = 0.5 * (1 - 0.5 * 0.02);
  EXPECT_NEAR(std::hypot(p.y, p.z), radius, 1e-6);
  EXPECT_NEAR((start.y * p.y + start.z * p.z) / (0.5 * radius), std::cos(5 * 0.04), 1e-6);
}

/// What drags behind comes half of the way nearer in 1/25 s, in one step or in two.
TEST(PopFollowSpline, DragsBehindWhateverTheStep) {
  for (const i32 parts : {1, 2}) {
    SplineRig rig;
    GroupRig::Set(rig.node, Node::kBlendRow, 0.5);
    GroupRig::Set(rig.node, Node::kSpeedFactorRow, 0.0);
    rig.Put({2, 0, 0});
    rig.Step(rig.node);
    rig.spline.SetPlacement({0, 100, 0}, {}, {1, 1, 1});
    rig.scene->mTime.stepDuration = 0.04 / parts;
    for (i32 i = 0; i < parts; ++i) rig.Step(rig.node);
    ExpectClose(rig.Position(0), {2, 0.5, 0}, 1e-6, std::to_string(parts));
  }
}

TEST(PopFollowSpline, LetsGoWhereItsSplineIsTaken) {
  SplineRig rig;
  rig.splines.insert(rig.splines.begin(), &rig.AddSpline("far", {{900, 0, 0}, {950, 0, 0}}));
  rig.Name();
  rig.Put({2, 0, 0});
  rig.Step(rig.node);
  ASSERT_TRUE(rig.Follows(0));
  rig.splines.pop_back();
  rig.Name();
  rig.Step(rig.node);
  EXPECT_FALSE(rig.Follows(0));
  EXPECT_GT(rig.Velocity(0).x, 0) << "on its way to the other one";
  rig.splines = {};
  rig.Name();
  rig.Step(rig.node);
  EXPECT_STREQ(rig.node.mInactiveReason, "it has no spline; name one under 'splines'");
}
