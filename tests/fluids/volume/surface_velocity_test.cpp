#include "fluids/flow/grid_boundary.h"
#include "fluids/mesh/mesh_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kCellOfSurface = 0.05;

/// A block that rests from x = -1 to -0.5 and one beside it from 0 to 0.5, moved by `x`, as one
/// mesh; 100 host units are 1.
host::Geometry TwoBlocks(double x) {
  host::Geometry blocks = host::MakeBox({.size = {50, 50, 50}}), other = blocks;
  const i32 first = static_cast<i32>(blocks.points.size());
  for (Vec3d& p : blocks.points) p.x -= 75;
  for (const Vec3d& p : other.points) blocks.points.push_back({p.x + 25 + 100 * x, p.y, p.z});
  for (host::Polygon polygon : other.polygons) {
    for (i32* corner : {&polygon.a, &polygon.b, &polygon.c, &polygon.d}) *corner += first;
    blocks.polygons.push_back(polygon);
  }
  blocks.uvs.clear();
  blocks.normals.clear();
  return blocks;
}

/// Where the material that is at `p` in the placement `now` was in the placement `before`.
Vec3d Before(const Matrix& before, const Matrix& now, const Vec3d& p) {
  return before * (Inverse(now) * (p * 100.0)) / 100.0;
}

TEST(SurfaceVelocity, IsThatOfTheMaterialUnderKeyedScaleAndTurning) {
  for (const i32 substeps : {1, 3}) {
    MeshRig rig(host::MakeBox({.size = {60, 40, 50}}), kCellOfSurface);
    rig.AddVolume();
    rig.server->Set(1003, i32{1});
    rig.server->Set(1005, substeps);
    rig.server->Set(1010, substeps);
    Matrix before, now;
    for (i32 frame = 0; frame < 5; ++frame) {
      const double t = frame;
      rig.Place({2 * t, 0, -t}, {0, 0.02 * t, 0.03 * t}, {1 + 0.1 * t, 1, 1 - 0.05 * t});
      before = now;
      now = rig.object->GlobalMatrix();
      rig.Frame(frame);
    }
    ASSERT_TRUE(rig.GetMesh().IsDeforming());
    ASSERT_TRUE(rig.GetVolume().ResolveLinks()) << "a run ends without links";
    const double share = rig.scene->mTime.stepFraction;
    // Points on the six sides, and a little outwards of them.
    for (int side = 0; side < 6; ++side)
      for (const double off : {0.0, 0.2 * kCellOfSurface}) {
        Vec3d local{7, 4, -6};
        const int axis = side / 2;
        local[axis] = (side & 1 ? 0.5 : -0.5) * (axis == 0 ? 60 : axis == 1 ? 40 : 50);
        const Vec3d surface = now * local / 100.0;
        Vec3d beside[2];
        for (int i = 0; i < 2; ++i) {
          Vec3d along{};
          along[(axis + 1 + i) % 3] = 1;
          beside[i] = now * (local + along) - now * local;
        }
        Vec3d normal = Normalised(Cross(beside[0], beside[1]));
        if (!(side & 1)) normal = normal * -1.0;
        const Vec3d wanted = (surface - Before(before, now, surface)) * share;
        EXPECT_GT(Length(wanted), 0.001);
        EXPECT_VEC(rig.GetVolume().SurfaceVelocityAt(surface + normal * off), wanted, 1e-9)
            << side << " " << off << " " << substeps;
      }
  }
}

TEST(SurfaceVelocity, OfABlockBesideAMovingOneIsNone) {
  MeshRig rig(TwoBlocks(0), kCellOfSurface);
  rig.AddVolume();
  for (i32 frame = 0; frame < 5; ++frame) {
    rig.object->SetGeometry(TwoBlocks(0.02 * frame));
    rig.Frame(frame);
  }
  VolumeMesh& volume = rig.GetVolume();
  ASSERT_TRUE(volume.ResolveLinks());
  for (const double x : {-1.04, -0.9, -0.6, -0.52, -0.45})
    EXPECT_EQ(volume.SurfaceVelocityAt({x, 0.1, 0.26}), Vec3d{}) << x;
  for (const double x : {0.03, 0.3, 0.5, 0.58})
    EXPECT_VEC(volume.SurfaceVelocityAt({x, 0.1, 0.26}), (Vec3d{0.02, 0, 0}), 1e-9) << x;
  EXPECT_NEAR(rig.GetMesh().GetTravel(), 0.02, 1e-9);
  rig.Frame(5);
  ASSERT_TRUE(volume.ResolveLinks());
  EXPECT_EQ(volume.SurfaceVelocityAt({0.5, 0.1, 0}), Vec3d{}) << "at rest again";
  EXPECT_EQ(rig.GetMesh().GetTravel(), 0.0);
}

TEST(SurfaceVelocity, WhatDeformsShowsTheFlowAsMuchAsItsTagTells) {
  constexpr i32 kTransferRow = 2004;
  MeshRig rig(TwoBlocks(0), kCellOfSurface);
  rig.AddVolume();
  AddObstacleTag(*rig.volumeNode);
  rig.volumeNode->Tag(host::kObstacleTag)->Set(kTransferRow, 0.25);
  for (i32 frame = 0; frame < 5; ++frame) {
    rig.object->SetGeometry(TwoBlocks(0.02 * frame));
    rig.Frame(frame);
  }
  ASSERT_TRUE(rig.GetVolume().ResolveLinks());
  GridBoundary boundary;
  boundary.mObstacles = {&rig.GetVolume()};
  const Vec3d place{0.52, 0.1, 0};
  EXPECT_VEC(boundary.GetSolidVelocity(place), (Vec3d{0.02, 0, 0}), 1e-9);
  EXPECT_VEC(boundary.GetFlowVelocity(place), (Vec3d{0.005, 0, 0}), 1e-9);
  EXPECT_TRUE(boundary.DrivesFlow());
}

TEST(SurfaceVelocity, OfObstaclesIsThatOfTheNearest) {
  MeshRig rest(host::MakeBox({.size = {50, 50, 50}}), kCellOfSurface),
      mover(rest.object->GetGeometry(), kCellOfSurface);
  for (MeshRig* rig : {&rest, &mover}) rig->AddVolume();
  for (i32 frame = 0; frame < 5; ++frame) {
    mover.Place({64.0 - 2 * frame, 0, 0});
    rest.Frame(frame), mover.Frame(frame);
  }
  for (MeshRig* rig : {&rest, &mover}) ASSERT_TRUE(rig->GetVolume().ResolveLinks());
  // The gap between them, from 0.25 to 0.31, lies in the padded boxes of both.
  GridBoundary boundary;
  for (const bool turned : {false, true}) {
    boundary.mObstacles = {&rest.GetVolume(), &mover.GetVolume()};
    if (turned) std::swap(boundary.mObstacles[0], boundary.mObstacles[1]);
    EXPECT_EQ(boundary.GetSolidVelocity({0.26, 0, 0}), Vec3d{});
    EXPECT_EQ(boundary.GetSolidVelocity({0.2, 0.2, 0}), Vec3d{});
    EXPECT_VEC(boundary.GetSolidVelocity({0.305, 0, 0}), (Vec3d{-0.02, 0, 0}), 1e-9);
    EXPECT_VEC(boundary.GetSolidVelocity({0.4, 0.2, 0}), (Vec3d{-0.02, 0, 0}), 1e-9);
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
