// What a scene's reader is told of parameters that don't count, of units and of very small cells.
#include "scene/scene_advice.h"

#include <gmock/gmock.h>

#include "cli/run_folder.h"
#include "scene/scene_file.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace MELDO_GLOBAL::app {
namespace {

struct LoadedServer {
  explicit LoadedServer(const std::string& parameters,
                        const std::vector<std::string>& overrides = {}) {
    const RunFolder folder("advice");
    scene = LoadScene(folder.Write("s.json",
                                   "{ \"sulva\": 1, \"nodes\": [ { \"type\": \"server\", "
                                   "\"name\": \"scene\",\n \"parameters\": {" +
                                       parameters + "} } ] }"),
                      diagnostics, overrides);
  }
  double Real(i32 id) const { return std::get<double>(*scene->server->Get(id)); }
  std::vector<std::string> Lines() const { return diagnostics.Lines(); }

  Diagnostics diagnostics;
  std::optional<LoadedScene> scene;
};

constexpr i32 kCellSize = 1002, kRenderCellSize = 1015;

}  // namespace

TEST(SceneAdvice, ParametersOfAnotherModeAreNoted) {
  EXPECT_THAT(
      LoadedServer(R"("fixed_step": 0.1, "cfl": 3, "first_frame": 1)").Lines(),
      ElementsAre(HasSubstr("s.json:2:17: note: server \"scene\": 'fixed_step' has no effect "
                            "while 'time_mode' is adaptive; it counts with time_mode fixed_step"),
                  HasSubstr("'first_frame' has no effect while 'use_preview_range' is true")));
  EXPECT_THAT(
      LoadedServer(R"("time_mode": "fixed_step", "1004": 0.1, "1011": 3, "extra_min_substeps": 1)")
          .Lines(),
      ElementsAre(HasSubstr("'cfl' has no effect"), HasSubstr("'extra_min_substeps' has no")));
  EXPECT_THAT(LoadedServer(R"("use_preview_range": false, "last_frame": 3, "cfl": 3)").Lines(),
              IsEmpty());
  EXPECT_THAT(LoadedServer(R"("time_mode": {"keys": [[0, 0], [5, 2]]}, "fixed_step": 0.1)").Lines(),
              IsEmpty())
      << "the mode changes on the way";
  EXPECT_THAT(LoadedServer(R"("fixed_step": 0.1)", {"scene.time_mode=fixed_step"}).Lines(),
              IsEmpty());
  EXPECT_THAT(
      LoadedServer("", {"scene.last_frame=4"}).Lines(),
      ElementsAre(HasSubstr("--set scene.last_frame=4: note: server \"scene\": 'last_frame'")));
}

TEST(SceneAdvice, WhatDoesntCountInATagIsNotedOfNodesAndObjects) {
  const auto lines = [](const std::string& tag) {
    const RunFolder folder("advice");
    Diagnostics diagnostics;
    LoadScene(folder.Write("s.json", R"({ "sulva": 1, "objects": [
      { "name": "crate", "type": "box", "obstacle": { )" +
                                         tag + R"( } } ],
      "nodes": [ { "type": "server", "name": "scene", "children": [
      { "type": "mesh", "name": "mesh", "parameters": { "object": "crate" } },
      { "type": "volume", "name": "volume", "parameters": { "mesh": "mesh" },
        "obstacle": { )" + tag + " } } ] } ] }"),
              diagnostics);
    return diagnostics.Lines();
  };
  const auto both = [](const std::string& what) {
    return testing::AllOf(
        testing::Contains(HasSubstr("note: box \"crate\": obstacle: " + what)),
        testing::Contains(HasSubstr("note: volume \"volume\": obstacle: " + what)));
  };
  EXPECT_THAT(lines(R"("mass_mode": "from_density", "mass": 3)"),
              both("'mass' has no effect while 'mass_mode' is from_density"));
  EXPECT_THAT(lines(R"("mass": 3, "density": 300)"), both("'density' has no effect while"));
  EXPECT_THAT(lines(R"("bake_offset": 3)"), both("'bake_offset' has no effect while 'baked' is"));
  EXPECT_THAT(lines(R"("baked": true, "follow_bake": false, "bake_offset": 3)"),
              both("'bake_offset' has no effect while 'follow_bake' is false"));
  EXPECT_THAT(lines(R"("baked": true, "bake_offset": 3, "mass": 3)"),
              testing::Not(testing::Contains(HasSubstr("no effect"))));
}

TEST(SceneAdvice, WhatNothingReadsIsToldInOneNote) {
  EXPECT_THAT(
      LoadedServer(R"("display_scale": 2, "show_statistics": false, "seed": 3)",
                   {"scene.display_scale=3"})
          .Lines(),
      ElementsAre(testing::AllOf(
          HasSubstr("s.json:2:17: note: set, kept with the scene, but without effect: "),
          testing::EndsWith("'display_scale' of \"scene\", 'show_statistics' of \"scene\""))));
  EXPECT_THAT(LoadedServer(R"("stage": 12, "priority": 3)").Lines(),
              ElementsAre(HasSubstr("without effect: 'stage' of \"scene\", 'priority' of")));
  EXPECT_THAT(LoadedServer(R"("gravity": [0, -5, 0])").Lines(),
              ElementsAre(HasSubstr("note: server \"scene\": 'gravity' has no effect: it pulls "
                                    "particles that fly and rigid bodies, and nothing moves any")));
  EXPECT_THAT(
      LoadedServer("", {"scene.show_statistics=false"}).Lines(),
      ElementsAre("--set scene.show_statistics=false: note: set, kept with the scene, but without "
                  "effect: 'show_statistics' of \"scene\""));
}

