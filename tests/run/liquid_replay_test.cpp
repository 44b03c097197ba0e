// Liquids and their surfaces, recorded and played back by whole scenes.
#include <gmock/gmock.h>

#include "cli/run_folder.h"
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
  EXPECT_TRUE(back.at("points/0001.ply") == recorded.at("points/0004.ply"));
  EXPECT_TRUE(back.at("mesh/0005.ply") == recorded.at("mesh/0000.ply"));
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
