#include "fluids/mesh/mesh.h"

#include <gtest/gtest.h>

#include <numbers>

#include "fluids/mesh/mesh_rig.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

constexpr double kPi = std::numbers::pi;

host::Geometry Box(const Vec3d& size = {100, 100, 100}) { return host::MakeBox({.size = size}); }

/// A quad, a triangle, and a quad with uvs, in the z = 0 plane.
host::Geometry Strip() {
  host::Geometry g;
  g.points = {{0, 0, 0}, {100, 0, 0}, {100, 100, 0}, {0, 100, 0}, {200, 0, 0}, {200, 100, 0}};
  g.polygons = {{0, 1, 2, 3}, {1, 4, 5, 5}, {1, 5, 2, 2}};
  for (int i = 0; i < 3; ++i)
    g.uvs.push_back(
        {Vec3d{i + 0.0, 0, 0}, Vec3d{i + 0.1, 0, 0}, Vec3d{i + 0.2, 0, 0}, Vec3d{i + 0.3, 0, 0}});
  return g;
}

// ---- conversion ------------------------------------------------------------------------------

TEST(MeshConversion, SplitsQuadsAndKeepsTheirUvsAndNumbers) {
  MeshRig rig(Strip());
  rig.Place({10, 20, 30}, {0, 0, 90}, {2, 1, 1});
  rig.Frame(0);
  const TriMeshSTL& mesh = rig.GetMesh().mMesh;
  const std::vector<VecInt3D> triangles = {{0, 1, 2}, {0, 2, 3}, {1, 4, 5}, {1, 5, 2}};
  EXPECT_EQ(mesh.GetTriangles(), triangles);
  ASSERT_EQ(mesh.mUvs.size(), 12u);
  EXPECT_EQ(mesh.mUvs[5].x, 0.3) << "third corner of the quad's second triangle";
  EXPECT_EQ(mesh.mUvs[6].x, 1.0);
  ASSERT_EQ(mesh.mQuadMap.size(), 3u);
  EXPECT_EQ(mesh.mQuadMap.at(0), (std::pair<i32, i32>{0, 1}));
  EXPECT_EQ(mesh.mQuadMap.at(1), (std::pair<i32, i32>{2, -1}));
  EXPECT_EQ(mesh.mQuadMap.at(2), (std::pair<i32, i32>{3, -1}));
  // (100, 0, 0), twice as long in x, turned by 90 degrees about z, moved; in simulation units.
  EXPECT_VEC(mesh.GetVertices()[1], (Vec3d{0.1, 2.2, 0.3}), 1e-6);
  EXPECT_VEC(mesh.GetBoundsMin(), (Vec3d{-0.9, 0.2, 0.3}), 1e-6);

  MeshRig triangles_only(host::MakeIcosphere(1));
  triangles_only.Frame(0);
  EXPECT_TRUE(triangles_only.GetMesh().mMesh.mQuadMap.empty());
}

TEST(MeshConversion, FollowsPointsPolygonsAndTheirCounts) {
  MeshRig rig(Strip());
  rig.Frame(0);
  Mesh& mesh = rig.GetMesh();
  const u32 revision = mesh.Revision();
  EXPECT_EQ(mesh.ConvertHostObject(), 1);
  EXPECT_EQ(mesh.Revision(), revision) << "nothing changed";

  host::Geometry g = Strip();
  g.polygons[0] = {3, 2, 1, 1};
  rig.object->SetGeometry(g);
  rig.Frame(1);
  EXPECT_EQ(mesh.mMesh.GetTriangles()[0], (VecInt3D{3, 2, 1}));
  EXPECT_TRUE(mesh.mMesh.mQuadMap.empty());
  EXPECT_EQ(mesh.mMesh.GetTriangleCount(), 3);
  EXPECT_GT(mesh.Revision(), revision);

  rig.object->SetGeometry(Box());
  rig.Frame(2);
  EXPECT_EQ(mesh.mMesh.GetVertexCount(), 8);
  EXPECT_EQ(mesh.mMesh.GetTriangleCount(), 12);

  rig.object->SetGeometry({});
  rig.Frame(3);
  EXPECT_FALSE(mesh.Has(FLAG_ACTIVE));
  EXPECT_FALSE(mesh.HasTriangles());
  rig.object->SetGeometry(Box());
  rig.Frame(4);
  EXPECT_TRUE(mesh.Has(FLAG_ACTIVE));

  rig.meshNode->Set(1000, host::Link{});
  rig.Frame(5);
  EXPECT_FALSE(mesh.Has(FLAG_ACTIVE));
  EXPECT_FALSE(mesh.HasTriangles());
}

