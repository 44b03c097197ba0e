// Meshes that move within a frame: each substep finds them on their way.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

#include "fluids/mesh/mesh_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

/// The first vertex in each of the four substeps of frame 2, and how far it is from the point about
/// which the mesh turns.
struct Way {
  std::vector<Vec3d> vertex;
  std::vector<double> radius;
  Vec3d last{};  ///< at the end of the frame

  explicit Way(const std::function<void(MeshRig&, i32)>& move) {
    MeshRig rig(host::MakeBox({.size = {100, 40, 40}}));
    rig.server->Set(1003, i32{1});
    rig.server->Set(1005, i32{3});
    rig.scene->mTrace = [&](i32, const iBase& object) {
      if (rig.scene->mClock.frame != 2 || &object != &rig.GetMesh()) return;
      vertex.push_back(rig.GetMesh().mMesh.GetVertices()[0]);
      Vec3d centre;
      rig.GetMesh().GetCentre(centre);
      radius.push_back(Length(vertex.back() - centre));
    };
    for (i32 frame = 0; frame < 3; ++frame) {
      move(rig, frame);
      rig.Frame(frame);
    }
    last = rig.GetMesh().mMesh.GetVertices()[0];
  }
};

TEST(MeshGlide, EachSubstepTakesItsShareOfTheWay) {
  const Way way([](MeshRig& rig, i32 frame) { rig.Place({80.0 * frame, 0, 0}); });
  ASSERT_EQ(way.vertex.size(), 4u);
  for (int i = 0; i < 4; ++i)
    EXPECT_VEC(way.vertex[i], way.last - (Vec3d{0.2 * (3 - i), 0, 0}), 1e-6);
}

TEST(MeshGlide, ATurningShapeKeepsItsSize) {
  // A third of a full turn a frame: straight ways would pass close to the centre.
  const Way way([](MeshRig& rig, i32 frame) {
    rig.Place({10.0 * frame, 0, 0}, {0, 0, 120.0 * frame});
  });
  ASSERT_EQ(way.vertex.size(), 4u);
  const double radius = std::sqrt(0.5 * 0.5 + 2 * 0.2 * 0.2);
  for (int i = 0; i < 4; ++i) EXPECT_NEAR(way.radius[i], radius, 1e-6);
  const Vec3d centre{0.2, 0, 0};
  const double cosine = Dot(way.vertex[2] - (centre - Vec3d{0.025, 0, 0}), way.last - centre) -
                        (way.last - centre).z * (way.last - centre).z;
  EXPECT_NEAR(cosine / (0.5 * 0.5 + 0.2 * 0.2), std::cos(30 * std::numbers::pi / 180), 1e-6);
}

TEST(MeshGlide, AStretchingShapeMovesEachVertex) {
  const Way way([](MeshRig& rig, i32 frame) { rig.Place({}, {}, {1.0 + frame, 1, 1}); });
  ASSERT_EQ(way.vertex.size(), 4u);
  for (int i = 0; i < 4; ++i)
    EXPECT_NEAR(std::abs(way.vertex[i].x), 0.5 * (2.25 + 0.25 * i), 1e-6);
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
