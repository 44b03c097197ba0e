#include "framework/interface_handler.h"

#include <gtest/gtest.h>

#include <limits>

#include "framework/graph.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using namespace host;

const ParameterTable& Rows() {
  static const ParameterTable table = {
      RealRow(1, "real", 2.5, "", "a real").Missing(7.5),
      LongRow(2, "long", 3, "", "a long"),
      BoolRow(3, "bool", true, "a bool"),
      VectorRow(4, "vector", {1, 2, 3}, "", "a vector"),
  };
  return table;
}

struct HandlerTest : ::testing::Test {
  Document document;
  BaseNode& node = document.Create<BaseNode>(42, "node", nullptr);
  InterfaceHandler handler{&node};
};

TEST(Handler, UnboundGivesDefaultsAndStoresNothing) {
  InterfaceHandler h;
  Vec3d v;
  h.GetVector(v, 1, {4, 5, 6});
  EXPECT_EQ(v, (Vec3d{4, 5, 6}));
  EXPECT_EQ(h.GetReal(1, 1.5), 1.5);
  EXPECT_EQ(h.GetLong(1, 9), 9);
  EXPECT_TRUE(h.GetBool(1, true));
  EXPECT_STREQ(h.GetString(1, "none"), "none");
  EXPECT_EQ(h.GetObjectLink(1), nullptr);
  EXPECT_EQ(h.GetInExclude(1), nullptr);
  EXPECT_EQ(h.GetFilename(1), "");
  EXPECT_EQ(h.EvaluateSpline(1, 0.5), 0);
  EXPECT_FALSE(h.HasNode());
  EXPECT_FALSE(h.IsNodeAlive(0, nullptr));
  u32 count;
  EXPECT_FALSE(h.GetDirtyCount(count));
  h.SetReal(1, 3);
  h.SetDirty();
  EXPECT_EQ(h.GetReal(1), 0);
}

TEST_F(HandlerTest, ConvertsBetweenNumbers) {
  node.Set(1, i32{2150});
  EXPECT_EQ(handler.GetReal(1, 0), 2150);
  EXPECT_EQ(handler.GetFloat32(1, 0), 2150.0f);
  node.Set(2, 7.9);
  EXPECT_EQ(handler.GetLong(2, 0), 7);
  node.Set(2, -7.9);
  EXPECT_EQ(handler.GetInt(2, 0), -7);
  node.Set(3, i32{2});
  EXPECT_FALSE(handler.GetBool(3, true)) << "only exactly 1 is true";
  handler.SetBool(3, true);
  EXPECT_TRUE(handler.GetBool(3, false));
  node.Set(4, Vec3d{1.9, -1.9, 1e300});
  VecInt3D v;
  handler.GetVectorInt(v, 4, {});
  EXPECT_EQ(v, (VecInt3D{1, -1, 2147483647}));
  node.Set(5, std::string("text"));
  EXPECT_EQ(handler.GetReal(5, 4.5), 4.5) << "a value of another kind counts as missing";
  for (const double wild : {std::nan(""), 1e300, -1e300}) {
    node.Set(6, wild);
    const i32 expected = wild > 0 ? 2147483647 : wild < 0 ? -2147483647 : 0;
    EXPECT_EQ(handler.GetLong(6, 1), expected);
  }
}

TEST_F(HandlerTest, MissingValuesComeFromTheRow) {
  node.SetTable(&Rows());
  EXPECT_EQ(handler.GetReal(1), 2.5);
  EXPECT_EQ(handler.GetLong(2), 3);
  for (const i32 id : {1, 2, 3, 4}) node.Erase(id);
  EXPECT_EQ(handler.GetReal(1), 7.5);
  EXPECT_EQ(handler.GetLong(2), 3);
  EXPECT_TRUE(handler.GetBool(3));
  EXPECT_EQ(handler.GetVector(4), (Vec3d{1, 2, 3}));
  EXPECT_EQ(handler.GetReal(99), 0) << "no row";
}

