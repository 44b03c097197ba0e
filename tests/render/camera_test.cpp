#include "render/camera.h"

#include "host/document.h"
#include "host/render_objects.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

class CameraTest : public testing::Test {
 protected:
  CameraTest() { node.SetTable(&host::CameraParameters()); }
  Camera Make() const { return Camera(node, 200, 100); }

  host::Document document;
  host::BaseNode& node = document.Create<host::BaseNode>(host::kCameraObject, "camera", nullptr);
};

void ExpectNear(const Vec3d& a, const Vec3d& b) {
  for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(a[axis], b[axis], 1e-12);
}

}  // namespace

TEST_F(CameraTest, ProjectsByPerspective) {
  node.SetPlacement({10, 20, 500}, {}, {1, 1, 1});
  node.Set(host::kCameraFieldOfView, 90.0);  // a picture plane 100 pixels away
  const Camera camera = Make();
  const auto seen = camera.Project({110, 70, 0});
  ASSERT_TRUE(seen);
  EXPECT_NEAR(seen->x, 100 + 100 * 100 / 500.0, 1e-9);
  EXPECT_NEAR(seen->y, 50 - 100 * 50 / 500.0, 1e-9);
  EXPECT_FALSE(camera.Project({0, 0, 501})) << "behind the camera";
  ExpectNear(camera.Direction(100, 50), {0, 0, -1});
  ExpectNear(camera.Direction(200, 50), Normalised(Vec3d{1, 0, -1}));
}

TEST_F(CameraTest, TurnsTowardsItsTargetAndGoesThere) {
  node.SetPlacement({30, 200, -40}, {0, 0, 0}, {3, 3, 3});
  node.Set(host::kCameraTarget, Vec3d{-50, 80, 10});
  const Camera camera = Make();
  ExpectNear(camera.Direction(100, 50), Normalised(Vec3d{-50, 80, 10} - Vec3d{30, 200, -40}));
  // The horizon stays level: a step upwards in the world has no sideways part in the picture.
  const auto low = camera.Project({-50, 80, 10}), high = camera.Project({-50, 90, 10});
  EXPECT_NEAR(low->x, high->x, 1e-9);
  EXPECT_LT(high->y, low->y);
}

TEST_F(CameraTest, DirectionAndProjectionAreInverse) {
  node.SetPlacement({30, 200, -40}, {20, 130, 5}, {1, 1, 1});
  const Camera camera = Make();
  for (const auto& [x, y] : {std::pair{3.0, 7.0}, std::pair{150.5, 99.0}}) {
    const auto seen = camera.Project(camera.Origin() + camera.Direction(x, y) * 321.0);
    ASSERT_TRUE(seen);
    EXPECT_NEAR(seen->x, x, 1e-9);
    EXPECT_NEAR(seen->y, y, 1e-9);
  }
}

TEST_F(CameraTest, LooksStraightDown) {
  node.SetPlacement({0, 300, 0}, {}, {1, 1, 1});
  node.Set(host::kCameraTarget, Vec3d{0, 0, 0});
  ExpectNear(Make().Direction(100, 50), {0, -1, 0});
  EXPECT_GT(Make().Project({0, 0, -10})->x, 0);
  EXPECT_LT(Make().Project({0, 0, -10})->y, 50) << "the top of the picture shows -z";
}
