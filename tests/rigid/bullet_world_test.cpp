// Bodies in scenes of their own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "host/mesh_files.h"
#include "io/body_animation.h"
#include "io/measure.h"
#include "rigid/body_scene.h"

namespace MELDO_GLOBAL::app {
namespace {

TEST(BulletWorld, AMeshThatLosesItsTagHasNoBodyAnyMore) {
  FloorScene scene(Object("a", kCube, {0, 50, 0}, R"("mass": 2)") + ", " +
                       Object("b", kCube, {60, 50, 0}, R"("mass": 2)"),
                   R"("a", "b")");
  scene.RunTo(3);
  ASSERT_TRUE(scene.MeshOf("b")->HasBody());
  const double height = scene.HeightOf("a");
  scene.loaded->document->FindByName("b")->RemoveTag(host::kObstacleTag);
  scene.RunTo(6);
  EXPECT_FALSE(scene.MeshOf("b")->HasBody());
  EXPECT_LT(scene.HeightOf("a"), height) << "the other one goes on";
}

// Contacts start anew with each frame: a box must not tip over those that were found first.
TEST(BulletWorld, ABoxThatLiesSleeps) {
  FloorScene scene(Object("a", R"("box", "size": [24, 24, 24])", {50, 14, 0}, R"("mass": 4)"),
                   R"("a")");
  scene.RunTo(80);
  EXPECT_FALSE(scene.IsAwake("a"));
}

TEST(BulletWorld, AFlatSheetWithAMassFalls) {
  FloorScene scene(Object("sheet", R"("plane", "size": [40, 30])", {0, 100, 0}, R"("mass": 2)"),
                   R"("sheet")");
  scene.RunTo(10);
  EXPECT_NEAR(scene.HeightOf("sheet"), 1 - 0.5 * 9.81 * 0.4 * 0.4, 1e-6);
  scene.RunTo(99);
  EXPECT_GT(scene.HeightOf("sheet"), 0) << "and lies on the floor";
  EXPECT_LT(scene.HeightOf("sheet"), 0.02);
}

/// Pushes the box as gravity of `change` m/s^2 along x would.
std::string Gust(double change) {
  return fmt::format(R"({{"type": "mesh", "name": "box mesh", "parameters": {{"object": "box"}}}},
      {{"type": "volume", "name": "box volume", "parameters": {{"mesh": "box mesh"}}}},
      {{"type": "force_gravity", "name": "gust", "parameters": {{"acceleration": [{}, 0, 0]}}}},
      {{"type": "rigid_forces", "name": "blow",
        "parameters": {{"volumes": ["box volume"], "forces": ["gust"]}}}},)",
                     change);
}

TEST(BulletWorld, ASleeperWakesByAForceAboveItsThreshold) {
  for (const double push : {1.0, 3.0}) {
    BodyScene scene(Object("box", kCube, {0, 100, 0}, R"("mass": 5, "wake_on_force": true)"), "",
                    Gust(push));
    scene.RunTo(20);
    const Vec3d way = scene.Body("box").Pose().centre - Vec3d{0, 1, 0};
    if (push * 5 > 10)
      EXPECT_GT(way.x, 0.1) << push;
    else
      EXPECT_LT(Length(way), 1e-6) << push;
  }
}

TEST(BulletWorld, SceneForcesActFromTheFirstStepOnAsGravityDoes) {
  for (const char* steps : {"", R"(, "time_mode": "fixed_substeps", "extra_substeps": 3)"}) {
    BodyScene scene(Object("box", kCube, {0, 100, 0}, R"("mass": 5)"), "", Gust(3),
                    std::string(R"("gravity": [0, 0, 0])") + steps);
    for (const i32 frame : {1, 2, 10}) {
      scene.RunTo(frame);
      const double t = 0.04 * frame;
      EXPECT_NEAR(scene.Body("box").Pose().centre.x, 0.5 * 3 * t * t, 1e-9) << frame << steps;
    }
  }
}

// The animation holds what the statistics tell, and an object that a file moves goes the same way.
TEST(BulletWorld, ABakedMotionIsPlayedAgain) {
  const std::string box = R"({"name": "box", "type": "box", "size": [20, 30, 10],
      "position": [0, 80, 0], "rotation": [20, 30, 10], "scale": [1, 1.5, 1], "obstacle": )";
  FloorScene scene(box + R"({"mass": 2}})", R"("box")");
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("sulva_bake" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  BodyPath path{"box", {}, {}, {}};
  std::vector<Matrix> placed;
  for (i32 frame = 0; frame <= 20; ++frame) {
    scene.RunTo(frame);
    FrameRecord record;
    MeasureScene(*scene.simulation->Scenes().front(),
                 NodeNames(*scene.loaded->document, NodeNames::Among::SameList), record);
    const auto body = std::find_if(record.bodies.begin(), record.bodies.end(),
                                   [](const BodyRecord& b) { return b.name == "box"; });
    ASSERT_NE(body, record.bodies.end());
    path.frames.push_back(frame);
    path.centres.push_back(body->position);
    path.rotations.push_back(
        {body->rotation[0], body->rotation[1], body->rotation[2], body->rotation[3]});
    placed.push_back(scene.loaded->document->FindByName("box")->GlobalMatrix());
  }
  FloorScene still(box + R"({"mass": 2}})", R"("box")");
  std::ofstream(folder / "bodies.glb", std::ios::binary)
      << EncodeBodies(*still.loaded->document, {path},
                      scene.simulation->Scenes().front()->mDomain.worldToSim)
             .bytes;
  FloorScene played(box + R"({}, "placements": ")" + (folder / "bodies.glb").string() + "\"}",
                    R"("box")");
  host::BaseNode* object = played.loaded->document->FindByName("box");
  for (i32 frame = 0; frame <= 20; ++frame) {
    object->Animate(frame);
    const Matrix m = object->GlobalMatrix(), wanted = placed[static_cast<std::size_t>(frame)];
    // In single precision, in host units.
    EXPECT_LT(Length(m.offset - wanted.offset), 1e-4) << frame;
    EXPECT_LT(Length(m.v1 - wanted.v1) + Length(m.v2 - wanted.v2) + Length(m.v3 - wanted.v3), 1e-5)
        << frame;
  }
  object->Animate(7.5);
  const Vec3d middle = (placed[7].offset + placed[8].offset) * 0.5;
  EXPECT_LT(Length(object->GlobalMatrix().offset - middle), 1e-4) << "straight between frames";
  EXPECT_THROW(host::ReadPlacements(folder / "bodies.glb", "ball", 25), host::MeshFileError);
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
