// Every ready-made scene and every small end-to-end scene runs, moves and warns of nothing. Those
// with expectations of their own are judged by these instead: see small_scenes_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "cli/scene_run.h"
#include "paths.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::vector<fs::path> ScenesIn(const char* folder) {
  std::vector<fs::path> found;
  const fs::path path = fs::path(SourcePath()) / folder;
  if (fs::is_directory(path))
    for (const auto& entry : fs::directory_iterator(path))
      if (entry.path().extension() == ".json" &&
          !fs::exists(fs::path(entry.path()).replace_extension(".expect")))
        found.push_back(entry.path());
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

class ReadyScene : public testing::TestWithParam<fs::path> {};

TEST_P(ReadyScene, RunsWithoutAWarning) {
  if (GetParam().stem().string().starts_with("replay"))
    GTEST_SKIP() << "needs a recording; tests/run run both";
  constexpr int last = 12;
  const SceneRun run = RunCoarsely(GetParam(), 0.1, last);
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors, "");
  ASSERT_EQ(run.frames.size(), last + 1u);
  const json& end = run.frames.back();
  EXPECT_FALSE(end["channels"].empty() && end["particles"].empty() && end["bodies"].empty());
  for (const auto& [name, channel] : end["channels"].items()) {
    double most = 0;  // fuel may be burnt by now
    for (const json& frame : run.frames)
      if (frame["channels"].contains(name))
        most = std::max(most, frame["channels"][name]["sum"].get<double>());
    EXPECT_GT(most, 0) << name;
  }
  // Where nothing else moves, particles do.
  if (end["solvers"].empty() && end["bodies"].empty()) {
    ASSERT_FALSE(end["particles"].empty());
    for (const auto& [name, group] : end["particles"].items())
      EXPECT_GT(group["kinetic_energy"].get<double>(), 0.01) << name;
  }
  for (const auto& [name, body] : end["bodies"].items())
    for (const json& part : body["position"]) EXPECT_LT(std::abs(part.get<double>()), 10) << name;
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
