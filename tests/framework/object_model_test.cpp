#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "framework/constraint.h"
#include "framework/duration.h"
#include "framework/graph.h"
#include "framework/memory_archive.h"
#include "framework/probe.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using namespace testing;

TEST(Object, DirtIsSeenOncePerPhaseAndOncePerChange) {
  ProbeScene s;
  host::BaseNode& node = s.Add("a", {});
  iObject object(&node, &s.scene);
  const auto look = [&] {
    object.ClearLinks();
    object.CheckDirty();
    return object.IsDirty();
  };
  EXPECT_TRUE(look());
  EXPECT_FALSE(look());
  node.Set(1000, 2.0);
  object.CheckDirty();
  EXPECT_FALSE(object.IsDirty()) << "checked in this phase already";
  EXPECT_TRUE(look());
  EXPECT_FALSE(look());
  object.MarkDirty(true);
  EXPECT_TRUE(object.Has(FLAG_DIRTY_HARD));
  EXPECT_TRUE(look()) << "the next look sees a change as well";
  EXPECT_FALSE(look());
  EXPECT_FALSE(object.Has(FLAG_DIRTY_HARD));
}

TEST(Object, NodesThatAreGoneDisable) {
  ProbeScene s;
  host::BaseNode& node = s.Add("a", {});
  iObject object(&node, &s.scene);
  EXPECT_TRUE(object.IsNodeAlive(0, nullptr));
  EXPECT_TRUE(object.IsNodeAlive(host::kServerNode, &s.document));
  EXPECT_FALSE(object.IsNodeAlive(1234, nullptr));
  s.document.Remove(node);
  object.CheckDirty();
  EXPECT_FALSE(object.Has(FLAG_ENABLED));
  EXPECT_FALSE(object.IsDirty());
  EXPECT_FALSE(object.IsNodeAlive(0, nullptr));
}

TEST(Object, UnboundObjectsDoNothing) {
  iObject object;
  EXPECT_FALSE(object.ReadParameters());
  EXPECT_FALSE(object.ResolveLinks());
  object.CheckDirty();
  EXPECT_FALSE(object.IsDirty());
  EXPECT_FALSE(object.HasCategory(kBitAny));
}

TEST(Object, UserMovesStageAndPriority) {
  ProbeScene s;
  ProbeSetup setup;
  setup.stages = {5, 9};
  setup.priority = 20;
  host::BaseNode& node = s.Add("a", setup);
  Probe probe(&node, &s.scene, setup, s.lines);
  node.Set(10001, i32{0});
  node.Set(10002, i32{3});
  for (int i = 0; i < 3; ++i) probe.ReadParameters();
  EXPECT_EQ(probe.mPriority, 23) << "reading again adds nothing";
  EXPECT_EQ(probe.mStageMask, StageBit(5) | StageBit(9));
  EXPECT_TRUE(probe.Has(FLAG_GROUP_BREAK));
  node.Set(10001, i32{12});
  node.Set(10003, i32{0});
  probe.ReadParameters();
  EXPECT_EQ(probe.mPriority, 3);
  EXPECT_EQ(probe.mStageMask, StageBit(12));
  EXPECT_FALSE(probe.Has(FLAG_GROUP_BREAK));
  node.Set(10002, i32{0});
  probe.ReadParameters();
  EXPECT_EQ(probe.mPriority, 20) << "the place of its kind goes with it";
}

struct DurationTest : ::testing::Test {
  ProbeScene s;
  host::BaseNode& node = s.document.Create<host::BaseNode>(1028240, "d", &s.server);
  Duration duration{&node, &s.scene};
  void Read() {
    node.SetTable(&Duration::Parameters());
    duration.ReadParameters();
  }
};

TEST_F(DurationTest, WithoutLengthStaysOpen) {
  Read();
  duration.start = 2;
  double weight = 0.3;
  EXPECT_FALSE(duration.IsActive(1.99));
  EXPECT_TRUE(duration.Weight(2, weight));
  EXPECT_TRUE(duration.Weight(1e9, weight));
  EXPECT_EQ(weight, 0.3) << "the weight stays the caller's";
}

