// What an evaluation of the document does: nothing, a reset, a refresh or a new frame.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/probe.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using namespace testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

ProbeSetup Channel() {
  ProbeSetup setup;
  setup.list = kListChannels;
  setup.resetsOnChange = true;
  return setup;
}

ProbeSetup Solver() {
  ProbeSetup setup;
  setup.list = kListSolvers;
  setup.stages = {kEmitters, kPressure};
  setup.sleepsAtStart = true;
  return setup;
}

ProbeSetup Cache() {
  ProbeSetup setup;
  setup.list = kListCaches;
  return setup;
}

TEST(Evaluation, FramesZeroToThree) {
  ProbeScene s;
  s.Add("channel", Channel());
  s.Add("solver", Solver());
  ProbeSetup emitter;
  emitter.list = kListEmitters;
  emitter.stages = {kEmitters};
  s.Add("emitter", emitter);
  const double frame = 0.04;
  const SceneTime& time = s.scene.mTime;

  ASSERT_TRUE(s.Run(0));
  EXPECT_THAT(s.lines, Contains("reset channel"));
  EXPECT_THAT(s.lines, Contains("reset emitter")) << "the first frame resets everything";
  EXPECT_THAT(s.trace, ElementsAre("5 emitter")) << "solvers sleep";
  EXPECT_THAT(s.scene.mReport.steps, ElementsAre(frame));
  EXPECT_EQ(time.elapsed, 0);
  EXPECT_EQ(time.substep, 1);
  EXPECT_EQ(time.maxSubsteps, 1);
  EXPECT_EQ(time.isLastSubstep, 1);

  for (const i32 number : {1, 2, 3}) {
    ASSERT_TRUE(s.Run(number));
    EXPECT_THAT(s.lines, Not(Contains("reset channel"))) << "what the first frame emits stays";
    EXPECT_THAT(s.trace, ElementsAre("5 emitter", "5 solver", "10 solver"));
    EXPECT_DOUBLE_EQ(time.elapsed, frame * number);
    EXPECT_EQ(time.frameIndex, number);
    EXPECT_EQ(time.fps, 25);
  }
}

TEST(Evaluation, SameTimeIsARefresh) {
  ProbeScene s;
  host::BaseNode& solver = s.Add("solver", Solver());
  ProbeSetup visual;
  visual.list = kListGeometry;
  visual.stages = {kVolumes, kMeshing};
  visual.runsOnRefresh = true;
  host::BaseNode& mesh = s.Add("mesh", visual);
  s.Add("cache", Cache());
  for (const i32 frame : {0, 1, 2}) s.Run(frame);
  const double elapsed = s.scene.mTime.elapsed;

  ASSERT_TRUE(s.Run(2));
  EXPECT_THAT(s.trace, IsEmpty()) << "nothing changed";
  EXPECT_THAT(s.lines, Not(Contains("evaluate cache"))) << "nothing is saved";

  solver.Set(1000, 5.0);
  ASSERT_TRUE(s.Run(2));
  EXPECT_THAT(s.trace, IsEmpty()) << "solvers don't run on a refresh";
  EXPECT_THAT(s.lines, Contains("evaluate cache"));

  mesh.Set(1000, 5.0);
  ASSERT_TRUE(s.Run(2));
  EXPECT_THAT(s.trace, ElementsAre("3 mesh", "21 mesh"));
  EXPECT_EQ(s.scene.mTime.elapsed, elapsed);
}

TEST(Evaluation, RangeEndsTheSimulation) {
  ProbeScene s;
  s.document.previewMin = 10;
  s.document.previewMax = 12;
  host::BaseNode& node = s.Add("solver", Solver());
  ASSERT_TRUE(s.Run(9));
  EXPECT_THAT(s.lines, ElementsAre("reset solver")) << "before the start every evaluation resets";
  ASSERT_TRUE(s.Run(8));
  EXPECT_THAT(s.lines, ElementsAre("reset solver"));
  for (const i32 frame : {10, 11, 12}) {
    ASSERT_TRUE(s.Run(frame));
    EXPECT_THAT(s.lines, Contains("prepare solver")) << frame;
  }
  const i32 reads = s.Get(node).mReads;
  ASSERT_TRUE(s.Run(13));
  EXPECT_THAT(s.lines, IsEmpty());
  EXPECT_EQ(s.Get(node).mReads, reads) << "nothing at all happens beyond the end";

  s.server.Set(1006, i32{0});
  s.server.Set(1007, i32{20});
  s.server.Set(1008, i32{14});
  ASSERT_TRUE(s.Run(14));
  EXPECT_EQ(s.scene.mClock.startFrame, 14) << "a reversed range is swapped";
  EXPECT_THAT(s.lines, Contains("prepare solver"));
  ASSERT_TRUE(s.Run(20));
  EXPECT_THAT(s.lines, Contains("prepare solver"));
  ASSERT_TRUE(s.Run(21));
  EXPECT_THAT(s.lines, IsEmpty());
}

