// `sulva why`, warnings while a scene runs, and `--strict`.
#include <gmock/gmock.h>

#include "cli/run_folder.h"

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace MELDO_GLOBAL::app {
namespace {

/// Smoke in a box that leaves its source in frame 4, with what the gas may do beside.
std::string LeavingBox() {
  return R"({ "sulva": 1, "range": [0, 8],
 "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 50, 0] } ],
 "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.15 }, "children": [
  { "type": "channel_scalar", "name": "smoke", "parameters": { "affects_bounds": false } },
  { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
  { "type": "volume", "name": "shape", "parameters": { "mesh": "skin" } },
  { "type": "emission_setting", "name": "rate" },
  { "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } },
  { "type": "gridemitter", "name": "source", "parameters": { "volume": "shape", "channels": ["pair"] } },
  { "type": "force_gravity", "name": "wind", "parameters": { "acceleration": [0, 1, 0] } },
  { "type": "grid_advection", "name": "move", "parameters": { "target": "smoke", "solver": "gas" } },
  { "type": "cache", "name": "recording", "parameters": { "mode": "record", "objects": ["smoke"] } },
  { "type": "fluid", "name": "gas", "position": {"keys": [[0, [-100, 0, -100]], [3, [-100, 0, -100]], [4, [900, 0, -100]]], "interpolation": "step"},
    "parameters": { "box_size": [200, 200, 200], "forces": ["wind"] } } ] } ] })";
}

std::vector<json> Lines(const RunFolder& folder, const std::string& out) {
  std::vector<json> lines;
  std::istringstream text(ReadAll(folder.Path() / out / "stats.jsonl"));
  for (std::string line; std::getline(text, line);) lines.push_back(json::parse(line));
  return lines;
}

}  // namespace

TEST(Why, TellsFrameByFrameAndWritesNothing) {
  const RunFolder folder("why");
  folder.Write("s.json", LeavingBox());
  ASSERT_EQ(folder.Run({"why", "s.json", "move", "--frames", "0:5"}), 0) << folder.Errors();
  const std::string move = folder.Answers();
  EXPECT_THAT(move, HasSubstr("frame 3: ran in stage 6 (Advection) once\n"));
  EXPECT_THAT(move, HasSubstr("frame 5: slept: its solver has no velocity\n"));
  ASSERT_EQ(folder.Run({"why", "s.json", "wind", "--frames", "0:3"}), 0);
  EXPECT_THAT(folder.Answers(), HasSubstr("frame 0: slept: no time has passed yet\n"));
  EXPECT_THAT(folder.Answers(), HasSubstr("frame 3: ran once, driven by 'gas'\n"));
  ASSERT_EQ(folder.Run({"why", "s.json", "skin", "--frames", "1:1"}), 0);
  EXPECT_EQ(folder.Answers(), "frame 1: slept: nothing that it depends on has changed\n");
  ASSERT_EQ(folder.Run({"why", "s.json", "recording", "--frames", "0:1"}), 0);
  EXPECT_THAT(folder.Answers(), HasSubstr("slept: it records, and this command writes nothing"));
  ASSERT_EQ(folder.Run({"why", "s.json", "rate", "--frames", "0:0"}), 0);
  EXPECT_THAT(folder.Answers(), HasSubstr("it has no work of its own; it serves 'pair'"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "out"));

  EXPECT_EQ(folder.Run({"why", "s.json", "mve"}), 2);
  EXPECT_THAT(folder.Errors(), HasSubstr("did you mean 'move'?"));
}

TEST(Warnings, AreToldOnceInTheirFrameAndInTheStatistics) {
  const RunFolder folder("warnings");
  folder.Write("s.json", LeavingBox());
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "whole"}), 0);
  const std::string errors = folder.Errors();
  const std::string gas = "warning: frame 4: fluid \"gas\" is inactive: no emitter fills";
  EXPECT_THAT(errors, HasSubstr(gas));
  EXPECT_THAT(errors.substr(errors.find(gas) + gas.size()), Not(HasSubstr("fluid \"gas\"")));
  const std::vector<json> lines = Lines(folder, "whole");
  for (const int frame : {0, 1, 2, 3, 5, 6, 7, 8})
    EXPECT_THAT(lines[frame]["warnings"], IsEmpty()) << "frame " << frame;
  EXPECT_THAT(lines[4]["warnings"].dump(), HasSubstr("fluid \\\"gas\\\" is inactive"));
  EXPECT_GT(lines[3]["cfl"].get<double>(), 0);

  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "parts", "--frames", "0:5"}), 0);
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "parts", "--resume"}), 0);
  folder.ExpectSame("whole", "parts");
}

TEST(Warnings, WhatOnlyALaterFrameShowsSaysSinceWhen) {
  const RunFolder folder("since");
  std::string text = LeavingBox();
  text.insert(
      text.rfind("{ \"type\": \"fluid\""),
      R"({ "type": "fluid", "name": "far gas", "position": {"keys": [[0, [900, 0, 0]], [8, [950, 0, 0]]]},
    "parameters": { "box_size": [200, 200, 200], "forces": [] } },
  )");
  folder.Write("s.json", text);
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "whole"}), 0);
  const std::string far = "fluid \"far gas\" is inactive since frame 0: no emitter fills";
  EXPECT_THAT(folder.Errors(), HasSubstr("warning: frame 2: " + far));
  EXPECT_THAT(Lines(folder, "whole")[2]["warnings"].dump(), HasSubstr("since frame 0"));
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "parts", "--frames", "0:1"}), 0);
  EXPECT_THAT(folder.Errors(), HasSubstr("warning: frame 1: " + far)) << "the end of this run";
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "parts", "--resume"}), 0);
  EXPECT_THAT(folder.Errors(), HasSubstr("warning: frame 2: " + far));
  folder.ExpectSame("whole", "parts");
}