TEST_F(HandlerTest, SettersRaiseTheDirtyCountOnAChange) {
  u32 before, after;
  handler.SetReal(1, 2);
  ASSERT_TRUE(handler.GetDirtyCount(before));
  handler.SetReal(1, 2);
  ASSERT_TRUE(handler.GetDirtyCount(after));
  EXPECT_EQ(after, before);
  handler.SetReal(1, 3);
  ASSERT_TRUE(handler.GetDirtyCount(after));
  EXPECT_GT(after, before);
  handler.SetDirty();
  ASSERT_TRUE(handler.GetDirtyCount(before));
  EXPECT_GT(before, after);
}

TEST_F(HandlerTest, LinksNeverDangle) {
  BaseNode& target = document.Create<BaseNode>(43, "target", nullptr);
  Document other;
  handler.SetLink(1, &target);
  EXPECT_EQ(handler.GetObjectLink(1), &target);
  EXPECT_EQ(handler.GetLink(1, &document), &target);
  EXPECT_EQ(handler.GetLink(1, &other), nullptr);
  document.Remove(target);
  EXPECT_EQ(handler.GetLink(1), nullptr);
  handler.SetLink(1, nullptr);
  EXPECT_EQ(handler.GetLink(1), nullptr);
}

TEST_F(HandlerTest, CopiesHoldTheirOwnLink) {
  InterfaceHandler assigned;
  {
    const InterfaceHandler copy(handler);
    EXPECT_TRUE(copy.IsNodeAlive(42, &document));
    assigned = copy;
  }
  EXPECT_TRUE(handler.IsNodeAlive(0, nullptr));
  EXPECT_TRUE(assigned.IsNodeAlive(0, nullptr));
  BaseNode& second = document.Create<BaseNode>(44, "second", nullptr);
  assigned.Bind(&second);
  EXPECT_TRUE(assigned.IsNodeAlive(44, nullptr));
  document.Remove(node);
  EXPECT_FALSE(handler.IsNodeAlive(0, nullptr));
  EXPECT_TRUE(assigned.IsNodeAlive(0, nullptr));
}

TEST_F(HandlerTest, StoresTheStructuredKinds) {
  SplineData curve;
  curve.knots = {{0, 1}, {1, 3}};
  node.Set(1, curve);
  EXPECT_EQ(handler.EvaluateSpline(1, 0.25), 1.5);
  node.Set(2, InExcludeData{{{node.Id(), 2}}});
  ASSERT_NE(handler.GetInExclude(2), nullptr);
  EXPECT_EQ(handler.GetInExclude(2)->entries[0].flags, 2u);
  handler.SetFilename(3, "a/b.obj");
  EXPECT_EQ(handler.GetFilename(3), "a/b.obj");
  node.Set(4, Gradient{});
  EXPECT_NE(handler.GetGradient(4), nullptr);
  EXPECT_EQ(handler.GetGradient(1), nullptr);
}

TEST(Graph, EditsTheKnotsOfItsCurve) {
  SplineData curve;
  iGraphHost graph(&curve);
  EXPECT_EQ(graph.Evaluate(0.5f), 0);
  graph.InsertKnot(1, 4);
  EXPECT_EQ(graph.InsertKnot(0, 2), 0);
  EXPECT_EQ(graph.GetKnotCount(), 2);
  EXPECT_EQ(graph.Evaluate(0.5f), 3);
  EXPECT_FALSE(graph.RemoveKnot(2));
  EXPECT_TRUE(graph.RemoveKnot(0));
  EXPECT_EQ(graph.Evaluate(0.5f), 4);
  graph.ClearKnots();
  EXPECT_EQ(graph.GetKnotCount(), 0);
  iGraphHost none;
  EXPECT_EQ(none.Evaluate(0.5f), 0);
  EXPECT_EQ(none.InsertKnot(0, 0), -1);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
