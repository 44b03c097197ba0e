// Groups of meshes and volumes in a scene.
#include "fluids/volume/multi_volume.h"

#include <gtest/gtest.h>

#include <cstring>

#include "fluids/flow/grid_boundary.h"
#include "fluids/mesh/multi_mesh.h"
#include "framework/sulva_scene.h"
#include "host/shapes.h"
#include "nodes/catalogue.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

using host::InExcludeData;

constexpr double kCell = 0.05;

/// Two balls of half a unit at x = -1 and x = 1, grouped at the level of meshes or of volumes.
struct TwoBalls {
  explicit TwoBalls(bool multiMesh) {
    server = &Create("server", "scene", nullptr);
    server->Set(1002, kCell);
    server->Set(1003, i32{1});
    server->Set(1005, i32{0});
    // The volumes stand before the meshes that they are made from.
    group = &Create("volume_multi", "group", server);
    for (int i = 0; i < 2; ++i) {
      const std::string name = i ? "right" : "left";
      balls[i] = &document.Create<host::PolygonObject>(host::kMeshObject, name, nullptr);
      balls[i]->SetGeometry(host::MakeIcosphere(3, 50));
      balls[i]->SetPlacement({i ? 100.0 : -100.0, 0, 0}, {}, {1, 1, 1});
    }
    if (multiMesh) {
      sources[0] = &Create("mesh_multi", "meshes", server);
      // Named out of order: members stand by creation number.
      sources[0]->Set(1050, InExcludeData{{{balls[1]->Id(), 0}, {balls[0]->Id(), 0}}});
      group->Set(1100, InExcludeData{{{sources[0]->Id(), 0}}});
    } else {
      for (int i = 0; i < 2; ++i) {
        sources[i] = &Create("mesh", i ? "right mesh" : "left mesh", server);
        sources[i]->Set(1000, host::Link{balls[i]->Id()});
      }
      group->Set(1100, InExcludeData{{{sources[1]->Id(), 0}, {sources[0]->Id(), 0}}});
    }
    scene = CreateScene(*server);
  }
  host::BaseNode& Create(std::string_view type, std::string name, host::BaseNode* parent) {
    return CreateNode(document, *FindKind(type), std::move(name), parent);
  }
  void Frame(i32 frame) {
    document.SetFrame(frame);
    ASSERT_TRUE(scene->Execute(&host::MainThread(), false));
  }
  MultiVolume& Group() const {
    return *dynamic_cast<MultiVolume*>(scene->FindObject(group, kListGeometry));
  }
  std::vector<VolumeBase*> Members() const {
    std::vector<VolumeBase*> members;
    Group().CollectMembers(members);
    return members;
  }

  host::Document document;
  host::BaseNode *server, *group, *sources[2] = {};
  host::PolygonObject* balls[2];
  std::unique_ptr<SulvaScene> scene;
};

class Groups : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(MeshesOrMultiMesh, Groups, testing::Bool());

TEST_P(Groups, AnswerForTheirMembersInOrder) {
  TwoBalls rig(GetParam());
  rig.Frame(0);
  MultiVolume& group = rig.Group();
  ASSERT_EQ(group.GetMemberCount(), 2);
  EXPECT_TRUE(group.Has(FLAG_ACTIVE));
  const Vec3d left{-1, 0, 0}, right{1, 0.2, 0}, between{0, 0, 0};
  i32 index = -1;
  EXPECT_TRUE(group.IsInsideWorld(left, 0, index));
  EXPECT_EQ(index, 0);
  EXPECT_TRUE(group.IsInsideWorld(right, 0, index));
  EXPECT_EQ(index, 1);
  EXPECT_FALSE(group.IsInsideWorld(between, 0, index));
  EXPECT_EQ(index, 2);
  EXPECT_NEAR(group.DistanceAtWorld(right), -0.3, 4e-3);
  EXPECT_NEAR(group.DepthWorld(right, -1), rig.Members()[1]->DepthWorld(right), 0);
  EXPECT_EQ(group.DepthWorld(between, -1), 1.0);
  EXPECT_GT(group.GradientAtWorld(right, 1).y, 0.9);
  Vec3d p = right;
  EXPECT_TRUE(group.PushOut(p, 0));
  EXPECT_NEAR(Length(p - Vec3d{1, 0, 0}), 0.5, 4e-3);
  SurfaceRecord record;
  EXPECT_TRUE(group.ClosestSurface(right, record, 0));
  EXPECT_NEAR(Length(record.point - Vec3d{1, 0, 0}), 0.5, 4e-3);
  p = between;
  EXPECT_FALSE(group.PushOut(p, 0) || group.ClosestSurface(between, record, 0));
  EXPECT_LE(group.mBoxMin.x, -1.5);
  EXPECT_GE(group.mBoxMax.x, 1.5);
  EXPECT_NEAR(group.mCentre.x, 0, kCell);
}