TEST(Warnings, AFlowThatBlowsUpIsToldFirst) {
  const RunFolder folder("blast");
  folder.Write("s.json", LeavingBox());
  EXPECT_EQ(folder.Run({"run", "s.json", "--set", "wind.acceleration=[0, 1e200, 0]"}), 4);
  const std::string errors = folder.Errors();
  EXPECT_LT(errors.find("is no longer finite"), errors.find("warning: ")) << errors;
  EXPECT_THAT(errors, Not(HasSubstr("sealed room")));
}

TEST(Warnings, AFireThatMayCatchLaterIsToldOfAtTheEnd) {
  const RunFolder folder("fire");
  const std::string scene = R"({ "sulva": 1, "range": [0, 4],
 "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 50, 0] } ],
 "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.2 }, "children": [
  { "type": "channel_fuel", "name": "fuel" }, { "type": "channel_fire", "name": "fire" },
  { "type": "channel_temp", "name": "heat" },
  { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
  { "type": "volume", "name": "shape", "parameters": { "mesh": "skin" } },
  { "type": "emission_setting", "name": "much", "parameters": { "amount": 9 } },
  { "type": "duration", "name": "spark", "parameters": { "start": 0.08 } },
  { "type": "emission_setting", "name": "hot", "parameters": { "amount": AMOUNT, "duration": "spark" } },
  { "type": "channelsettings", "name": "gas out", "parameters": { "channel": "fuel", "settings": "much" } },
  { "type": "channelsettings", "name": "light", "parameters": { "channel": "heat", "settings": "hot" } },
  { "type": "gridemitter", "name": "source", "parameters": { "volume": "shape", "channels": ["gas out", "light"] } },
  { "type": "grid_combustion_fire", "name": "burn", "parameters": { "fuel": "fuel", "fire": "fire", "temperature": "heat" } },
  { "type": "grid_advection", "name": "move", "parameters": { "target": "fuel", "solver": "gas" } },
  { "type": "grid_advection", "name": "move heat", "parameters": { "target": "heat", "solver": "gas" } },
  { "type": "fluid", "name": "gas", "position": [-100, 0, -100], "parameters": { "box_size": [200, 200, 200], "forces": [] } } ] } ] })";
  const auto with = [&](const std::string& amount) {
    std::string text = scene;
    return folder.Write("s.json", text.replace(text.find("AMOUNT"), 6, amount));
  };
  with("90000");
  ASSERT_EQ(folder.Run({"run", "s.json", "--strict", "--out", "lit"}), 0) << folder.Errors();
  ASSERT_EQ(folder.Run({"why", "s.json", "burn"}), 0);
  EXPECT_THAT(folder.Answers(), HasSubstr("frame 2: slept: no fuel is as hot as the 'ignition'"));
  EXPECT_THAT(folder.Answers(), HasSubstr("frame 4: ran in stage 7 (Operators) once"));
  with("9");
  EXPECT_EQ(folder.Run({"run", "s.json", "--strict", "--out", "cold"}), 3);
  EXPECT_THAT(folder.Errors(),
              HasSubstr("warning: frame 4: grid_combustion_fire \"burn\" is "
                        "inactive since frame 1: no fuel is as hot as the 'ignition'"));
}

TEST(Warnings, AStepThatIsTooLongIsOne) {
  const RunFolder folder("cfl");
  folder.Write("s.json", LeavingBox());
  const std::vector<std::string> fast = {"run",      "s.json",
                                         "--out",    "fast",
                                         "--frames", "0:3",
                                         "--set",    "scene.time_mode=fixed_substeps",
                                         "--set",    "scene.extra_substeps=0",
                                         "--set",    "wind.acceleration=[0, 3000, 0]",
                                         "--set",    "gas.wall_high_y=open",
                                         "--set",    "gas.wall_low_y=open"};
  ASSERT_EQ(folder.Run(fast), 0) << folder.Errors();
  EXPECT_THAT(folder.Errors(), HasSubstr("cells in a substep, and what lies between is skipped"));
  double most = 0;
  int told = 0;
  for (const json& line : Lines(folder, "fast")) {
    if (!line.contains("frame")) continue;
    most = std::max(most, line["cfl"].get<double>());
    told += static_cast<int>(line["warnings"].size());
    EXPECT_EQ(told > 0, most > 20) << line["frame"];
  }
  EXPECT_GT(most, 20);
  EXPECT_EQ(told, 1);
}

TEST(Strict, AWarningMakesTheExitCodeThree) {
  const RunFolder folder("strict");
  folder.Write("s.json", LeavingBox());
  EXPECT_EQ(folder.Run({"check", "s.json", "--strict"}), 0);
  EXPECT_EQ(folder.Run({"run", "s.json", "--strict", "--frames", "0:3", "--out", "before"}), 0);
  EXPECT_EQ(folder.Run({"run", "s.json", "--strict", "--out", "behind"}), 3);
  EXPECT_EQ(Lines(folder, "behind").back()["summary"]["exit_code"], 3);
  EXPECT_EQ(Lines(folder, "behind").back()["summary"]["frames"], 9) << "it runs to its end";

  const std::vector<std::string> cut = {"run", "s.json", "--strict",        "--out",
                                        "cut", "--set",  "move.solver=null"};
  EXPECT_EQ(folder.Run(cut), 3);
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "cut")) << "it doesn't begin";
  EXPECT_THAT(folder.Errors(), HasSubstr("it has no solver"));
}

}  // namespace MELDO_GLOBAL::app
