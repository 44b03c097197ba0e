// What groups and mesh operators do to the small scenes that hold them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "cli/run_folder.h"
#include "fluids/fields/channel.h"
#include "fluids/volume/multi_volume.h"
#include "framework/server_rows.h"
#include "grids/sampling.h"
#include "io/mesh_table.h"
#include "nodes/catalogue.h"
#include "paths.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::MELDO_SULVA {
namespace {

struct SmallScene {
  explicit SmallScene(const std::string& name, i32 lastFrame = 1) {
    app::Diagnostics diagnostics;
    loaded = app::LoadScene(SourcePath("/tests/scenes/") + name + ".json", diagnostics);
    if (!loaded) throw std::runtime_error(testing::PrintToString(diagnostics.Lines()));
    scene = CreateScene(*loaded->server);
    for (i32 frame = 0; frame <= lastFrame; ++frame) {
      loaded->document->SetFrame(frame);
      EXPECT_TRUE(scene->Execute(&host::MainThread(), false));
    }
  }
  template <class T>
  T& Get(const std::string& name) const {
    return dynamic_cast<T&>(*scene->FindObject(loaded->document->FindByName(name), kListAll));
  }
  double SmokeAt(const Vec3d& p) const {
    const EGrid<double>* grid = Get<ScalarField>("smoke").GetGrid(0);
    return grid && grid->mLayout.Contains(p, false) ? SampleLinear(*grid, grid->ToSamples(p)) : 0;
  }

