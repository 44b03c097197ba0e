// Liquids and their surfaces, recorded and played back by whole scenes.
#include <gmock/gmock.h>

#include "cli/run_folder.h"
#include "exchange/particle_files.h"
#include "host/mesh_files.h"
#include "paths.h"

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

namespace MELDO_GLOBAL::app {
namespace {

/// A small fall of water with a surface, and what records both.
const char* const kScene = R"({ "sulva": 1, "fps": 25, "range": [0, 5],
"objects": [{ "name": "block", "type": "box", "size": [60, 60, 60], "position": [0, 60, 0] }],
"nodes": [{ "type": "server", "name": "scene", "parameters": { "cell_size": 0.1, "extra_substeps": 1 },
  "children": [
    { "type": "particlegroup", "name": "water" },
    { "type": "mesh", "name": "block mesh", "parameters": { "object": "block" } },
    { "type": "volume", "name": "block volume", "parameters": { "mesh": "block mesh" } },
    { "type": "duration", "name": "start", "parameters": { "length": 0.001 } },
    { "type": "particlemesh_emission_setting", "name": "once", "parameters": { "duration": "start", "jitter": 0.5 } },
    { "type": "particlegridemitter", "name": "fill", "parameters": { "group": "water", "volume": "block volume", "settings": "once" } },
    { "type": "particle_advection", "name": "move", "parameters": { "group": "water" } },
    { "type": "force_gravity", "name": "gravity" },
    { "type": "liquid", "name": "liquid", "position": [-60, 0, -60],
      "parameters": { "box_size": [120, 120, 120], "groups": ["water"], "forces": ["gravity"] } },
    { "type": "surface_reconstruction", "name": "surface", "parameters": { "source": "water" } },
    { "type": "mesher", "name": "skin", "parameters": { "source": "surface" } },
    { "type": "cache_particle", "name": "drops", "parameters": { "mode": "record", "compression": "fast", "objects": ["water"] } },
    { "type": "cache_mesh", "name": "skins", "parameters": { "mode": "record", "objects": ["skin"] } } ] }],
"exports": [{ "format": "points", "file": "points/####.ply", "particles": "water" },
            { "format": "mesh", "file": "mesh/####.ply", "mesh": "skin" }] })";

/// The exports of a run, without what tells of the simulation they are of.
std::map<std::string, std::string> Exports(const RunFolder& folder, const std::string& out) {
  std::map<std::string, std::string> exports;
  for (const auto& [name, bytes] : folder.Files(out))
    if (name.starts_with("points/") || name.starts_with("mesh/"))
      exports[name] = bytes.substr(bytes.find("element vertex"));
  return exports;
}

/// A point of an exported file.
struct Point {
  Vec3d place, velocity;
};
std::vector<Point> PointsOf(const fs::path& path) {
  const exchange::ParticleTable table = exchange::ReadParticles(path);
  const auto &places = *table.Find("position", 3), &velocities = *table.Find("velocity", 3);
  const auto at = [](const exchange::ParticleColumn& column, i64 row) {
    return Vec3d{column.At(row, 0), column.At(row, 1), column.At(row, 2)};
  };
  std::vector<Point> points;
  for (i64 row = 0; row < table.Count(); ++row)
    points.push_back({at(places, row), at(velocities, row)});
  return points;
}

void Record(const RunFolder& folder) {
  folder.Write("s.json", kScene);
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "o", "--quiet", "--threads", "1"}), 0)
      << folder.Errors();
  EXPECT_EQ(folder.Errors(), "");
}

}  // namespace