TEST(SceneAdvice, KindsOfEntriesThatNobodyAsksForAreWithoutEffect) {
  const RunFolder folder("advice");
  const auto lines = [&](const std::string& entry, const std::vector<std::string>& options = {}) {
    Diagnostics diagnostics;
    LoadScene(
        folder.Write("s.json", R"({ "sulva": 1, "nodes": [ { "type": "server", "name": "scene",
     "children": [ { "type": "force_gravity", "name": "wind" },
      { "type": "fluid", "name": "gas", "parameters": { "forces": [)" +
                                   entry + "] } } ] } ] }"),
        diagnostics, options);
    std::vector<std::string> told = diagnostics.Lines();
    std::erase_if(told, [](auto& line) { return line.find("has nothing to move") != line.npos; });
    return told;
  };
  EXPECT_THAT(lines(R"("wind")"), IsEmpty());
  EXPECT_THAT(lines(R"({ "node": "wind", "flags": 0 })"), IsEmpty());
  EXPECT_THAT(lines(R"({ "node": "wind", "kinds": ["liquid", "passive"] })"),
              ElementsAre(HasSubstr("s.json:3:57: note: set, kept with the scene, but without "
                                    "effect: 'kinds' under 'forces' of \"gas\"")));
  EXPECT_THAT(lines(R"("wind")", {R"(gas.forces=[{"node": "wind", "flags": 4}])"}),
              ElementsAre(HasSubstr("note: set, kept")));
}

TEST(SceneAdvice, CellSizesFollowTheUnits) {
  const LoadedServer loaded(R"("cell_size": 0.05, "simulation_units": 2)",
                            {"scene.simulation_units=0.5"});
  EXPECT_DOUBLE_EQ(loaded.Real(kCellSize), 0.0125);
  EXPECT_DOUBLE_EQ(loaded.Real(kRenderCellSize), 0.05) << "a default follows too";
  EXPECT_THAT(loaded.Lines(),
              ElementsAre(HasSubstr("note: server \"scene\": 'cell_size' follows to 0.0125")));
  for (const bool cellFirst : {true, false}) {
    std::vector<std::string> options = {"scene.cell_size=0.3", "scene.1001=4"};
    if (!cellFirst) std::swap(options[0], options[1]);
    const LoadedServer given(R"("cell_size": 0.05)", options);
    EXPECT_DOUBLE_EQ(given.Real(kCellSize), 0.3) << "what the command line gives stands";
    EXPECT_DOUBLE_EQ(given.Real(kRenderCellSize), 0.8);
  }
  EXPECT_THAT(LoadedServer("", {"scene.simulation_units=1"}).Lines(), IsEmpty());
  EXPECT_FALSE(LoadedServer("", {"scene.simulation_units=0"}).scene);
}

TEST(SceneAdvice, VerySmallCellsAreAWarning) {
  EXPECT_THAT(
      LoadedServer(R"("cell_size": 0.000009)").Lines(),
      ElementsAre(HasSubstr("warning: server \"scene\": 'cell_size': the cells are very small")));
  EXPECT_THAT(LoadedServer(R"("cell_size": 0.00001)").Lines(), IsEmpty())
      << "only above a hundred thousand";
  EXPECT_THAT(LoadedServer(R"("cell_size": 0.00001, "simulation_units": 2)").Lines(),
              ElementsAre(HasSubstr("very small")));
}

TEST(SolverInfo, TellsTheContainerOfTheFirstFrame) {
  const RunFolder folder("info");
  folder.Write("s.json", RecordedSmoke(2));
  ASSERT_EQ(folder.Run({"info", "s.json"}), 0) << folder.Errors();
  const std::string told = folder.Answers();
  EXPECT_FALSE(fs::exists(folder.Path() / "out")) << "a question writes nothing";
  ASSERT_EQ(folder.Run({"run", "s.json", "--frames", "0:0", "--out", "o"}), 0);
  const auto frame =
      nlohmann::json::parse(ReadAll(folder.Path() / "o/stats.jsonl")
                                .substr(0, ReadAll(folder.Path() / "o/stats.jsonl").find('\n')));
  const auto dims = frame["solvers"]["gas"]["dims"].get<std::vector<int>>();
  ASSERT_EQ(dims.size(), 3u);
  char cells[200], rendering[200];
  std::snprintf(cells, sizeof cells, "Cells [Voxels]: %d x %d x %d (%d)\n", dims[0], dims[1],
                dims[2], dims[0] * dims[1] * dims[2]);
  const auto coarse = [](int n) { return static_cast<int>(std::lround(n * double{0.15f} / 0.2)); };
  std::snprintf(rendering, sizeof rendering, "Cells Rendering [Voxels]: %d x %d x %d (",
                coarse(dims[0]), coarse(dims[1]), coarse(dims[2]));
  const std::string errors = folder.Errors();
  for (const std::string& text : {told, errors}) {
    EXPECT_THAT(text, HasSubstr(cells)) << "info and the first lines of a run say the same";
    EXPECT_THAT(text, HasSubstr(rendering));
    EXPECT_THAT(text, HasSubstr("m (simulation space units)\n"));
    EXPECT_THAT(text, HasSubstr("Cell Size: 0.15"));
  }
  ASSERT_EQ(folder.Run({"run", "s.json", "--frames", "0:0", "--out", "o", "--quiet"}), 0);
  EXPECT_EQ(folder.Errors(), "");
}

}  // namespace MELDO_GLOBAL::app