TEST_P(Groups, FollowTheirMembersAndTheirLists) {
  TwoBalls rig(GetParam());
  rig.Frame(0);
  rig.balls[1]->SetPlacement({100, 200, 0}, {}, {1, 1, 1});
  rig.Frame(1);
  EXPECT_TRUE(rig.Group().IsInsideWorld({1, 2, 0}));
  EXPECT_FALSE(rig.Group().IsInsideWorld({1, 0, 0}));
  EXPECT_TRUE(rig.Group().IsInsideWorld({-1, 0, 0}));
  const i32 list = GetParam() ? 1050 : 1100;
  host::BaseNode* holder = GetParam() ? rig.sources[0] : rig.group;
  const host::NodeId right = GetParam() ? rig.balls[1]->Id() : rig.sources[1]->Id();
  holder->Set(list, InExcludeData{{{right, 0}}});
  rig.Frame(2);
  ASSERT_EQ(rig.Group().GetMemberCount(), 1);
  EXPECT_FALSE(rig.Group().IsInsideWorld({-1, 0, 0}));
  EXPECT_TRUE(rig.Group().IsInsideWorld({1, 2, 0}));
  holder->Set(list, InExcludeData{});
  rig.Frame(3);
  EXPECT_EQ(rig.Group().GetMemberCount(), 0);
  EXPECT_FALSE(rig.Group().Has(FLAG_ACTIVE));
}

TEST_P(Groups, AsObstaclesAreTheirMembers) {
  TwoBalls rig(GetParam());
  std::vector<VolumeBase*> obstacles;
  rig.Frame(0);
  CollectObstacles(*rig.scene, obstacles);
  EXPECT_TRUE(obstacles.empty());
  AddObstacleTag(*rig.group);
  rig.Frame(1);
  CollectObstacles(*rig.scene, obstacles);
  EXPECT_EQ(obstacles, rig.Members());
  EXPECT_EQ(obstacles.size(), 2u);
}

TEST_P(Groups, AreTheUnionOfTheirMembers) {
  TwoBalls rig(GetParam());
  rig.balls[0]->SetPlacement({-30, 0, 0}, {}, {1, 1, 1});
  rig.balls[1]->SetPlacement({30, 10, 0}, {}, {1, 1, 1});
  rig.Frame(0);
  const MultiVolume& group = rig.Group();
  const auto ball = [](const Vec3d& p, double x, double y) {
    return Length(p - Vec3d{x, y, 0}) - 0.5;
  };
  ForEachCell({{-17, -12, -12}, {18, 14, 13}}, [&](i32 x, i32 y, i32 z) {
    const Vec3d p = ToReal({x, y, z}) * kCell;
    const double wanted = std::min(ball(p, -0.3, 0), ball(p, 0.3, 0.1));
    if (std::abs(wanted) < 0.01) return;
    EXPECT_EQ(group.IsInsideWorld(p), wanted < 0) << x << " " << y << " " << z;
    if (wanted < 0) {
      EXPECT_NEAR(group.DistanceAtWorld(p), wanted, 0.01);
    }
  });
}