TEST(MeshConversion, TurnsNormalsUprightUnderUnevenScales) {
  host::Geometry g = Strip();
  g.normals.assign(3, {Vec3d{1, 1, 0}, Vec3d{0, 0, 1}, Vec3d{0, 0, 1}, Vec3d{0, 0, 1}});
  MeshRig rig(g);
  rig.Place({}, {}, {2, 1, 1});
  rig.Frame(0);
  // The plane x + y = c becomes x / 2 + y = c.
  EXPECT_VEC(rig.GetMesh().mMesh.mColumns.normal[0], Normalised(Vec3d{0.5, 1, 0}), 1e-12);
}

TEST(MeshConversion, IsTheSameOnOneThreadAndMore) {
  host::Geometry g = host::MakeTorus({.segments = 256});  // quads with uvs
  g.polygons[7].d = g.polygons[7].c;
  g.normals.assign(g.polygons.size(), {Vec3d{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}});
  TriMeshSTL meshes[2];
  for (const i32 threads : {1, 5}) {
    host::SetThreadCount(threads);
    MeshRig rig(g);
    rig.Place({1, 2, 3}, {20, 30, 40});
    rig.Frame(0);
    meshes[threads > 1] = rig.GetMesh().mMesh;
  }
  host::SetThreadCount(0);
  ASSERT_GT(meshes[0].GetVertexCount(), 8192 * 3) << "enough for several workers";
  EXPECT_EQ(meshes[0].GetVertices(), meshes[1].GetVertices());
  EXPECT_EQ(meshes[0].GetTriangles(), meshes[1].GetTriangles());
  EXPECT_EQ(meshes[0].mUvs, meshes[1].mUvs);
  EXPECT_EQ(meshes[0].mQuadMap, meshes[1].mQuadMap);
  EXPECT_EQ(meshes[0].mColumns.normal, meshes[1].mColumns.normal);
  EXPECT_EQ(meshes[0].mQuadMap.at(8).first, meshes[0].mQuadMap.at(7).first + 1);
}

TEST(MeshCategories, TellObstaclesByTheTagOfObjectOrVolume) {
  MeshRig rig(Box());
  rig.AddVolume();
  rig.Frame(0);
  const auto isObstacle = [](const iBase& o) { return o.HasCategory(kBitActiveVolume); };
  EXPECT_TRUE(rig.GetMesh().HasCategory(kBitMesh));
  EXPECT_FALSE(rig.GetMesh().HasCategory(kBitVolume));
  EXPECT_FALSE(isObstacle(rig.GetMesh()) || isObstacle(rig.GetVolume()));
  EXPECT_TRUE(rig.GetVolume().HasCategory(kBitMesh) && rig.GetVolume().HasCategory(kBitVolume));

  AddObstacleTag(*rig.volumeNode);
  rig.Frame(1);
  EXPECT_TRUE(isObstacle(rig.GetMesh()) && isObstacle(rig.GetVolume()));
  rig.volumeNode->Set(1018, i32{1});
  rig.Frame(2);
  EXPECT_TRUE(isObstacle(rig.GetVolume())) << "what it weighs makes it no less solid";
  rig.volumeNode->RemoveTag(host::kObstacleTag);
  AddObstacleTag(*rig.object);
  rig.Frame(3);
  EXPECT_TRUE(isObstacle(rig.GetMesh()));
  EXPECT_FALSE(isObstacle(rig.GetVolume()));
}

// ---- motion ----------------------------------------------------------------------------------

TEST(MeshMotion, IsThatOfTheStepAndEndsWithIt) {
  MeshRig rig(Box());
  rig.AddVolume();  // which keeps the scene running
  std::vector<i32> ran;
  rig.scene->mTrace = [&](i32, const iBase& o) {
    if (o.GetTypeId() == kTypeMesh) ran.push_back(rig.scene->mTime.frameIndex);
  };
  for (i32 frame = 0; frame < 10; ++frame) {
    // Rests, moves by 4 units in frames 4 to 6, rests.
    rig.Place({4.0 * std::clamp(frame - 3, 0, 3), 0, 0});
    rig.Frame(frame);
    const bool moves = frame >= 4 && frame <= 6;
    EXPECT_VEC(rig.VelocityAt({1, 2, 3}), (Vec3d{moves ? 0.04 : 0, 0, 0}), 1e-8);
  }
  EXPECT_EQ(ran, (std::vector<i32>{0, 4, 5, 6, 7}));
}

