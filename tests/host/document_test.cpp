#include "host/document.h"

#include <gtest/gtest.h>

namespace MELDO_GLOBAL::host {
namespace {

TEST(Document, IdsRiseAndPathsFindTheFirstNodeInCreationOrder) {
  Document document;
  BaseNode& server = document.Create<>(kServerNode, "server", nullptr);
  BaseNode& second = document.Create<>(kServerNode, "second", nullptr);
  BaseNode& deep = document.Create<>(5, "smoke", &second);
  BaseNode& early = document.Create<>(5, "smoke", &server);
  EXPECT_LT(server.Id(), second.Id());
  EXPECT_LT(deep.Id(), early.Id());
  EXPECT_EQ(document.FindByName("smoke"), &deep);
  EXPECT_EQ(document.FindByName("server/smoke"), &early);
  EXPECT_EQ(document.FindByName("second/smoke"), &deep);
  for (const char* wrong : {"smok", "oke", "server/", "/smoke", "rver/smoke", "other/smoke", ""})
    EXPECT_EQ(document.FindByName(wrong), nullptr) << wrong;
  const NodeId gone = early.Id();
  document.Remove(server);
  EXPECT_EQ(document.Find(gone), nullptr);
  EXPECT_GT(document.Create<>(5, "new", nullptr).Id(), gone);
  EXPECT_EQ(document.Roots().size(), 2u);
}

TEST(Document, TreeKeepsOrderMatricesAndEnabledState) {
  Document document;
  BaseNode& root = document.Create<>(1, "root", nullptr);
  BaseNode& child = document.Create<>(1, "child", &root);
  BaseNode& leaf = document.Create<>(1, "leaf", &child);
  BaseNode& other = document.Create<>(1, "other", &root);
  EXPECT_EQ(root.Children(), (std::vector<BaseNode*>{&child, &other}));
  root.SetPlacement({10, 0, 0}, {0, 0, 90}, {2, 2, 2});
  child.SetPlacement({1, 0, 0}, {}, {1, 1, 1});
  const Vec3d p = leaf.GlobalMatrix() * Vec3d{1, 0, 0};
  EXPECT_NEAR(p.x, 10, 1e-12);
  EXPECT_NEAR(p.y, 4, 1e-12);

  EXPECT_TRUE(leaf.IsEnabled());
  child.SetEnabled(false);
  EXPECT_FALSE(leaf.IsEnabled());
  EXPECT_TRUE(other.IsEnabled());
  document.Reparent(leaf, &other);
  EXPECT_TRUE(leaf.IsEnabled());
  EXPECT_TRUE(leaf.HasAncestor(&root));
  EXPECT_FALSE(leaf.HasAncestor(&child));
  document.Reparent(root, &leaf);  // would be a cycle
  EXPECT_EQ(root.Parent(), nullptr);
  EXPECT_EQ(document.Roots(), std::vector<BaseNode*>{&root});
}

TEST(Document, LinksResolveByKindAndDocumentAndNeverDangle) {
  BaseLink link, survivor;
  EXPECT_EQ(link.Resolve(), nullptr);
  EXPECT_EQ(BaseLink(nullptr).Resolve(), nullptr);
  Document other;
  {
    Document document;
    BaseNode& node = document.Create<>(7, "node", nullptr);
    node.AddInstanceOf(70);
    BaseNode& kept = document.Create<>(7, "kept", nullptr);
    link = BaseLink(&node);
    survivor = BaseLink(&kept);
    const BaseLink copy = link;
    EXPECT_EQ(link.Resolve(), &node);
    EXPECT_EQ(link.Resolve(7), &node);
    EXPECT_EQ(link.Resolve(70, &document), &node);
    EXPECT_EQ(link.Resolve(8), nullptr);
    EXPECT_EQ(link.Resolve(0, &other), nullptr);
    document.Remove(node);
    EXPECT_EQ(link.Resolve(), nullptr);
    EXPECT_EQ(copy.Resolve(), nullptr);
    EXPECT_EQ(survivor.Resolve(), &kept);
  }
  EXPECT_EQ(survivor.Resolve(), nullptr);
}

TEST(BaseNode, DirtyCountRisesWithChangesOnly) {
  Document document;
  BaseNode& node = document.Create<>(1, "node", nullptr);
  u32 last = node.DirtyCount();
  const auto rose = [&] { return node.DirtyCount() != std::exchange(last, node.DirtyCount()); };
  node.Set(1000, 2.5);
  EXPECT_TRUE(rose());
  node.Set(1000, 2.5);
  EXPECT_FALSE(rose());
  node.Set(1000, i32{2});
  EXPECT_TRUE(rose());
  node.Erase(1000);
  EXPECT_TRUE(rose());
  node.Erase(1000);
  EXPECT_FALSE(rose());
  node.SetPlacement({1, 2, 3}, {}, {1, 1, 1});
  EXPECT_TRUE(rose());
  node.SetPlacement({1, 2, 3}, {}, {1, 1, 1});
  EXPECT_FALSE(rose());
  BaseNode& tag = node.AddTag(kObstacleTag);
  EXPECT_TRUE(rose());
  EXPECT_EQ(&node.AddTag(kObstacleTag), &tag);
  EXPECT_FALSE(rose());
  EXPECT_GT(tag.Id(), node.Id());
  node.RemoveTag(kObstacleTag);
  EXPECT_TRUE(rose());
  EXPECT_EQ(node.Tag(kObstacleTag), nullptr);
}

TEST(BaseNode, TableStoresItsDefaultsButNotAbsentOnes) {
  const ParameterTable table{RealRow(1, "size", 2.5, "host", "size"),
                             BoolRow(2, "on", true, "switch"), AbsentLinksRow(3, "links", "", {}),
                             LinksRow(4, "empty_links", "", {})};
  Document document;
  BaseNode& node = document.Create<>(1, "node", nullptr);
  node.SetTable(&table);
  ASSERT_NE(node.Get(1), nullptr);
  EXPECT_EQ(*node.Get(1), Value(2.5));
  EXPECT_EQ(*node.Get(2), Value(i32{1}));
  EXPECT_EQ(node.Get(3), nullptr);
  EXPECT_NE(node.Get(4), nullptr);
}

TEST(Document, FramesAnimateParametersPlacementAndTags) {
  Document document;
  document.fps = 50;
  BaseNode& node = document.Create<>(1, "node", nullptr);
  node.SetPlacement({0, 7, 0}, {0, 0, 0}, {2, 2, 2});
  node.SetTrack(5, {{{0, 0.0}, {10, 1.0}}});
  node.SetPlacementTrack(BaseNode::kPosition, {{{0, Vec3d{0, 0, 0}}, {10, Vec3d{100, 0, 0}}}});
  node.AddTag(kObstacleTag).SetTrack(6, {{{0, i32{1}}, {4, i32{0}}}, Interpolation::Step});
  document.SetFrame(4);
  EXPECT_DOUBLE_EQ(document.Time(), 0.08);
  EXPECT_EQ(*node.Get(5), Value(0.4));
  EXPECT_EQ(node.GlobalMatrix().offset, (Vec3d{40, 0, 0}));
  EXPECT_EQ(node.GlobalMatrix().v2, (Vec3d{0, 2, 0}));  // the scale stays
  EXPECT_EQ(*node.Tag(kObstacleTag)->Get(6), Value(i32{0}));
  const u32 dirty = node.DirtyCount();
  document.SetFrame(4);
  EXPECT_EQ(node.DirtyCount(), dirty);
  document.SetFrame(20);
  const u32 still = node.DirtyCount();
  document.SetFrame(21);  // behind the last key nothing moves
  EXPECT_EQ(node.DirtyCount(), still);
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
