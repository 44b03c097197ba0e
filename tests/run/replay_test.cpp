// Recordings played back by whole scenes, and what the info and cache commands tell of them.
#include <gtest/gtest.h>

#include "cli/run_folder.h"
#include "paths.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace MELDO_GLOBAL::app {
namespace {

const std::string kScenes = SourcePath("/scenes/");
const std::string kRecorded = SourcePath("/tests/scenes/cache.json");

std::map<int, json> Frames(const RunFolder& folder, const std::string& out) {
  std::map<int, json> frames;
  std::istringstream lines(ReadAll(folder.Path() / out / "stats.jsonl"));
  for (std::string line; std::getline(lines, line);)
    if (const json value = json::parse(line); value.contains("frame"))
      frames[value["frame"].get<int>()] = value;
  return frames;
}

/// The bytes of a volume file of a run without its fingerprint, and the identifier that is made
/// from all of them.
std::string WithoutFingerprint(const std::map<std::string, std::string>& files,
                               const std::string& name) {
  std::string bytes = files.at(name);
  if (!name.starts_with("vdb/")) return bytes;
  bytes.replace(21, 36, "");
  const std::string& manifest = files.at("manifest.jsonl");
  const std::string head = manifest.substr(0, manifest.find('\n'));
  const std::string fingerprint = json::parse(head).at("simulation");
  std::size_t found = 0;
  for (std::size_t at; (at = bytes.find(fingerprint)) != std::string::npos; ++found)
    bytes.replace(at, fingerprint.size(), "");
  EXPECT_GT(found, 0u) << name << " has no fingerprint";
  return bytes;
}

}  // namespace

TEST(Replay, SameSceneGivesTheSameVolumesBack) {
  const RunFolder folder("same");
  ASSERT_EQ(folder.Run({"run", kRecorded, "--out", "o", "--quiet"}), 0) << folder.Errors();
  const auto recorded = folder.Files("o");
  fs::create_directories(folder.Path() / "p");
  fs::copy(folder.Path() / "o/cache", folder.Path() / "p/cache");
  ASSERT_EQ(
      folder.Run({"run", kRecorded, "--out", "p", "--quiet", "--set", "recording.mode=play_back"}),
      0);
  const auto played = folder.Files("p");
  int volumes = 0;
  for (const auto& [name, bytes] : recorded) {
    if (!name.starts_with("vdb/") && !name.starts_with("cache/")) continue;
    ASSERT_TRUE(played.contains(name)) << name;
    EXPECT_TRUE(WithoutFingerprint(played, name) == WithoutFingerprint(recorded, name)) << name;
    volumes += name.starts_with("vdb/");
  }
  EXPECT_EQ(volumes, 21);
  const auto frames = Frames(folder, "p");
  EXPECT_GT(frames.at(20)["solvers"]["gas"]["max_speed"].get<double>(), 0.1);
  EXPECT_TRUE(frames.at(20)["solvers"]["gas"]["pressure"].empty()) << "nothing was simulated";
}

TEST(Replay, FinerSceneShowsWhatThePlumeRecorded) {
  const RunFolder folder("finer");
  ASSERT_EQ(folder.Run({"run", kScenes + "plume.json", "--out", "plume", "--quiet", "--frames",
                        ":12", "--set", "scene.cell_size=0.1"}),
            0)
      << folder.Errors();
  ASSERT_EQ(
      folder.Run({"run", kScenes + "replay.json", "--out", "replay", "--quiet", "--frames", ":12",
                  "--set", "scene.cell_size=0.05", "--set", "playback.resampling=linear", "--set",
                  "playback.custom_folder=" + (folder.Path() / "plume/cache").string()}),
      0)
      << folder.Errors();
  EXPECT_EQ(folder.Errors(), "");
  auto plume = Frames(folder, "plume"), replay = Frames(folder, "replay");
  ASSERT_EQ(replay.size(), 13u);
  for (int frame = 2; frame <= 12; ++frame)
    for (const char* name : {"smoke", "heat"}) {
      const json &coarse = plume[frame]["channels"][name], &fine = replay[frame]["channels"][name];
      for (int a = 0; a < 3; ++a)
        EXPECT_NEAR(fine["dims"][a].get<double>(), 2 * coarse["dims"][a].get<double>(), 2);
      const double sum = coarse["sum"].get<double>();
      EXPECT_GT(sum, 0);
      // Eight samples a quarter of a cell off: linear weights keep the sum.
      EXPECT_NEAR(fine["sum"].get<double>() / 8, sum, 1e-6 * sum) << name << " in frame " << frame;
    }
}