TEST(MeshMotion, TurnsAboutTheMaterialAtTheCentre) {
  // A wedge: the middle of its box is no fixed point of it.
  host::Geometry g = Box({100, 60, 80});
  for (Vec3d& p : g.points)
    if (p.x > 0 && p.y > 0) p.y = -20;
  MeshRig rig(g);
  const auto place = [&](i32 frame) {
    rig.Place({2.0 * frame, 10, -frame * 1.0}, {0, 1.5 * frame, 0});
  };
  for (i32 frame = 0; frame < 4; ++frame) place(frame), rig.Frame(frame);
  const std::vector<Vec3d> before = rig.GetMesh().mMesh.GetVertices();
  place(4);
  rig.Frame(4);
  const std::vector<Vec3d>& now = rig.GetMesh().mMesh.GetVertices();
  const double angle = 1.5 * kPi / 180;
  for (std::size_t i = 0; i < now.size(); ++i) {
    const Vec3d moved = now[i] - before[i];
    EXPECT_VEC(rig.VelocityAt(now[i]), moved, 0.6 * angle * angle);
    EXPECT_GT(Length(moved), 0.01);
  }
  Vec3d linear, angular, cross;
  rig.GetMesh().GetVelocityParts(now[0], linear, angular, cross);
  EXPECT_VEC(angular, (Vec3d{0, angle, 0}), 1e-9);
  EXPECT_VEC(linear + cross, rig.VelocityAt(now[0]), 1e-12);
}

TEST(MeshMotion, IsSharedByTheSubstepsOfAFrame) {
  // However a frame is cut, motion / stepDuration is the object's speed: 4 units in 1/25 s.
  for (const i32 mode : {0, 1}) {
    MeshRig rig(Box());
    rig.server->Set(1003, mode);
    rig.server->Set(1005, i32{3});
    rig.server->Set(1010, i32{3});
    rig.meshNode->Set(1004, i32{1});
    for (i32 frame = 0; frame < 5; ++frame) rig.Place({4.0 * frame, 0, 0}), rig.Frame(frame);
    ASSERT_EQ(rig.scene->mReport.steps.size(), 4u);
    EXPECT_EQ(rig.scene->mTime.substep, 4) << "the last substep of the frame";
    const double dt = rig.scene->mTime.stepDuration;
    EXPECT_NEAR(dt, 0.01, 1e-6);
    EXPECT_VEC(rig.VelocityAt({}) / dt, (Vec3d{1, 0, 0}), 1e-6);
    EXPECT_VEC(rig.GetMesh().mMesh.mColumns.velocity[3], (Vec3d{1, 0, 0}), 1e-6);
    EXPECT_NEAR(rig.GetMesh().mMesh.GetBoundsCentre().x, 0.16, 1e-7);
  }
}

TEST(MeshMotion, OfPointsMovesTheCentreAndTheVertices) {
  MeshRig rig(Box());
  rig.meshNode->Set(1004, i32{1});
  for (i32 frame = 0; frame < 5; ++frame) {
    rig.object->SetGeometry(Box(Vec3d{1, 1, 1} * (100.0 + 10 * frame)));
    rig.Frame(frame);
  }
  EXPECT_VEC(rig.VelocityAt({1, 1, 1}), (Vec3d{}), 1e-9);
  const TriMeshSTL& mesh = rig.GetMesh().mMesh;
  for (i32 i = 0; i < 8; ++i) {
    const Vec3d& p = mesh.GetVertices()[i];
    // 5 units to each side in a frame.
    EXPECT_VEC(mesh.mColumns.velocity[i], (p / std::abs(p.x) * (0.05 * 25)), 1e-4);
  }
  rig.Frame(5);
  EXPECT_VEC(mesh.mColumns.velocity[0], (Vec3d{}), 0.0) << "at rest again";
}

