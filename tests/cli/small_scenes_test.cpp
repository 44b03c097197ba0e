// Small scenes that show a few kinds of nodes each. A file of the scene's name that ends in .expect
// says what its last frame holds, and which nodes that rests on:
//
//   { "last": { "/channels/smoke/sum": [99, 101], ... },   paths into the statistics, with bounds
//     "without": ["move smoke", ...] }                      each of them switched off breaks a
//     bound
#include <gtest/gtest.h>

#include <algorithm>

#include "cli/scene_run.h"
#include "paths.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

fs::path ExpectationsOf(fs::path scene) { return scene.replace_extension(".expect"); }

json ReadJson(const fs::path& path) {
  std::ifstream file(path);
  return json::parse(file, nullptr, true, true);
}

/// All frames of a scene.
SceneRun RunWhole(const fs::path& file, const json& scene) {
  return RunCoarsely(file, 0.1, scene["range"][1].get<int>(), "--threads 1");
}

/// What the last frame breaks of the expectations; empty where they hold.
std::vector<std::string> Broken(const json& expectations, const std::vector<json>& frames) {
  std::vector<std::string> broken;
  if (frames.empty()) return {"no frame"};
  for (const auto& [path, bounds] : expectations["last"].items()) {
    const json::json_pointer pointer(path);
    if (!frames.back().contains(pointer)) {
      broken.push_back(path + " is missing");
      continue;
    }
    const double value = frames.back()[pointer].get<double>();
    if (!(value >= bounds[0].get<double>() && value <= bounds[1].get<double>()))
      broken.push_back(path + " is " + json(value).dump() + ", not in " + bounds.dump());
  }
  return broken;
}

/// Switches the node of a name off; false if there is none.
bool SwitchOff(json& nodes, const std::string& name) {
  for (json& node : nodes) {
    if (node.value("name", "") == name) {
      node["enabled"] = false;
      return true;
    }
    if (node.contains("children") && SwitchOff(node["children"], name)) return true;
  }
  return false;
}

std::vector<fs::path> ScenesWithExpectations() {
  std::vector<fs::path> found;
  for (const auto& entry : fs::directory_iterator(fs::path(SourcePath()) / "tests/scenes"))
    if (entry.path().extension() == ".json" && fs::exists(ExpectationsOf(entry.path())))
      found.push_back(entry.path());
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

class SmallScene : public testing::TestWithParam<fs::path> {};

TEST_P(SmallScene, GivesWhatItsNodesAreFor) {
  const SceneRun run = RunWhole(GetParam(), ReadJson(GetParam()));
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  for (const std::string& what : Broken(ReadJson(ExpectationsOf(GetParam())), run.frames))
    ADD_FAILURE() << what;
}

TEST_P(SmallScene, GivesItNotWithoutThem) {
  const json expectations = ReadJson(ExpectationsOf(GetParam()));
  ASSERT_FALSE(expectations["without"].empty());
  const fs::path copy =
      fs::temp_directory_path() / ("sulva_without_" + GetParam().filename().string());
  for (const json& name : expectations["without"]) {
    json scene = ReadJson(GetParam());
    ASSERT_TRUE(SwitchOff(scene["nodes"], name.get<std::string>())) << name;
    std::ofstream(copy) << scene.dump();
    const SceneRun run = RunWhole(copy, scene);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_FALSE(Broken(expectations, run.frames).empty()) << "it doesn't rest on " << name;
  }
  fs::remove(copy);
}

INSTANTIATE_TEST_SUITE_P(Scenes, SmallScene, testing::ValuesIn(ScenesWithExpectations()),
                         [](const auto& scene) { return scene.param.stem().string(); });
