#include "host/keyed_points.h"

#include <gtest/gtest.h>

#include "host/document.h"
#include "host/polygon_object.h"

namespace MELDO_GLOBAL::host {
namespace {

TEST(KeyedPoints, LieBetweenTheirKeys) {
  Document document;
  auto& cloud = document.Create<PointsObject>(kPointsObject, "cloud", nullptr);
  cloud.track.keys = {{2, {{0, 0, 0}, {1, 0, 0}}}, {6, {{4, 0, 0}, {1, 8, 0}}}};
  const auto at = [&](i32 frame) {
    document.SetFrame(frame);
    return cloud.points;
  };
  EXPECT_EQ(at(0), cloud.track.keys[0].points);
  EXPECT_EQ(at(3), (std::vector<Vec3d>{{1, 0, 0}, {1, 2, 0}}));
  const u32 before = cloud.DirtyCount();
  EXPECT_EQ(at(4), (std::vector<Vec3d>{{2, 0, 0}, {1, 4, 0}}));
  EXPECT_GT(cloud.DirtyCount(), before) << "who reads the points has to know";
  EXPECT_EQ(at(9), cloud.track.keys[1].points);
  cloud.track.interpolation = Interpolation::Step;
  EXPECT_EQ(at(5), cloud.track.keys[0].points);
}

TEST(ObjectChildren, MoveWithTheirParent) {
  Document document;
  auto& arm = document.Create<BaseNode>(kMeshObject, "arm", nullptr);
  auto& hand = document.Create<BaseNode>(kMeshObject, "hand", &arm);
  arm.SetPlacement({10, 0, 0}, {0, 90, 0}, {1, 1, 1});
  hand.SetPlacement({0, 0, 5}, {}, {1, 1, 1});
  const Vec3d at = hand.GlobalMatrix().offset;
  EXPECT_NEAR(at.x, 15, 1e-12);
  EXPECT_NEAR(at.z, 0, 1e-12);
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