TEST_F(DurationTest, RepeatsWithPauses) {
  node.SetTable(&Duration::Parameters());
  node.Set(1000, 1.0);
  node.Set(1003, 1.0);
  node.Set(1002, i32{1});
  duration.ReadParameters();
  for (const double t : {0.0, 0.999, 2.0, 2.5}) EXPECT_TRUE(duration.IsActive(t)) << t;
  for (const double t : {-0.1, 1.0, 1.5, 3.0, 4.5}) EXPECT_FALSE(duration.IsActive(t)) << t;
  double weight = 1;
  EXPECT_TRUE(duration.Weight(2.25, weight));
  EXPECT_DOUBLE_EQ(weight, 0.75) << "fades out over the window";
  host::SplineData curve;
  curve.knots = {{0, 0}, {1, 8}};
  node.Set(1004, curve);
  duration.ReadParameters();
  EXPECT_TRUE(duration.Weight(2.25, weight));
  EXPECT_DOUBLE_EQ(weight, 2);
  EXPECT_FALSE(duration.Weight(1.5, weight));
  EXPECT_DOUBLE_EQ(weight, 2);
}

TEST_F(DurationTest, GivesAsMuchInStepsOfAnyLength) {
  Read();
  duration.start = 0.03;
  duration.length = 0.05;
  duration.pause = 0.02;
  const auto given = [&](double step) {
    double sum = 0;
    for (i32 i = 0; i * step < 0.5; ++i)
      if (double weight = 1; duration.MeanWeight(i * step, step, weight)) sum += weight * step;
    return sum;
  };
  host::SplineData flat, peak;
  flat.knots = {{0, 1}, {1, 1}};
  peak.knots = {{0, 0}, {0.3, 2}, {1, 0.5}};
  for (const i32 repeats : {0, 2}) {
    duration.repeats = repeats;
    duration.spline = &flat;
    for (const double step : {0.1, 0.04, 0.04 / 3, 0.0037})
      EXPECT_NEAR(given(step), 0.05 * (repeats + 1), 1e-9) << step;
    for (const bool hasCurve : {false, true}) {
      duration.spline = hasCurve ? &peak : nullptr;
      const double fine = given(0.0007);
      for (const double step : {0.1, 0.04, 0.04 / 3}) EXPECT_NEAR(given(step), fine, 1e-9) << step;
    }
  }
  // Inside of the window it is what it was, to the bit, and a step that ends with it has all of it.
  duration.spline = &flat;
  double weight = 0;
  EXPECT_TRUE(duration.MeanWeight(0.03 + 1e-12, 0.01 + 0.04, weight));
  EXPECT_EQ(weight, 1);
  EXPECT_FALSE(duration.MeanWeight(0.03 - 0.01, 0.01 + 1e-12, weight));
  // More windows than there is time for are an even flow.
  duration.length = duration.pause = 1e-9;
  duration.repeats = 2000000000;
  EXPECT_TRUE(duration.MeanWeight(1, 0.04, weight));
  EXPECT_NEAR(weight, 0.5, 1e-6);
}

TEST_F(DurationTest, CountsFramesOnRequest) {
  Read();
  node.Set(1008, i32{1});
  node.Set(1005, i32{50});
  node.Set(1006, i32{25});
  node.Set(1007, i32{5});
  for (const double fps : {25.0, 29.97, 0.5}) {
    s.scene.mClock.frameTime = 1 / fps;
    duration.ReadParameters();
    EXPECT_DOUBLE_EQ(duration.length, 50 / fps);
    EXPECT_DOUBLE_EQ(duration.start, 25 / fps);
    EXPECT_DOUBLE_EQ(duration.pause, 5 / fps);
  }
}

TEST_F(DurationTest, OpensAtItsFrameAtEveryRate) {
  for (const double fps : {23.976, 24.0, 25.0, 29.97, 30.0, 50.0, 60.0})
    for (const i32 substeps : {1, 3}) {
      ProbeScene run;
      run.document.fps = fps;
      run.server.Set(1003, i32{1});
      run.server.Set(1005, substeps - 1);
      ProbeSetup setup;
      setup.stages = {kEmitters};
      const host::BaseNode& emitter = run.Add("emitter", setup);
      run.Run(0);
      Duration window(&node, &run.scene);
      node.SetTable(&Duration::Parameters());
      node.Set(1008, i32{1});
      node.Set(1005, i32{2});
      node.Set(1006, i32{7});
      window.ReadParameters();
      i32 open = 0;
      run.Get(emitter).mOnPrepare = [&](Probe& p) { open += window.IsActive(p.mTime->elapsed); };
      for (i32 frame = 1; frame <= 12; ++frame) {
        open = 0;
        run.Run(frame);
        EXPECT_EQ(open, frame == 8 || frame == 9 ? substeps : 0)
            << "frame " << frame << " moves from " << frame - 1 << " on, fps " << fps;
      }
    }
}