TEST(Replay, SceneWithoutItsRecordingSaysSo) {
  const RunFolder folder("missing");
  const std::vector<std::string> run = {"run", kScenes + "replay.json", "--out", "o", "--frames",
                                        ":0"};
  EXPECT_EQ(folder.Run(run), 5);
  EXPECT_NE(folder.Errors().find("sulva_grid_frame00000.cache could not be found!"),
            std::string::npos)
      << folder.Errors();
  EXPECT_NE(folder.Errors().find("error: cache \"playback\": cannot play "), std::string::npos)
      << folder.Errors();
  std::vector<std::string> goes = run;
  goes.insert(goes.end(), {"--set", "playback.go_on_after_failure=true"});
  EXPECT_EQ(folder.Run(goes), 0);
  EXPECT_NE(folder.Errors().find("cache \"playback\" is inactive: it has no file for the frame"),
            std::string::npos)
      << folder.Errors();
}

TEST(Replay, CommandsTellWhatFilesHold) {
  const RunFolder folder("info");
  ASSERT_EQ(folder.Run({"run", kRecorded, "--out", "o", "--quiet", "--frames", ":4", "--checkpoint",
                        "2", "--set", "recording.compression=fast"}),
            0);
  const auto info = [&](const std::string& file) {
    EXPECT_EQ(folder.Run({"info", file}), 0) << folder.Errors();
    return folder.Answers();
  };
  const std::string cache = info("o/cache/sulva_grid_frame00004.cache");
  for (const char* text : {"3 components", "packed", "Grids: 2", "Grid Type (1): Fuel",
                           "Grid Type (2): Velocity U", "Length: 5(0 - 4)", "Missing Frames: 0"})
    EXPECT_NE(cache.find(text), std::string::npos) << text << " in\n" << cache;
  const std::string checkpoint = info("o/checkpoints/00003.checkpoint");
  EXPECT_NE(checkpoint.find("behind frame 3; frames written so far: 4"), std::string::npos)
      << checkpoint;
  const std::string volumes = info("o/vdb/0004.vdb");
  EXPECT_NE(volumes.find("density: float, fog volume, voxel size 0.15"), std::string::npos)
      << volumes;
  EXPECT_NE(volumes.find("active voxels"), std::string::npos) << volumes;

  // Files that are none of these, or not whole.
  folder.Write("text", "some text that is long enough");
  const std::string whole = ReadAll(folder.Path() / "o/vdb/0004.vdb");
  for (std::size_t length = 12; length < whole.size(); length += whole.size() / 37 + 1) {
    folder.Write("short.vdb", whole.substr(0, length));
    EXPECT_EQ(folder.Run({"info", "short.vdb"}), 5) << length;
    EXPECT_LT(folder.Errors().size(), 300U) << length;
  }
  folder.Write("short.cache",
               ReadAll(folder.Path() / "o/cache/sulva_grid_frame00004.cache").substr(0, 99));
  for (const char* file : {"text", "short.vdb", "short.cache", "nowhere", "o"}) {
    EXPECT_EQ(folder.Run({"info", file}), 5) << file;
    EXPECT_NE(folder.Errors().find(file), std::string::npos) << folder.Errors();
  }

  EXPECT_EQ(folder.Run({"cache", "scan", kRecorded, "--out", "o"}), 0);
  EXPECT_NE(folder.Answers().find("cache \"recording\": 5 files in o/cache"), std::string::npos)
      << folder.Answers();
  EXPECT_EQ(folder.Run({"cache", "delete", kRecorded, "--out", "o", "--node", "other"}), 2);
  EXPECT_EQ(folder.Run({"cache", "delete", kRecorded, "--out", "o", "--yes"}), 0);
  EXPECT_TRUE(fs::is_empty(folder.Path() / "o/cache"));
}

}  // namespace MELDO_GLOBAL::app
