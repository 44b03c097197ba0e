// The lists of a scene, look-ups, and the bounds that lists negotiate.
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

ProbeSetup InList(i32 list, u32 categories = 0, i32 typeId = 0) {
  ProbeSetup setup;
  setup.list = list;
  setup.categories = categories;
  setup.typeId = typeId;
  return setup;
}

TEST(Lists, FollowTheNodeTree) {
  ProbeScene s;
  host::BaseNode& group = s.Add("group", InList(kListForces));
  host::BaseNode& inner = s.Add("inner", InList(kListChannels), &group);
  host::BaseNode& plain = s.document.Create<host::BaseNode>(host::kMeshObject, "plain", &s.server);
  host::BaseNode& below = s.Add("below", InList(kListEmitters), &plain);
  host::BaseNode& off = s.Add("off", InList(kListEmitters));
  off.SetEnabled(false);
  host::BaseNode& elsewhere = s.document.Create<host::BaseNode>(9000, "elsewhere", nullptr);
  elsewhere.AddInstanceOf(host::kServerNode);
  s.scene.Synchronise(&s.document);
  EXPECT_EQ(s.scene.List(kListForces).size(), 1u);
  EXPECT_NE(s.Find(inner), nullptr);
  EXPECT_NE(s.Find(below), nullptr) << "the walk passes through host objects";
  EXPECT_EQ(s.Find(plain), nullptr);
  EXPECT_EQ(s.Find(off), nullptr);
  EXPECT_EQ(s.Find(elsewhere), nullptr);

  Probe* const kept = s.Find(below);
  s.document.Remove(group);
  s.document.Reparent(plain, &elsewhere);
  off.SetEnabled(true);
  s.scene.Synchronise(&s.document);
  EXPECT_EQ(s.scene.List(kListForces).size(), 0u);
  EXPECT_EQ(s.scene.List(kListChannels).size(), 0u) << "children die with their parent";
  EXPECT_EQ(s.Find(below), nullptr) << "it left the server's subtree";
  EXPECT_NE(s.Find(off), nullptr);
  s.document.Reparent(plain, &s.server);
  s.scene.Synchronise(&s.document);
  EXPECT_NE(s.Find(below), nullptr);
  (void)kept;
  s.scene.Clear();
  EXPECT_EQ(s.Find(below), nullptr);
}

TEST(Lists, SwitchedNodesKeepTheirObject) {
  ProbeScene s;
  ProbeSetup setup = InList(kListEmitters);
  setup.stages = {5};
  host::BaseNode& node = s.Add("a", setup);
  s.Run(0);
  Probe* const object = s.Find(node);
  node.SetEnabled(false);
  const i32 reads = object->mReads;
  s.Run(1);
  EXPECT_THAT(s.trace, IsEmpty());
  EXPECT_EQ(object->mReads, reads);
  EXPECT_EQ(s.scene.FindObject(&node, kListAll), nullptr);
  node.SetEnabled(true);
  s.Run(2);
  EXPECT_EQ(s.Find(node), object);
  EXPECT_EQ(object->mReads, reads + 1) << "read before it runs again";
  EXPECT_THAT(s.trace, ElementsAre("5 a"));
}

TEST(Lists, TakeAnObjectOfANodeOnce) {
  ProbeScene s;
  host::BaseNode& node = s.Add("a", InList(77));
  EXPECT_TRUE(s.scene.CreateObject(&node, ProbeScene::kProbeKind));
  EXPECT_EQ(s.scene.List(kListGeometry).size(), 1u) << "an unknown list number means 2";
  EXPECT_FALSE(s.scene.CreateObject(&node, ProbeScene::kProbeKind));
  const auto make = [&](host::BaseNode* of) {
    return std::make_unique<Probe>(of, &s.scene, ProbeSetup{}, s.lines);
  };
  EXPECT_FALSE(s.scene.AddObject(kListGeometry, make(&node)));
  EXPECT_FALSE(s.scene.AddObject(200, make(&s.Add("b", {}))));
  EXPECT_FALSE(s.scene.AddObject(kListGeometry, nullptr));
  EXPECT_TRUE(s.scene.AddObject(9, make(&s.Add("c", {}))));
  EXPECT_EQ(s.scene.List(kListGeometry).size(), 2u);
}

