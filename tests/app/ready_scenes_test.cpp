// Every ready-made scene and every small end-to-end scene runs, moves and warns of nothing.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

struct SceneRun {
  int status = -1;
  std::string errors;
  std::vector<json> frames;
};

/// Runs a scene's first frames, coarser than it is, in a folder of its own.
SceneRun RunCoarsely(const fs::path& scene, double cellSize, int last) {
  const fs::path out = fs::temp_directory_path() / ("sulva_ready_" + scene.stem().string());
  fs::remove_all(out);
  fs::create_directories(out);
  std::ostringstream command;
  command << '"' << SULVA_BINARY << "\" run \"" << scene.string()
          << "\" --quiet --frames 0:" << last << " --out \"" << (out / "run").string()
          << "\" --set scene.cell_size=" << cellSize << " 2> \"" << (out / "errors").string()
          << '"';
  SceneRun run;
  run.status = std::system(command.str().c_str());
  std::ifstream errors(out / "errors");
  run.errors.assign(std::istreambuf_iterator<char>(errors), {});
  std::ifstream lines(out / "run" / "stats.jsonl");
  for (std::string line; std::getline(lines, line);)
    if (json value = json::parse(line); value.contains("frame")) run.frames.push_back(value);
  fs::remove_all(out);
  return run;
}

std::vector<fs::path> ScenesIn(const char* folder) {
  std::vector<fs::path> found;
  const fs::path path = fs::path(SULVA_SOURCE_DIR) / folder;
  if (fs::is_directory(path))
    for (const auto& entry : fs::directory_iterator(path))
      if (entry.path().extension() == ".json") found.push_back(entry.path());
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

class ReadyScene : public testing::TestWithParam<fs::path> {};

TEST_P(ReadyScene, RunsWithoutAWarning) {
  constexpr int last = 12;
  const SceneRun run = RunCoarsely(GetParam(), 0.1, last);
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  ASSERT_EQ(run.frames.size(), last + 1u);
  const json& end = run.frames.back();
  EXPECT_FALSE(end["channels"].empty());
  for (const auto& [name, channel] : end["channels"].items())
    EXPECT_GT(channel["sum"].get<double>(), 0) << name;
  ASSERT_FALSE(end["solvers"].empty());
  for (const auto& [name, solver] : end["solvers"].items()) {
    const double speed = solver["max_speed"].get<double>();
    if (GetParam().stem() == "box")
      EXPECT_EQ(speed, 0) << "gas in a closed box at rest stays at rest";
    else
      EXPECT_GT(speed, 0.01) << name;
    EXPECT_LT(solver["divergence_max"].get<double>(), 1e-4) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Scenes, ReadyScene, testing::ValuesIn(ScenesIn("scenes")),
                         [](const auto& scene) { return scene.param.stem().string(); });

INSTANTIATE_TEST_SUITE_P(SmallScenes, ReadyScene, testing::ValuesIn(ScenesIn("tests/scenes")),
                         [](const auto& scene) { return scene.param.stem().string(); });