TEST(LiquidReplay, PlaysBackWithTheSameBytes) {
  const RunFolder folder("liquid");
  Record(folder);
  const auto recorded = Exports(folder, "o");
  ASSERT_EQ(recorded.size(), 12u);
  const auto play = [&](std::initializer_list<std::string> sets) {
    std::vector<std::string> run = {"run", "s.json", "--out", "p", "--quiet", "--threads", "2"};
    for (const std::string& set : sets) run.insert(run.end(), {"--set", set});
    fs::remove_all(folder.Path() / "p");
    fs::create_directories(folder.Path() / "p");
    fs::copy(folder.Path() / "o/cache", folder.Path() / "p/cache");
    EXPECT_EQ(folder.Run(run), 0) << folder.Errors();
    EXPECT_EQ(folder.Errors(), "");
    return Exports(folder, "p");
  };
  EXPECT_TRUE(play({"drops.mode=play_back", "skins.mode=play_back"}) == recorded);
  EXPECT_TRUE(play({"drops.mode=both", "skins.mode=both"}) == recorded);
  // The surface of played water, made anew, is the one that was made then.
  EXPECT_TRUE(play({"drops.mode=play_back", "skins.mode=record"}) == recorded);
  const auto back = play({"drops.mode=play_back", "drops.backwards=true", "skins.mode=record"});
  const auto was = PointsOf(folder.Path() / "o/points/0004.ply"),
             is = PointsOf(folder.Path() / "p/points/0001.ply");
  ASSERT_EQ(is.size(), was.size());
  for (std::size_t i = 0; i < is.size(); ++i) {
    EXPECT_EQ(is[i].place, was[i].place);
    EXPECT_EQ(is[i].velocity, -was[i].velocity) << "what goes back moves back";
  }
  const host::Geometry first = host::LoadMesh(folder.Path() / "o/mesh/0000.ply"),
                       last = host::LoadMesh(folder.Path() / "p/mesh/0005.ply");
  EXPECT_TRUE(last.points == first.points);
  ASSERT_EQ(last.velocities.size(), first.velocities.size());
  EXPECT_EQ(last.velocities.back(), -first.velocities.back());
}

TEST(LiquidReplay, WaterFillsAsMuchInOtherCells) {
  const RunFolder folder("liquid_cells");
  Record(folder);
  const auto volumeIn = [&](const std::string& out) {
    std::istringstream lines(ReadAll(folder.Path() / out / "stats.jsonl"));
    std::string line;
    for (int frame = 0; frame < 2; ++frame) std::getline(lines, line);
    return nlohmann::json::parse(line)["meshes"]["skin"]["volume"].get<double>();
  };
  const double recorded = volumeIn("o");
  EXPECT_NEAR(recorded, 0.216, 0.02);
  for (const char* cell : {"0.05", "0.07", "0.15"}) {
    fs::remove_all(folder.Path() / "p");
    fs::create_directories(folder.Path() / "p");
    fs::copy(folder.Path() / "o/cache", folder.Path() / "p/cache");
    ASSERT_EQ(folder.Run({"run", "s.json", "--out", "p", "--quiet", "--frames", "0:1", "--set",
                          std::string("scene.cell_size=") + cell, "--set", "drops.mode=play_back",
                          "--set", "skins.mode=record"}),
              0)
        << folder.Errors();
    EXPECT_NEAR(volumeIn("p"), recorded, 0.05 * recorded) << cell;
  }
}

TEST(LiquidReplay, SimulationGoesOnWhereTheRecordingEnds) {
  const RunFolder folder("liquid_goes_on");
  Record(folder);
  fs::create_directories(folder.Path() / "p");
  fs::copy(folder.Path() / "o/cache", folder.Path() / "p/cache");
  for (const char* name : {"sulva_particle_frame0000", "sulva_mesh_frame0000"})
    for (int frame = 3; frame <= 5; ++frame)
      for (const char* suffix : {".cache", ".mcache"})
        fs::remove(folder.Path() / "p/cache" / (name + std::to_string(frame) + suffix));
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "p", "--quiet", "--set", "drops.mode=both",
                        "--set", "skins.mode=both"}),
            0)
      << folder.Errors();
  // Falling freely, each particle is where it was to a hundredth of what gravity moves it in a
  // frame, 0.0157 m, and as fast to one of what gravity adds, 0.39 m/s.
  constexpr double kNear = 2e-4, kAsFast = 4e-3;
  for (int frame = 3; frame <= 5; ++frame) {
    const std::string name = "points/000" + std::to_string(frame) + ".ply";
    const auto was = PointsOf(folder.Path() / "o" / name),
               is = PointsOf(folder.Path() / "p" / name);
    ASSERT_EQ(is.size(), was.size());
    for (std::size_t i = 0; i < is.size(); ++i) {
      ASSERT_LT(Length(is[i].place - was[i].place), kNear) << frame;
      ASSERT_LT(Length(is[i].velocity - was[i].velocity), kAsFast) << frame;
    }
  }
}

