#include "fluids/emission/alignment_vector.h"

#include <gtest/gtest.h>

#include <numbers>

#include "fluids/emission/sphere_volume.h"
#include "fluids/mesh/mesh_rig.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;

namespace {

void ExpectNear(const Vec3d& a, const Vec3d& b, double tolerance = 1e-12) {
  EXPECT_LE(Length(a - b), tolerance)
      << a.x << " " << a.y << " " << a.z << " is not " << b.x << " " << b.y << " " << b.z;
}

class Alignment : public testing::Test {
 protected:
  Alignment() : node(s.Add<AlignmentVector3D>("alignment", "direction")) {
    // At (1, 2, 3) metres, turned by a quarter about z: x to y, y to -x.
    node.Node()->SetPlacement({100, 200, 300}, {0, 0, 90}, {1, 1, 1});
  }
  Vec3d At(const Vec3d& p, i32 mode, u32 worker = 0) {
    TestScene::Set(node, 1000, mode);
    s.SetUp();
    node.SetWorkerCount(2);
    Vec3d out{7, 7, 7};
    node.GetDirection(out, p, worker);
    return out;
  }
  TestScene s{0.125};  // exact in single precision
  AlignmentVector3D& node;
};

TEST_F(Alignment, AxesVectorsAndCentre) {
  ExpectNear(At({}, 0), {0, 1, 0});
  ExpectNear(At({}, 1), {-1, 0, 0});
  ExpectNear(At({}, 2), {0, 0, 1});
  ExpectNear(At({1, 2, 8}, 3), {0, 0, 1});
  ExpectNear(At({1, 2, 3}, 3), {0, 0, 0});
  ExpectNear(At({4, 6, 5}, 5), {3, 4, 0});
  ExpectNear(At({}, 6), {-1, 0, 0});  // without a volume the fixed vector
  ExpectNear(At({}, 7), {-1, 0, 0});
  ExpectNear(At({}, 9), {0, 0, 0});
  ExpectNear(At({}, 77), {-1, 0, 0});
  // The vector lies at (0, 1, 0) - (1, 2, 3) from the centre: below in z.
  ExpectNear(At({}, 4), {0, 0, -1});
  TestScene::Set(node, 1001, i32{1});
  ExpectNear(At({}, 0), {0, -1, 0});
  node.SetMode(2);
  EXPECT_EQ(node.GetVector(), (Vec3d{0, 0, 1}));
}

TEST_F(Alignment, AVolumeGivesCentreAndNormals) {
  auto& ball = s.AddOwn<SphereVolume>("volume", "ball");
  ball.Make({0.5, 0.5, 0.5}, 0.3, {8, 8, 8}, {});
  TestScene::Link(node, 1003, ball);
  ExpectNear(At({0.5, 0.5, 0.9}, 3), {0, 0, 1}, 1e-6);
  ExpectNear(At({0.2, 0.5, 0.5}, 6), {-1, 0, 0}, 1e-2);
  auto& other = s.Add<AlignmentVector3D>("alignment", "a place");
  other.Node()->SetPlacement({0, 50, 0}, {}, {1, 1, 1});
  TestScene::Link(node, 1003, other);
  ExpectNear(At({0.2, 0.5, 0}, 3), {1, 0, 0});
}

TEST(AlignmentOfABody, IsTheVelocityOfTheVolumeThere) {
  MeshRig rig(host::MakeBox({.size = {60, 40, 50}}));
  rig.AddVolume();
  host::BaseNode& node = CreateNode(rig.document, AlignmentVector3D::Kind(), "motion", rig.server);
  node.Set(AlignmentVector3D::kModeRow, i32{AlignmentVector3D::kBodyVelocity});
  node.Set(AlignmentVector3D::kCentreRow, host::Link{rig.volumeNode->Id()});
  const auto at = [&](const Vec3d& p) {
    auto* alignment = dynamic_cast<AlignmentVector3D*>(rig.scene->FindObject(&node, kListAll));
    EXPECT_TRUE(rig.GetVolume().ResolveLinks() && alignment->ResolveLinks());
    Vec3d out{7, 7, 7};
    alignment->SetWorkerCount(1);
    alignment->GetDirection(out, p, 0);
    return out;
  };
  // 4 host units, and 3 degrees about y, in each frame of a 25th of a second.
  constexpr double kTurn = 3;
  for (i32 frame = 0; frame < 3; ++frame) {
    rig.Place({4.0 * frame, 0, 0}, {0, kTurn * frame, 0});
    rig.Frame(frame);
  }
  EXPECT_VEC(at({0.08, 0, 0}), (Vec3d{1, 0, 0}), 1e-6);
  const Vec3d beside = at({0.38, 0, 0}) - at({0.08, 0, 0});
  EXPECT_NEAR(std::abs(beside.z), 0.3 * kTurn * 25 * std::numbers::pi / 180, 1e-9)
      << "it turns about its middle";
  rig.Frame(3);
  EXPECT_VEC(at({0.08, 0, 0}), (Vec3d{}), 1e-12) << "it rests";
}

TEST_F(Alignment, RandomDirectionsAreUnitVectorsOfEachWorker) {
  s.scene->mTime.frameIndex = 12;
  const Vec3d first = At({}, 8), second = At({}, 8, 1);
  EXPECT_NEAR(Length(first), 1, 1e-12);
  EXPECT_NE(first, second);
  EXPECT_EQ(first, At({}, 8)) << "a run begins with the step's own seed";
  EXPECT_EQ(At({}, 8, 9), (Vec3d{})) << "a worker without a stream";
  s.scene->mTime.frameIndex = 13;
  EXPECT_NE(second, At({}, 8)) << "no worker repeats what another one had a frame before";
  s.scene->mTime.frameIndex = 12;
  s.scene->mTime.substep = 2;
  EXPECT_NE(first, At({}, 8)) << "nor does a substep";
  s.scene->mTime.substep = 0;
  node.SetWorkerCount(2, 1);
  Vec3d other;
  node.GetDirection(other, {}, 0);
  EXPECT_NE(first, other) << "each caller has its own";
}

}  // namespace