struct LookUpTest : ::testing::Test {
  ProbeScene s;
  host::BaseNode& scalar =
      s.Add("scalar", InList(kListChannels, kCategoryGrid | kCategoryScalar, 49));
  host::BaseNode& vector =
      s.Add("vector", InList(kListChannels, kCategoryGrid | kCategoryVector, 50));
  host::BaseNode& weight = s.Add("weight", InList(kListAuxiliary, kCategoryConstraint, 20));
  host::BaseNode& other = s.Add("other", InList(kListAuxiliary, kCategoryInstant, 20));
  LookUpTest() { s.scene.Synchronise(&s.document); }

  Lines Collect(const host::InExcludeData* list, i32 listIndex, u32 exact, i32 typeId,
                i32 categoryA, bool includeOnly, i32 categoryB = kBitAny) {
    std::vector<iBase*> out;
    s.scene.CollectObjects(list, out, listIndex, exact, typeId, categoryA, includeOnly, categoryB);
    Lines names;
    for (const iBase* object : out) names.push_back(object->mName);
    return names;
  }
};

TEST_F(LookUpTest, FindTestsListCategoriesAndType) {
  Scene& scene = s.scene;
  Probe* const object = s.Find(scalar);
  EXPECT_EQ(scene.FindObject(&scalar, kListChannels), object);
  EXPECT_EQ(scene.FindObject(&scalar, kListAll), object);
  EXPECT_EQ(scene.FindObject(&scalar, kListForces), nullptr);
  EXPECT_EQ(scene.FindObject(&scalar, kListChannels, kBitScalar), object);
  EXPECT_EQ(scene.FindObject(&scalar, kListAll, kBitVector), nullptr);
  EXPECT_EQ(scene.FindObject(&scalar, kListAll, kBitScalar, 6, 49), object);
  EXPECT_EQ(scene.FindObject(&scalar, kListAll, kBitScalar, kBitVector), nullptr);
  EXPECT_EQ(scene.FindObject(&scalar, kListAll, kBitAny, kBitAny, 50), nullptr);
  EXPECT_EQ(scene.FindObject(nullptr, kListAll), nullptr);
  object->SetFlag(FLAG_ENABLED, false);
  EXPECT_EQ(scene.FindObject(&scalar, kListAll), nullptr);
}

TEST_F(LookUpTest, CollectTakesTheNamedTheOthersOrAll) {
  const host::InExcludeData named{{{vector.Id(), 0}, {scalar.Id(), 0}, {vector.Id(), 0}}};
  const host::InExcludeData nothing;
  EXPECT_THAT(Collect(nullptr, kListChannels, kBitAny, kTypeAny, kBitAny, true),
              ElementsAre("scalar", "vector"));
  EXPECT_THAT(Collect(nullptr, kListAll, kBitAny, kTypeAny, kBitAny, true),
              ElementsAre("scalar", "vector", "weight", "other"));
  EXPECT_THAT(Collect(&named, kListAll, kBitAny, kTypeAny, kBitAny, true),
              ElementsAre("vector", "scalar"))
      << "in the user's order, each once";
  EXPECT_THAT(Collect(&named, kListAll, kBitAny, kTypeAny, kBitAny, false),
              ElementsAre("weight", "other"));
  EXPECT_THAT(Collect(&nothing, kListAuxiliary, kBitAny, kTypeAny, kBitAny, true), IsEmpty());
  EXPECT_THAT(Collect(&nothing, kListAuxiliary, kBitAny, kTypeAny, kBitAny, false),
              ElementsAre("weight", "other"));
}

TEST_F(LookUpTest, CollectTestsCategoriesAndTypes) {
  EXPECT_THAT(Collect(nullptr, kListAll, kCategoryConstraint, kTypeAny, kBitAny, true),
              ElementsAre("weight"))
      << "the mask itself";
  EXPECT_THAT(Collect(nullptr, kListAll, 0x40, kTypeAny, kBitAny, true), IsEmpty());
  EXPECT_THAT(Collect(nullptr, kListAll, 0, kTypeAny, 6, true), ElementsAre("scalar", "vector"));
  EXPECT_THAT(Collect(nullptr, kListAll, 0, kTypeAny, 6, true, kBitVector), ElementsAre("vector"));
  EXPECT_THAT(Collect(nullptr, kListAll, kBitAny, 20, kBitAny, true),
              ElementsAre("weight", "other"));
  s.Find(vector)->SetFlag(FLAG_ENABLED, false);
  EXPECT_THAT(Collect(nullptr, kListChannels, kBitAny, kTypeAny, kBitAny, true),
              ElementsAre("scalar"));
}

