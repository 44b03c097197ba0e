// The substeps of a frame.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/probe.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using namespace testing;
using ::testing::DoubleNear;
using ::testing::ElementsAre;

struct Substep {
  double dt, fraction, remaining;
  i32 number, most, last;
};

/// A scene whose solver writes down the time record of every substep, past its first frame.
struct ClockTest : ::testing::Test {
  ClockTest() {
    ProbeSetup setup;
    setup.list = kListSolvers;
    setup.stages = {kEmitters};
    node = &s.Add("solver", setup);
  }
  void Start() {
    s.Run(0);
    solver = &s.Get(*node);
    solver->mOnPrepare = [this](Probe& p) {
      const SceneTime& t = *p.mTime;
      substeps.push_back({t.stepDuration, t.stepFraction, t.remainingFraction, t.substep,
                          t.maxSubsteps, t.isLastSubstep});
      if (t.substep <= speeds.size()) p.mMaxSpeedSq = speeds[t.substep - 1] * speeds[t.substep - 1];
    };
    s.Run(1);
    substeps.clear();
  }
  /// The speed that gives a step of `dt` with the default CFL number and cell size.
  static double SpeedFor(double dt) { return 2 * double(0.2f) / dt; }

  ProbeScene s;
  host::BaseNode* node;
  Probe* solver = nullptr;
  std::vector<Substep> substeps;
  std::vector<double> speeds;  ///< speed that the solver has after each substep
};

TEST_F(ClockTest, TheFrameDoesNotEndOnASliver) {
  Start();
  solver->mMaxSpeedSq = SpeedFor(0.02) * SpeedFor(0.02);
  speeds = {SpeedFor(0.015), SpeedFor(0.015), SpeedFor(0.015)};
  s.Run(2);
  ASSERT_EQ(substeps.size(), 3u);
  const double dt[] = {0.02, 0.01, 0.01};
  const double remaining[] = {0.5, 0.25, 0};
  for (i32 i = 0; i < 3; ++i) {
    EXPECT_NEAR(substeps[i].dt, dt[i], 1e-8);
    EXPECT_NEAR(substeps[i].fraction, dt[i] / 0.04, 1e-6);
    EXPECT_NEAR(substeps[i].remaining, remaining[i], 1e-6);
    EXPECT_EQ(substeps[i].number, i + 1);
    EXPECT_EQ(substeps[i].most, i + 2) << "counts along";
    EXPECT_EQ(substeps[i].last, i == 2);
  }
  EXPECT_NEAR(s.scene.mTime.elapsed, 0.08, 1e-8);
  EXPECT_NEAR(s.scene.mStepRatio, 4, 1e-5) << "two cells, in halves of a cell";
}

TEST_F(ClockTest, StepsStayBetweenTheirLimits) {
  s.server.Set(1010, i32{1});
  s.server.Set(1005, i32{3});
  Start();
  s.Run(2);
  EXPECT_THAT(s.scene.mReport.steps, ElementsAre(DoubleNear(0.02, 1e-8), DoubleNear(0.02, 1e-8)))
      << "a quiet flow takes the minimum";
  solver->mMaxSpeedSq = 1e12;
  s.Run(3);
  EXPECT_EQ(s.scene.mReport.steps.size(), 4u) << "a wild one the maximum";
  for (const double dt : s.scene.mReport.steps) EXPECT_NEAR(dt, 0.01, 1e-8);
}

TEST_F(ClockTest, StepsOfAFrameAddUpToIt) {
  s.server.Set(1005, i32{254});
  Start();
  for (i32 frame = 2; frame < 40; ++frame) {
    solver->mMaxSpeedSq = std::pow(1.7 * frame, 2);
    const double before = s.scene.mTime.elapsed;
    s.Run(frame);
    EXPECT_NEAR(s.scene.mTime.elapsed - before, 0.04, 1e-8);
    EXPECT_EQ(substeps.back().last, 1);
    EXPECT_NEAR(substeps.back().remaining, 0, 1e-9);
  }
}