/// How often a holder asked, over all steps.
struct AskCount : ConstraintState {
  void Persist(StateArchive& archive) override { archive(tests); }
  i32 tests = 0;
};

/// Weighs by half and one more for each test before that of the holder.
class Halver : public Constraint {
 public:
  using Constraint::Constraint;
  std::unique_ptr<ConstraintState> MakeState() const override {
    return std::make_unique<AskCount>();
  }
  bool Test(const Vec3d& position, double& weight, const ConstraintUse& use) override {
    weight *= 0.5 + static_cast<AskCount*>(use.state)->tests++;
    return position.x >= 0;
  }
};

class Holder : public iObject {
 public:
  using iObject::iObject;
  ConstraintList* Constraints() override { return &mConstraints; }
  ConstraintList mConstraints;
};

TEST(ConstraintList, KeepsAStateForEachHolderAndOverSteps) {
  host::Document document;
  host::BaseNode& server = document.Create<host::BaseNode>(host::kServerNode, "s", nullptr);
  server.SetTable(&SulvaScene::Parameters());
  SulvaScene scene(&server, [](i32, host::BaseNode* node, Scene* owner) {
    return std::make_unique<Halver>(node, owner);
  });
  const auto add = [&](const char* name) -> host::BaseNode& {
    host::BaseNode& node = document.Create<host::BaseNode>(9000, name, &server);
    node.AddInstanceOf(host::kServerNode);
    return node;
  };
  host::BaseNode& a = add("a");
  host::BaseNode& holderNode = document.Create<host::BaseNode>(1, "holder", nullptr);
  scene.Synchronise(&document);

  holderNode.SetTable(&iBase::CommonParameters());
  Holder holder(&holderNode, &scene), other(&holderNode, &scene);
  ConstraintList &first = holder.mConstraints, &second = other.mConstraints;
  ASSERT_TRUE(holder.ResolveLinks());
  EXPECT_TRUE(first.IsEmpty()) << "without a list no constraint applies";
  holderNode.Set(2502, host::InExcludeData{{{a.Id(), 0}, {a.Id(), 0}}});
  ASSERT_TRUE(holder.ResolveLinks() && other.ResolveLinks());
  first.Prepare(&holder);
  second.Prepare(&holder);
  double w = 8;
  EXPECT_TRUE(first.Test({}, w, &holder, 0));
  EXPECT_EQ(w, 4) << "named twice, asked once";
  EXPECT_TRUE(first.Test({}, w, &holder, 0));
  EXPECT_EQ(w, 6);
  EXPECT_TRUE(second.Test({}, w, &holder, 0));
  EXPECT_EQ(w, 3);
  EXPECT_FALSE(second.Test({-1, 0, 0}, w, &holder, 0));
  w = 0;
  EXPECT_FALSE(second.Test({}, w, &holder, 0)) << "nothing is left";
  first.Finish(&holder);
  holder.ClearLinks();
  EXPECT_TRUE(first.IsEmpty());

  // Between two steps no link stands; a state outlives that, and a stop with its resume.
  MemoryArchive archive;
  holder.Persist(archive);
  archive.Rewind();
  Holder resumed(&holderNode, &scene);
  resumed.Persist(archive);
  EXPECT_TRUE(archive.IsGood()) << archive.Problem();
  for (Holder* each : {&holder, &resumed}) {
    ASSERT_TRUE(each->ResolveLinks());
    w = 8;
    EXPECT_TRUE(each->mConstraints.Test({}, w, each, 0));
    EXPECT_EQ(w, 20) << "the third test of this holder";
  }
  first.Reset();
  w = 8;
  EXPECT_TRUE(first.Test({}, w, &holder, 0));
  EXPECT_EQ(w, 4) << "as at the start of a simulation";
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