TEST(MultiVolume, LeavesOutMembersThatAreSwitchedOff) {
  TwoBalls rig(false);
  rig.Frame(0);
  EXPECT_LE(rig.Group().mBoxMin.x, -1.5);
  rig.sources[0]->SetEnabled(false);
  rig.Frame(1);
  MultiVolume& group = rig.Group();
  EXPECT_TRUE(group.Has(FLAG_ACTIVE));
  EXPECT_FALSE(group.IsInsideWorld({-1, 0, 0}));
  EXPECT_TRUE(group.IsInsideWorld({1, 0, 0}));
  EXPECT_GT(group.mBoxMin.x, 0) << "its box no longer counts";
  EXPECT_GT(group.DistanceAtWorld({0.4, 0, 0}), 0.05) << "a member without a grid has no distance";
  rig.sources[0]->SetEnabled(true);
  rig.Frame(2);
  EXPECT_TRUE(group.IsInsideWorld({-1, 0, 0}));
  rig.group->SetEnabled(false);
  rig.Frame(3);
  EXPECT_EQ(rig.scene->FindObject(rig.group, kListGeometry), nullptr);
}

TEST_P(Groups, WidenTheDomainWithoutMembersByNothing) {
  TwoBalls rig(GetParam());
  rig.group->Set(1100, InExcludeData{});
  rig.Frame(0);
  Vec3d min{1, 2, 3}, max{4, 5, 6};
  rig.Group().ExpandBounds(min, max);
  EXPECT_EQ(min, (Vec3d{1, 2, 3}));
  EXPECT_EQ(max, (Vec3d{4, 5, 6}));
  EXPECT_STREQ(rig.Group().mInactiveReason, "it has no meshes; name some under 'meshes'");
  EXPECT_EQ(rig.Group().DistanceAtWorld({0, 0, 0}), iVolume::kHuge);
}

TEST(MultiVolume, MembersMeasureAsSingleVolumesDo) {
  TwoBalls rig(false);
  host::BaseNode& single = rig.Create("volume", "single", rig.server);
  single.Set(1003, host::Link{rig.sources[1]->Id()});
  for (host::BaseNode* node : {&single, rig.group}) {
    node->Set(1006, 0.5);
    node->Set(1007, i32{1});
    node->Set(1008, i32{5});
  }
  rig.Frame(0);
  const auto& alone = *dynamic_cast<VolumeMesh*>(rig.scene->FindObject(&single, kListGeometry));
  const EGrid<double>&a = *alone.GetGrid(), &b = *rig.Members()[1]->GetGrid();
  ASSERT_EQ(a.Dims(), b.Dims());
  EXPECT_EQ(std::memcmp(a.mData, b.mData, sizeof(double) * a.mCount), 0);
}

TEST(MultiMesh, IsAnObstacleByItsOwnTagOrThatOfAnObject) {
  TwoBalls rig(true);
  rig.Frame(0);
  const auto isObstacle = [&] {
    return rig.scene->FindObject(rig.sources[0], kListGeometry)->HasCategory(kBitActiveVolume);
  };
  EXPECT_FALSE(isObstacle());
  AddObstacleTag(*rig.balls[1]);
  rig.Frame(1);
  EXPECT_TRUE(isObstacle());
  rig.balls[1]->RemoveTag(host::kObstacleTag);
  rig.Frame(2);
  EXPECT_FALSE(isObstacle());
  AddObstacleTag(*rig.sources[0]);
  rig.Frame(3);
  EXPECT_TRUE(isObstacle());
}

TEST(MultiMesh, IsASourceOfOneVolume) {
  TwoBalls rig(true);
  host::BaseNode& single = rig.Create("volume", "single", rig.server);
  single.Set(1003, host::Link{rig.sources[0]->Id()});
  rig.Frame(0);
  auto& meshes = *dynamic_cast<MultiMesh*>(rig.scene->FindObject(rig.sources[0], kListGeometry));
  EXPECT_EQ(meshes.GetSubMeshCount(), 2);
  EXPECT_EQ(meshes.GetSubMesh(-1), meshes.GetSubMesh(0));
  EXPECT_EQ(meshes.GetSubMesh(2), nullptr);
  auto& volume = *dynamic_cast<VolumeMesh*>(rig.scene->FindObject(&single, kListGeometry));
  EXPECT_TRUE(volume.IsInsideWorld({-1, 0, 0})) << "without an index, the first mesh";
  EXPECT_FALSE(volume.IsInsideWorld({1, 0, 0}));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