TEST_F(ClockTest, AWildFlowTakesTheMaximumAtEveryRate) {
  Start();
  for (const double fps : {23.976, 24.0, 25.0, 29.97, 30.0, 50.0, 60.0})
    for (const i32 most : {3, 5, 7, 11, 100}) {
      s.server.Set(1005, most - 1);
      s.document.fps = fps;
      solver->mMaxSpeedSq = 1e12;
      s.Run(s.scene.mClock.frame + 1);
      EXPECT_EQ(s.scene.mReport.steps.size(), static_cast<std::size_t>(most)) << fps;
    }
}

TEST_F(ClockTest, TimeIsTheSameHoweverAFrameIsCut) {
  for (const i32 mode : {0, 1})
    for (const i32 count : {1, 2, 3, 8, 30}) {
      ProbeScene cut;
      ProbeSetup setup;
      setup.stages = {kEmitters};
      cut.Add("work", setup);
      cut.server.Set(1003, mode);
      cut.server.Set(1005, count - 1);
      cut.server.Set(1010, count - 1);
      for (i32 frame = 0; frame <= 8; ++frame) cut.Run(frame);
      EXPECT_EQ(cut.scene.mReport.steps.size(), static_cast<std::size_t>(count));
      EXPECT_DOUBLE_EQ(cut.scene.mTime.elapsed, 0.32) << mode << ' ' << count;
    }
}

TEST_F(ClockTest, FixedSubstepsDivideTheFrame) {
  s.server.Set(1003, i32{1});
  s.server.Set(1005, i32{3});
  s.Run(0);
  EXPECT_THAT(s.scene.mReport.steps, ElementsAre(0.04)) << "the first frame takes one step";
  Start();
  s.Run(2);
  ASSERT_EQ(substeps.size(), 4u);
  for (i32 i = 0; i < 4; ++i) {
    EXPECT_NEAR(substeps[i].dt, 0.01, 1e-9);
    EXPECT_EQ(substeps[i].fraction, 0.25);
    EXPECT_EQ(substeps[i].remaining, 0.75 - 0.25 * i);
    EXPECT_EQ(substeps[i].number, i + 1);
    EXPECT_EQ(substeps[i].most, 4);
    EXPECT_EQ(substeps[i].last, i == 3);
  }
  EXPECT_DOUBLE_EQ(s.scene.mTime.elapsed, 0.08);
}

TEST_F(ClockTest, AFixedStepIgnoresTheFrame) {
  s.server.Set(1003, i32{2});
  s.server.Set(1004, 0.3);
  s.server.Set(1005, i32{1});
  Start();
  s.Run(2);
  EXPECT_THAT(s.scene.mReport.steps, ElementsAre(0.15, 0.15));
  EXPECT_NEAR(s.scene.mTime.elapsed, 0.6, 1e-12);
}

TEST_F(ClockTest, MotionBlurTakesAPartOfTheFrame) {
  const auto stepOf = [&](i32 mode, i32 sample, i32 samples) {
    s.scene.SetTimes(3, 0.12, 0.04, mode, 2, 0.3, 2, 1, 25, sample, samples);
    return s.scene.mTime.stepDuration;
  };
  EXPECT_DOUBLE_EQ(stepOf(0, 3, 9), 0.04);
  EXPECT_DOUBLE_EQ(stepOf(1, 3, 9), 0.04 / 3);
  EXPECT_DOUBLE_EQ(stepOf(2, 3, 9), 0.05);
  EXPECT_DOUBLE_EQ(stepOf(1, 0, 9), 0.02) << "a whole frame has no blur";
  EXPECT_DOUBLE_EQ(stepOf(2, 3, 0), 0.15);
}

TEST_F(ClockTest, AdaptiveStepFollowsTheFastestSolver) {
  Start();
  solver->mMaxSpeedSq = 100;
  EXPECT_NEAR(s.scene.ComputeAdaptiveStep(1e-16), 0.04, 1e-8);
  solver->mMaxSpeedSq = 1600;
  EXPECT_NEAR(s.scene.ComputeAdaptiveStep(1e-16), 0.01, 1e-9);
  EXPECT_NEAR(s.scene.ComputeAdaptiveStep(6400), 0.005, 1e-9) << "the seed is a lower limit";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
