// Who runs in a stage, in which order and how.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/probe.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

ProbeSetup In(std::vector<i32> stages, i32 priority = 0, i32 list = kListOperators) {
  ProbeSetup setup;
  setup.stages = std::move(stages);
  setup.priority = priority;
  setup.list = list;
  return setup;
}

ProbeSetup Kind(bool sequential, bool iterative) {
  ProbeSetup setup = In({kOperators});
  setup.sequential = sequential;
  setup.iterative = iterative;
  return setup;
}

/// The lines of the second frame, without its resets.
Lines LinesOf(ProbeScene& s) {
  s.Run(0);
  s.Run(1);
  std::erase_if(s.lines, [](const std::string& line) { return line.starts_with("reset"); });
  return s.lines;
}

TEST(Stages, TableStandsInOrder) {
  for (i32 i = 0; i < kStageCount; ++i) EXPECT_EQ(kPipeline[i].number, i);
}

TEST(Stages, RunInTheOrderOfTheirNumbers) {
  ProbeScene s;
  std::vector<i32> all;
  for (i32 stage = 0; stage < kStageCount; ++stage) all.push_back(stage);
  s.Add("a", In(all));
  s.Run(0);
  Lines expected;
  // Stage 4 negotiates, 16 finishes: no object runs there, nor in the ends of a phase.
  for (const i32 stage : {3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 19, 20, 21, 22})
    expected.push_back(std::to_string(stage) + " a");
  EXPECT_THAT(s.trace, ElementsAreArray(expected));
}

TEST(Stages, PrioritiesComeBeforeListOrder) {
  ProbeScene s;
  s.Add("late", In({5}, 10));
  s.Add("emitter", In({5}, 5, kListEmitters));
  s.Add("operator", In({5}, 5));
  s.Add("force", In({5}, 5, kListForces));
  s.Add("auxiliary", In({5}, 0, kListAuxiliary));
  s.Add("channel", In({5}, 5, kListChannels));
  host::BaseNode& moved = s.Add("moved", In({5}, 30));
  moved.Set(10002, i32{-29});
  s.Run(0);
  EXPECT_THAT(s.trace,
              ElementsAre("5 moved", "5 channel", "5 emitter", "5 operator", "5 force", "5 late"))
      << "lists 10 and 11 never run";
}

TEST(Stages, TheUserMovesANodeToAnotherStage) {
  ProbeScene s;
  host::BaseNode& node = s.Add("a", In({5, 9}, 30));
  s.Add("b", In({12}, 4));
  node.Set(10001, i32{12});
  node.Set(10002, i32{3});
  s.Run(0);
  EXPECT_THAT(s.trace, ElementsAre("12 a", "12 b"));
  node.Set(10002, i32{0});
  s.Run(1);
  EXPECT_THAT(s.trace, ElementsAre("12 b", "12 a")) << "the place of its kind, 30, goes with it";
}

TEST(Kinds, SequentialOnceRunsOneAfterTheOther) {
  ProbeScene s;
  s.Add("a", Kind(true, false));
  s.Add("b", Kind(true, false)).Set(10003, i32{0});
  EXPECT_THAT(LinesOf(s), ElementsAre("prepare a", "begin a", "evaluate a", "finish a", "prepare b",
                                      "begin b", "evaluate b", "finish b"));
}

TEST(Kinds, ParallelOnceSharesARunInAGroup) {
  ProbeScene s;
  host::SetThreadCount(3);
  const host::BaseNode& a = s.Add("a", Kind(false, false));
  s.Add("b", Kind(false, false)).Set(10003, i32{0});
  s.Add("c", Kind(false, false));
  EXPECT_THAT(LinesOf(s), ElementsAre("prepare a", "begin a", "prepare b", "begin b", "evaluate a",
                                      "evaluate b", "finish a", "finish b", "prepare c", "begin c",
                                      "evaluate c", "finish c"))
      << "c opens a group of its own";
  for (const i32 seen : s.Get(a).mSeen)
    EXPECT_EQ(seen, 2 * kShares) << "as many workers on every machine";
}

TEST(Kinds, IterativeOnesRunOnceEachAndKnowTheirGroup) {
  for (const bool sequential : {false, true}) {
    ProbeScene s;
    host::SetThreadCount(3);
    const host::BaseNode& a = s.Add("a", Kind(sequential, true));
    const host::BaseNode& b = s.Add("b", Kind(sequential, true));
    EXPECT_THAT(LinesOf(s), ElementsAre("prepare a", "begin a", "evaluate a", "finish a",
                                        "prepare b", "begin b", "evaluate b", "finish b"));
    EXPECT_EQ(s.Get(a).mGroupSize, 2u) << "they open no groups";
    EXPECT_EQ(s.Get(b).mGroupSize, 2u);
    EXPECT_EQ(s.Get(a).mSeen[0], 2) << "the whole, in both frames";
    EXPECT_EQ(s.Get(a).mSeen[1], 0);
  }
}

TEST(Kinds, AnotherKindOpensAGroup) {
  ProbeScene s;
  s.Add("a", Kind(false, false));
  s.Add("b", Kind(true, false)).Set(10003, i32{0});
  s.Add("c", Kind(false, false)).Set(10003, i32{0});
  EXPECT_THAT(LinesOf(s), ElementsAre("prepare a", "begin a", "evaluate a", "finish a", "prepare b",
                                      "begin b", "evaluate b", "finish b", "prepare c", "begin c",
                                      "evaluate c", "finish c"));
}

TEST(Stages, CleanObjectsDropOut) {
  ProbeScene s;
  ProbeSetup still = In({5});
  still.timeDirty = false;
  host::BaseNode& node = s.Add("still", still);
  s.Add("moving", In({5}));
  s.Run(0);
  s.Run(1);
  EXPECT_THAT(s.trace, ElementsAre("5 moving"));
  node.Set(1000, 1.0);
  s.Run(2);
  EXPECT_THAT(s.trace, ElementsAre("5 still", "5 moving"));
}

TEST(Stages, WhatARunMakesDirtyWaitsForItsNextStage) {
  ProbeScene s;
  host::BaseNode& first = s.Add("first", In({5}));
  ProbeSetup still = In({5, 6});
  still.timeDirty = false;
  host::BaseNode& second = s.Add("second", still);
  s.Run(0);
  s.Get(first).mOnPrepare = [&](Probe&) { s.Get(second).MarkDirty(false); };
  s.Run(1);
  EXPECT_THAT(s.trace, ElementsAre("5 first", "6 second"));
}

TEST(Stages, InactiveAndDisabledObjectsLeaveNoTrace) {
  ProbeScene s;
  ProbeSetup idle = In({5});
  idle.active = false;
  const host::BaseNode& node = s.Add("idle", idle);
  s.Add("off", In({5})).SetEnabled(false);
  s.Run(0);
  EXPECT_THAT(s.trace, IsEmpty());
  EXPECT_EQ(s.Get(node).mRuns, 0u);
  EXPECT_THAT(s.lines, ::testing::Contains("finish idle")) << "Finish comes all the same";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