TEST(Evaluation, ReturnToTheStartResetsAndJumpsDoNot) {
  ProbeScene s;
  s.Add("solver", Solver());
  for (const i32 frame : {0, 1, 2, 3}) s.Run(frame);
  const double elapsed = s.scene.mTime.elapsed;
  ASSERT_TRUE(s.Run(40));
  EXPECT_THAT(s.lines, Not(Contains("reset solver")));
  EXPECT_GT(s.scene.mTime.elapsed, elapsed);
  ASSERT_TRUE(s.Run(2));
  EXPECT_THAT(s.lines, Not(Contains("reset solver")));
  ASSERT_TRUE(s.Run(0));
  EXPECT_THAT(s.lines, Contains("reset solver"));
  EXPECT_EQ(s.scene.mTime.elapsed, 0);
}

TEST(Evaluation, ANewCellSizeResetsFully) {
  ProbeScene s;
  s.Add("emitter", Solver());
  s.server.Set(1015, 0.4);
  for (const i32 frame : {0, 1, 2, 3}) s.Run(frame);
  s.server.Set(1002, 0.1);
  ASSERT_TRUE(s.Run(4));
  EXPECT_THAT(s.lines, Contains("reset emitter"));
  EXPECT_EQ(s.scene.mTime.frameIndex, 0) << "the clock starts again";
  EXPECT_EQ(s.scene.mReport.steps.size(), 1u);
  EXPECT_EQ(s.scene.mDomain.cellSize, 0.1f);
  EXPECT_EQ(s.scene.mDomain.worldCell.x, 10);
  EXPECT_EQ(s.scene.mCellQuarter, double(0.1f) / 4);
  ASSERT_TRUE(s.Run(5));
  EXPECT_THAT(s.lines, Not(Contains("reset emitter")));
  ASSERT_TRUE(s.Run(6, true));
  EXPECT_THAT(s.lines, Contains("reset emitter"));
  EXPECT_EQ(s.scene.mDomain.cellSize, 0.4f) << "rendering has a cell size of its own";
}

TEST(Evaluation, StoppedTimeRunsTheCachesAlone) {
  ProbeScene s;
  host::BaseNode& solver = s.Add("solver", Solver());
  s.Add("cache", Cache());
  s.server.Set(1013, 0.0);
  s.Run(0);
  ASSERT_TRUE(s.Run(1));
  EXPECT_THAT(s.lines,
              ElementsAre("prepare cache", "prepare cache", "evaluate cache", "finish cache"));
  EXPECT_GT(s.Get(solver).mClears, 0);
}

TEST(Evaluation, TimeScaleStretchesTheFrame) {
  ProbeScene s;
  s.Add("solver", Solver());
  s.server.Set(1013, 2.5);
  for (const i32 frame : {0, 1, 2}) s.Run(frame);
  EXPECT_NEAR(s.scene.mTime.frameDuration, 0.1, 1e-8);
  EXPECT_NEAR(s.scene.mTime.elapsed, 0.2, 1e-7);
}

TEST(Evaluation, CancellationEndsInOrder) {
  ProbeScene s;
  host::BaseNode& first = s.Add("first", Solver());
  ProbeSetup later = Solver();
  later.stages = {kAdvection, kMeshing};
  s.Add("later", later);
  s.Add("cache", Cache());
  s.Run(0);
  s.Run(1);
  s.Get(first).mOnPrepare = [&](Probe&) { s.thread.Stop(); };
  EXPECT_FALSE(s.Run(2));
  EXPECT_THAT(s.lines, Contains("prepare first"));
  EXPECT_THAT(s.lines, Not(Contains("prepare later")));
  EXPECT_THAT(s.lines, Contains("evaluate cache")) << "what was simulated is saved";
  EXPECT_FALSE(s.Get(first).Has(FLAG_DIRTY_CHECKED)) << "the phase was closed";
  EXPECT_EQ(s.scene.mClock.lastFrame, 2);
  s.thread.Clear();
  s.Get(first).mOnPrepare = nullptr;
  EXPECT_TRUE(s.Run(3));
  EXPECT_THAT(s.trace, Contains("21 later"));
}

TEST(Evaluation, ThreadLimitHoldsForTheWorkers) {
  ProbeScene s;
  host::SetThreadCount(16);
  ProbeSetup setup;
  setup.stages = {kOperators};
  setup.sequential = false;
  host::BaseNode& node = s.Add("a", setup);
  s.server.Set(1009, i32{4});
  s.Run(0);
  EXPECT_EQ(s.scene.mThreadCount, 4);
  EXPECT_LE(s.Get(node).mThreads.size(), 4u);
  s.server.Set(1009, i32{32});
  s.Run(1);
  EXPECT_EQ(s.scene.mThreadCount, 16);
}

TEST(Evaluation, ReadsItsSettings) {
  ProbeScene s;
  s.server.Set(1012, Vec3d{1, 2, 3});
  s.server.Set(1014, i32{77});
  s.server.Set(1301, i32{4});
  s.Run(0);
  EXPECT_EQ(s.scene.mGravity, (Vec3d{1, 2, 3}));
  EXPECT_EQ(s.scene.mSeed, 77);
  EXPECT_EQ(s.scene.mRigidSubsteps, 4);
  EXPECT_EQ(s.scene.mDomain.worldCell, (Vec3d{20, 20, 20}));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