TEST(MeshMotion, IsNoneAfterJumpsEditsAndRestarts) {
  MeshRig rig(Box());
  const auto place = [&](i32 frame) { rig.Place({4.0 * frame, 0, 0}, {0, 2.0 * frame, 0}); };
  for (i32 frame = 0; frame < 4; ++frame) place(frame), rig.Frame(frame);
  EXPECT_GT(rig.VelocityAt({}).x, 0.03);

  place(9);
  rig.Frame(9);
  EXPECT_VEC(rig.VelocityAt({}), (Vec3d{}), 0.0) << "frames were left out";
  place(10);
  rig.Frame(10);
  EXPECT_GT(rig.VelocityAt({}).x, 0.03);

  place(20);
  rig.Frame(10);
  EXPECT_VEC(rig.VelocityAt({}), (Vec3d{}), 0.0) << "moved by hand in the same frame";
  EXPECT_NEAR(rig.GetMesh().mMesh.GetBoundsCentre().x, 0.8, 1e-6);

  place(0);
  rig.Frame(0);
  EXPECT_VEC(rig.VelocityAt({}), (Vec3d{}), 0.0) << "back at the start";
  EXPECT_NEAR(rig.GetMesh().mMesh.GetBoundsCentre().x, 0, 1e-6);
}

TEST(MeshMotion, OfABakedObjectIsReplayedWithItsOffset) {
  MeshRig rig(Box());
  host::BaseNode& tag = AddObstacleTag(*rig.object);
  tag.Set(2036, i32{1});
  tag.Set(2041, -2.5);
  const auto place = [](double frame) { return frame * frame; };
  for (i32 frame = 0; frame < 9; ++frame) {
    rig.Place({place(frame), 0, 0});
    rig.Frame(frame);
    // Between two frames the placements are mixed; before the first one it holds still.
    const double early = std::floor(frame - 2.5);
    const double x = early < 0 ? 0 : (place(early) + place(early + 1)) / 2;
    EXPECT_NEAR(rig.GetMesh().mMesh.GetBoundsCentre().x, 0.01 * x, 1e-7) << frame;
  }
  // Its speed is that of the replayed motion, not of the object's present one.
  EXPECT_NEAR(rig.VelocityAt({}).x, 0.01 * (place(6) - place(4)) / 2, 1e-7);
  // What was stored is known ahead in a second run.
  tag.Set(2041, 3.0);
  rig.Frame(0);
  rig.Frame(1);
  EXPECT_NEAR(rig.GetMesh().mMesh.GetBoundsCentre().x, 0.01 * place(4), 1e-7);
  tag.Set(2040, i32{0});
  rig.Place({50, 0, 0});
  rig.Frame(2);
  EXPECT_NEAR(rig.GetMesh().mMesh.GetBoundsCentre().x, 0.5, 1e-7) << "doesn't follow the bake";
}

TEST(MatrixCache, HoldsMixesAndForgetsFrames) {
  iRamCache<LMatrix> cache;
  EXPECT_FALSE(cache.At(3));
  const auto at = [](double x) { return LMatrix{{{x, 0, 0}}, {x, x, x}}; };
  cache.Store(3, at(30));
  cache.Store(4, at(40));
  cache.Store(8, at(80));
  const auto x = [&](double frame) { return cache.At(frame)->matrix.offset.x; };
  EXPECT_EQ(x(-1e300), 30);
  EXPECT_EQ(x(3), 30);
  EXPECT_EQ(x(3.25), 32.5);
  EXPECT_EQ(cache.At(3.25)->scale, (Vec3d{32.5, 32.5, 32.5}));
  EXPECT_EQ(x(6.5), 40) << "the next frame wasn't stored";
  EXPECT_EQ(x(1e9), 80);
  cache.Invalidate(3);
  EXPECT_EQ(cache.Find(3), nullptr);
  EXPECT_EQ(x(3.25), 40);
  cache.Clear();
  EXPECT_FALSE(cache.At(3));
}

TEST(MeshMotion, SurvivesFlatAndMirroredObjects) {
  MeshRig rig(Box());
  for (i32 frame = 0; frame < 8; ++frame) {
    rig.Place({1.0 * frame, 0, 0}, {0, 3.0 * frame, 0},
              frame % 2 ? Vec3d{1, 0, 1} : Vec3d{-1, 1, 1});
    rig.Frame(frame);
    const Vec3d v = rig.VelocityAt({1, 1, 1});
    EXPECT_TRUE(std::isfinite(v.x + v.y + v.z));
  }
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