struct BoundsTest : ::testing::Test {
  ProbeScene s;
  host::BaseNode& channel = s.Add("channel", InList(kListChannels));
  host::BaseNode& emitter = s.Add("emitter", InList(kListEmitters));

  void Start() {
    s.Run(0);
    Probe& e = s.Get(emitter);
    e.mHasBox = true;
    e.mBoxMin = {0, 0, 0};
    e.mBoxMax = {1, 2, 3};
    Probe& c = s.Get(channel);
    c.mHasBox = true;
    c.mBoxMin = {-1, 1, 1};
    c.mBoxMax = {0, 5, 1};
  }
};

TEST_F(BoundsTest, ContentGoesThroughTheSolversToTheChannels) {
  host::BaseNode& solver = s.Add("solver", InList(kListSolvers, 0, kTypeFluidSolver));
  Start();
  s.Run(1);
  EXPECT_THAT(s.lines, ElementsAre("bounds solver", "bounds channel", "bounds emitter",
                                   "range channel", "range solver"));
  EXPECT_EQ(s.Get(solver).mGotMin, (Vec3d{-1, 0, 0}));
  EXPECT_EQ(s.Get(solver).mGotMax, (Vec3d{1, 5, 3}));
  EXPECT_EQ(s.Get(channel).mGotMax, (Vec3d{1, 5, 3}));
  s.Get(channel).SetFlag(FLAG_AFFECTS_BOUNDS, false);
  s.Run(2);
  EXPECT_EQ(s.Get(solver).mGotMax, (Vec3d{1, 2, 3}));
}

TEST_F(BoundsTest, AnInactiveSolverLeavesTheChannels) {
  host::BaseNode& solver = s.Add("solver", InList(kListSolvers, 0, kTypeFluidSolver));
  Start();
  s.Get(solver).mSetup.active = false;
  s.Run(1);
  EXPECT_THAT(s.lines, ElementsAre("bounds solver"));
}

TEST_F(BoundsTest, ASleepingSolverDoesNotSilenceAnother) {
  s.Add("first", InList(kListSolvers, 0, kTypeFluidSolver));
  host::BaseNode& last = s.Add("last", InList(kListSolvers, 0, kTypeFluidSolver));
  Start();
  s.Get(last).mSetup.active = false;
  s.Run(1);
  s.Run(2);
  EXPECT_THAT(s.lines, ElementsAre("bounds first", "bounds last", "bounds channel",
                                   "bounds emitter", "range channel", "range first", "range last"));
}

TEST_F(BoundsTest, WithoutASolverChannelsFitButNothingFinishes) {
  s.Add("liquid", InList(kListSolvers, 0, 44));
  Start();
  s.Run(1);
  EXPECT_THAT(s.lines, ElementsAre("bounds channel", "bounds emitter"))
      << "a solver without a box of its own is no grid solver";
  EXPECT_GT(s.Get(channel).mCommits, 0) << "but the step is committed";
}

TEST_F(BoundsTest, NoContentReleasesChannelsAndSolvers) {
  host::BaseNode& solver = s.Add("solver", InList(kListSolvers, 0, kTypeFluidSolver));
  Start();
  s.Get(emitter).mHasBox = s.Get(channel).mHasBox = false;
  s.Run(1);
  EXPECT_THAT(s.lines, ElementsAre("release channel", "release solver"));
  EXPECT_TRUE(s.scene.mFlags & Scene::kNoBounds);
  EXPECT_FALSE(s.Get(solver).Has(FLAG_ACTIVE));
  s.Get(emitter).mHasBox = true;
  s.Get(emitter).mBoxMax.y = -1;
  s.Run(2);
  EXPECT_THAT(s.lines, Contains("release channel")) << "a reversed box is no box";
  s.Get(emitter).mBoxMax.y = 1;
  s.Run(3);
  EXPECT_FALSE(s.scene.mFlags & Scene::kNoBounds);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