TEST(LiquidReplay, RecordingsBecomeFilesOfOtherTools) {
  const RunFolder folder("liquid_convert");
  Record(folder);
  const auto convert = [&](const char* from, const char* to) {
    EXPECT_EQ(folder.Run({"convert", from, to, "--frames", "2:3"}), 0) << folder.Errors();
    return folder.Answers();
  };
  const std::string told = convert("o/cache/sulva_particle_frame#####.cache", "drops.###.ply");
  EXPECT_THAT(told, HasSubstr("drops.002.ply: "));
  EXPECT_THAT(told, HasSubstr(" particles: water (liquid) "));
  // Once for the series.
  EXPECT_THAT(folder.Errors(), HasSubstr("the format has no place for the texts of 'group'"));
  EXPECT_EQ(folder.Errors().find("drops.003"), std::string::npos) << folder.Errors();
  const auto exported = PointsOf(folder.Path() / "o/points/0003.ply"),
             converted = PointsOf(folder.Path() / "drops.003.ply");
  ASSERT_EQ(converted.size(), exported.size());
  for (std::size_t i = 0; i < converted.size(); ++i) {
    ASSERT_EQ(converted[i].place, exported[i].place);
    ASSERT_EQ(converted[i].velocity, exported[i].velocity);
  }
  convert("o/cache/sulva_particle_frame#####.cache", "drops.###.geo");
  EXPECT_THAT(ReadAll(folder.Path() / "drops.003.geo"),
              HasSubstr("group 1 index 4 \"water (passive)\" \"water (vorticity)\""));
  for (const char* to : {"skin.###.ply", "skin.###.obj", "skin.###.glb"})
    EXPECT_THAT(convert("o/cache/sulva_mesh_frame#####.mcache", to), HasSubstr(": skin "));
  const host::Geometry mesh = host::LoadMesh(folder.Path() / "skin.003.ply"),
                       metres = host::LoadMesh(folder.Path() / "o/mesh/0003.ply");
  ASSERT_EQ(mesh.points.size(), metres.points.size());
  ASSERT_EQ(mesh.velocities.size(), metres.points.size());
  EXPECT_LT(Length(mesh.velocities.front() * 0.01 - metres.velocities.front()), 1e-6);
  EXPECT_THAT(ReadAll(folder.Path() / "skin.003.obj"), HasSubstr("o skin\n"));
  EXPECT_EQ(folder.Run({"convert", "o/cache/sulva_mesh_frame#.mcache", "skin.#.stl"}), 5);
  EXPECT_THAT(folder.Errors(), HasSubstr("did you mean o/cache/sulva_mesh_frame#####.mcache?"));
}

TEST(LiquidReplay, CommandsTellOfItsFilesAndMissThem) {
  const RunFolder folder("liquid_info");
  Record(folder);
  const auto ask = [&](const std::vector<std::string>& words, int code) {
    EXPECT_EQ(folder.Run(words), code) << folder.Errors();
    return folder.Answers();
  };
  const std::string drops = ask({"info", "o/cache/sulva_particle_frame00003.cache"}, 0);
  EXPECT_THAT(drops, HasSubstr("a frame of a particle cache"));
  EXPECT_THAT(drops, HasSubstr("Particle Groups: 4\n"));
  EXPECT_THAT(drops, HasSubstr("water (liquid) [m]"));
  EXPECT_THAT(drops, HasSubstr("Length: 6(0 - 5)\n"));
  const std::string skin = ask({"info", "o/cache/sulva_mesh_frame00003.mcache"}, 0);
  EXPECT_THAT(skin, HasSubstr("a frame of a mesh cache"));
  EXPECT_THAT(skin, HasSubstr(", normals, velocities\n"));
  EXPECT_THAT(skin, HasSubstr("Length: 6(0 - 5)\n"));
  EXPECT_THAT(ask({"cache", "scan", "s.json", "--out", "o"}, 0), HasSubstr("Meshers: 1\n"));
  EXPECT_THAT(ask({"verify", "o"}, 0), HasSubstr("24 files, all whole"));
  fs::remove(folder.Path() / "o/cache/sulva_mesh_frame00003.mcache");
  std::ofstream(folder.Path() / "o/cache/sulva_particle_frame00002.cache", std::ios::app) << "x";
  EXPECT_THAT(ask({"verify", "o"}, 5), HasSubstr("2 findings"));
  ask({"cache", "delete", "s.json", "--out", "o", "--yes"}, 0);
  EXPECT_TRUE(fs::is_empty(folder.Path() / "o/cache"));
}