  std::optional<app::LoadedScene> loaded;
  std::unique_ptr<SulvaScene> scene;
};

TEST(MeshScenes, AGroupOfVolumesEmitsFromAllAndStandsInTheWayWithAll) {
  SmallScene s("volume_multi");
  for (const double x : {-0.5, 0.5}) {
    EXPECT_GT(s.SmokeAt({x, 0.4, 0}), 0.1) << x;
    EXPECT_TRUE(s.Get<MultiVolume>("shelves").IsInsideWorld({x, 1.2, 0})) << x;
  }
  EXPECT_LT(s.SmokeAt({0, 0.4, 0}), 0.05) << "between the balls";
  EXPECT_EQ(s.Get<MultiVolume>("shelves").GetMemberCount(), 2) << "one for each mesh of the group";
}

TEST(MeshScenes, AGroupOfMeshesIsASourceOfPoints) {
  SmallScene s("mesh_multi");
  EXPECT_GT(s.SmokeAt({-0.5, 0.6, 0.3}), 0.1) << "the ring that lies";
  EXPECT_GT(s.SmokeAt({0.5, 0.9, 0}), 0.1) << "the ring that stands";
  EXPECT_LT(s.SmokeAt({-0.5, 0.9, 0}), 0.05);
  EXPECT_LT(s.SmokeAt({0.5, 0.6, 0.3}), 0.05);
}

TEST(MeshScenes, SmoothingThinsTheSource) {
  SmallScene s("mop_smoothing");
  const double thin = s.Get<VolumeMesh>("ring volume").VoxelVolume();
  s.loaded->document->FindByName("smoother")->SetEnabled(false);
  for (const i32 frame : {2, 3}) {
    s.loaded->document->SetFrame(frame);
    EXPECT_TRUE(s.scene->Execute(&host::MainThread(), false));
  }
  const double whole = s.Get<VolumeMesh>("ring volume").VoxelVolume();
  // Twelve corners round the tube, 24 round the ring, in cells of 0.1.
  EXPECT_NEAR(whole, 3 * 0.25 * 0.25 * 2 * M_PI * 0.5, 0.1);
  EXPECT_LT(thin, 0.7 * whole);
  EXPECT_GT(thin, 0.02 * whole);
}

TEST(MeshScenes, CurvatureIsMeasuredThroughTheVolume) {
  SmallScene s("mop_curvature");
  const TriMeshSTL& mesh = s.Get<Mesh>("ball mesh").mMesh;
  const std::vector<double>& curvature = mesh.mColumns.curvature;
  ASSERT_EQ(curvature.size(), mesh.GetVertices().size());
  for (std::size_t i = 0; i < curvature.size(); ++i) {
    const double fromPole = 0.4 - std::abs(mesh.GetVertices()[i].y - 0.6);
    if (fromPole > 0.1) {
      EXPECT_NEAR(curvature[i], 2 / 0.4, 0.3) << i;
    }
  }
}

/// The parts of a mesh that hang together by its polygons, of which each is a sphere with handles.
i64 CountParts(const app::MeshTable& mesh) {
  std::vector<i32> top(mesh.points.size());
  std::iota(top.begin(), top.end(), 0);
  const auto find = [&](i32 i) {
    while (top[i] != i) i = top[i] = top[top[i]];
    return i;
  };
  mesh.ForEachTriangle([&](i32 a, i32 b, i32 c) {
    top[find(a)] = find(b);
    top[find(b)] = find(c);
  });
  i64 parts = 0;
  for (i32 i = 0; i < static_cast<i32>(top.size()); ++i) parts += find(i) == i;
  return parts;
}

/// A file of a ready-made scene or of a small one, in coarse cells, frame by frame.
void ExpectClosedSkins(const std::string& file, i32 lastFrame) {
  app::Diagnostics diagnostics;
  const auto loaded = app::LoadScene(SourcePath(file), diagnostics);
  ASSERT_TRUE(loaded) << testing::PrintToString(diagnostics.Lines());
  loaded->server->Set(server_row::kCellSize, 0.1);
  const auto scene = CreateScene(*loaded->server);
  auto* skin = dynamic_cast<host::PolygonObject*>(loaded->document->FindByName("skin"));
  ASSERT_TRUE(skin);
  i64 most = 0;
  for (i32 frame = 0; frame <= lastFrame; ++frame) {
    loaded->document->SetFrame(frame);
    ASSERT_TRUE(scene->Execute(&host::MainThread(), false));
    const app::MeshTable mesh = app::TableOf(*skin, scene->mDomain.worldToSim);
    if (mesh.points.empty()) continue;
    EXPECT_EQ(app::CountOpenEdges(mesh), 0) << file << frame;
    const i64 faces = static_cast<i64>(mesh.polygons.size());
    ASSERT_EQ(faces % 2, 0);
    const i64 euler = static_cast<i64>(mesh.points.size()) - faces * 3 / 2 + faces;
    const i64 parts = CountParts(mesh);
    EXPECT_EQ(euler % 2, 0) << file << frame;
    EXPECT_LE(euler, 2 * parts) << "no point without a polygon, and no part that isn't closed";
    EXPECT_GT(app::Measure(mesh).volume, 0) << "turned outwards";
    EXPECT_EQ(mesh.velocities.size(), mesh.points.size());
    most = std::max(most, parts);
  }
  EXPECT_GT(most, 1) << file << ": drops";
}

TEST(MeshScenes, SkinsOfWaterAreClosedInEveryFrame) {
  ExpectClosedSkins("/tests/scenes/meshed_splash.json", 30);
  ExpectClosedSkins("/scenes/dam_break.json", 40);
  ExpectClosedSkins("/scenes/splash.json", 30);
  ExpectClosedSkins("/scenes/tap.json", 40);
}

/// A picture of a plate alone, and what is told of the empty file of another that is switched off.
TEST(MeshScenes, PicturesShowMeshesAndFilesMayBeEmpty) {
  const app::RunFolder folder("mesh_png");
  const auto write = [&](const std::string& name, const std::string& size) {
    folder.Write(name, R"({ "sulva": 1, "range": [0, 0],
      "objects": [ { "name": "plate", "type": "box", "size": )" +
                           size + R"( } ],
      "nodes": [ { "type": "server", "name": "scene", "children": [
        { "type": "particlegroup", "name": "water" },
        { "type": "surface_reconstruction", "name": "surface", "parameters": { "source": "water" } },
        { "type": "mesher", "name": "skin", "parameters": { "source": "surface" } } ] } ],
      "exports": [ { "format": "png", "file": "####.png", "meshes": ["plate", "skin"] },
                   { "format": "mesh", "file": "####.ply", "mesh": "skin" } ] })");
    EXPECT_EQ(folder.Run({"run", name, "--quiet", "--out", name + ".out"}), 0) << folder.Errors();
    return folder.Files(name + ".out");
  };
  const auto wide = write("wide.json", "[100, 100, 100]"),
             flat = write("flat.json", "[100, 20, 100]");
  EXPECT_GT(wide.at("0000.png").size(), 1000u);
  EXPECT_TRUE(wide.at("0000.png") != flat.at("0000.png"));
  ASSERT_EQ(folder.Run({"info", "wide.json.out/0000.ply"}), 0) << folder.Errors();
  EXPECT_NE(folder.Answers().find("  0 points, 0 polygons\n"), std::string::npos)
      << folder.Answers();
}

TEST(MeshScenes, ARecordedSurfaceGivesTheSameSkinWithoutItsWater) {
  const app::RunFolder folder("surface_cache");
  const auto write = [&](const std::string& name, const std::string& water,
                         const std::string& mode) {
    folder.Write(name, R"({ "sulva": 1, "range": [0, 2],
      "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "position": [0, 60, 0] } ],
      "nodes": [ { "type": "server", "name": "scene", "children": [
        { "type": "particlegroup", "name": "water" },
        { "type": "surface_reconstruction", "name": "surface", "parameters": { "source": "water" } },
        { "type": "mesher", "name": "skin", "parameters": { "source": "surface", "velocities": false } },)" +
                           water + R"(
        { "type": "cache", "name": "cache", "parameters": { "objects": ["surface"], "mode": ")" +
                           mode + R"(" } } ] } ],
      "exports": [ { "format": "mesh", "file": "mesh/####.ply", "mesh": "skin" } ] })");
  };
  write("record.json", R"(
        { "type": "mesh", "name": "ball mesh", "parameters": { "object": "ball" } },
        { "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" } },
        { "type": "particlemesh_emission_setting", "name": "full" },
        { "type": "particlegridemitter", "name": "fill",
          "parameters": { "group": "water", "volume": "ball volume", "settings": "full" } },)",
        "record");
  write("play.json", "", "play_back");
  ASSERT_EQ(folder.Run({"run", "record.json", "--quiet", "--out", "one"}), 0) << folder.Errors();
  std::filesystem::create_directories(folder.Path() / "two");
  std::filesystem::copy(folder.Path() / "one" / "cache", folder.Path() / "two" / "cache");
  ASSERT_EQ(folder.Run({"run", "play.json", "--quiet", "--out", "two"}), 0) << folder.Errors();
  const auto recorded = folder.Files("one"), played = folder.Files("two");
  EXPECT_GT(recorded.at("mesh/0002.ply").size(), 1000u);
  EXPECT_TRUE(recorded.at("mesh/0002.ply") == played.at("mesh/0002.ply"));
}

}  // namespace
}  // namespace MELDO_GLOBAL::MELDO_SULVA