TEST(LiquidReplay, SetUpRecordsWithACacheOfEachKind) {
  const RunFolder folder("liquid_setup");
  std::string plain = kScene;
  plain.erase(
      plain.find(",\n    { \"type\": \"cache_particle\""),
      plain.find(" ] }],\n\"exports\"") - plain.find(",\n    { \"type\": \"cache_particle\""));
  folder.Write("s.json", plain);
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "--set", "scene.cache_name=take_"}), 0)
      << folder.Errors();
  const std::string text = ReadAll(folder.Path() / "s.json");
  EXPECT_THAT(
      text,
      HasSubstr(
          R"("type": "cache", "name": "cacher", "parameters": { "mode": "record", "base_name": "take_", "objects": ["liquid"] })"));
  EXPECT_THAT(text, HasSubstr(R"("base_name": "take_particles_", "objects": ["water"])"));
  EXPECT_THAT(text, HasSubstr(R"("type": "cache_mesh", "name": "mesh cacher")"));
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "o", "--quiet", "--frames", "0:2"}), 0);
  EXPECT_EQ(folder.Errors(), "");
  const auto recorded = Exports(folder, "o");
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "water", "skin", "--out", "p.json", "--set",
                        "scene.cache_setup_mode=new_server", "--set", "scene.cache_name=take_"}),
            0)
      << folder.Errors();
  EXPECT_EQ(folder.Run({"check", "p.json"}), 0) << folder.Errors();
}

TEST(LiquidReplay, ReadySceneMeshesFinerWhatTheDamBreakRecorded) {
  const RunFolder folder("dam");
  const std::string scenes = SourcePath("/scenes/");
  ASSERT_EQ(folder.Run({"run", scenes + "dam_break.json", "--out", "dam", "--quiet", "--frames",
                        ":3", "--set", "scene.cell_size=0.1"}),
            0)
      << folder.Errors();
  const std::vector<std::string> replay = {
      "run",
      scenes + "replay_liquid.json",
      "--out",
      "replay",
      "--quiet",
      "--frames",
      ":3",
      "--set",
      "scene.cell_size=0.1",
      "--set",
      "playback.custom_folder=" + (folder.Path() / "dam/cache").string()};
  ASSERT_EQ(folder.Run(replay), 0) << folder.Errors();
  EXPECT_EQ(folder.Errors(), "");
  const auto frames = [&](const std::string& out) {
    std::vector<json> lines;
    std::istringstream text(ReadAll(folder.Path() / out / "stats.jsonl"));
    for (std::string line; std::getline(text, line);) lines.push_back(json::parse(line));
    return lines;
  };
  const auto dam = frames("dam"), played = frames("replay");
  for (int frame = 0; frame <= 3; ++frame) {
    const json &was = dam[frame]["particles"]["water"], &is = played[frame]["particles"]["water"];
    EXPECT_EQ(is["liquid"], was["liquid"]);
    EXPECT_EQ(is["centroid"], was["centroid"]);
    const json &coarse = dam[frame]["meshes"]["skin"], &fine = played[frame]["meshes"]["skin"];
    EXPECT_GT(fine["points"].get<double>(), 1.5 * coarse["points"].get<double>());
    EXPECT_NEAR(fine["volume"].get<double>(), coarse["volume"].get<double>(),
                0.1 * coarse["volume"].get<double>());
  }
}

}  // namespace MELDO_GLOBAL::app
