// The run command through the binary: exit codes, outputs, selection, repeatability, interrupts.
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "cli/run_folder.h"
#include "paths.h"

namespace fs = std::filesystem;
using MELDO_GLOBAL::app::ReadAll;
using nlohmann::json;

namespace {

/// Smoke that rises from a ball past another, in a box of 14 x 14 x 14 cells with an open top.
constexpr const char* kSmoke = R"({
  "sulva": 1, "fps": 25, "range": [0, 5],
  "objects": [
    { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 50, 0] },
    { "name": "block", "type": "sphere", "radius": 20, "segments": 16, "position": [20, 120, 0] }
  ],
  "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.15 }, "children": [
    { "type": "channel_scalar", "name": "smoke" },
    { "type": "channel_temp", "name": "heat", "parameters": { "value_max": 1000 } },
    { "type": "mesh", "name": "ball mesh", "parameters": { "object": "ball" } },
    { "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" } },
    { "type": "mesh", "name": "block mesh", "parameters": { "object": "block" } },
    { "type": "volume", "name": "block volume", "parameters": { "mesh": "block mesh" }, "obstacle": {} },
    { "type": "emission_setting", "name": "rate", "parameters": { "amount": 60 } },
    { "type": "channelsettings", "name": "smoke source", "parameters": { "channel": "smoke", "settings": "rate" } },
    { "type": "channelsettings", "name": "heat source", "parameters": { "channel": "heat", "settings": "rate" } },
    { "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["smoke source", "heat source"] } },
    { "type": "force_buoyancy", "name": "lift", "parameters": { "temperature_channel": "heat", "temperature_coefficient": 0.05 } },
    { "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas" } },
    { "type": "grid_advection", "name": "move gas", "parameters": { "target": "gas", "solver": "gas" } },
    { "type": "fluid", "name": "gas", "position": [-105, 0, -105],
      "parameters": { "box_size": [210, 210, 210], "wall_high_y": 0, "linear_solver": 0, "forces": ["lift"] } }
  ] } ],
  "exports": [
    { "format": "vdb", "file": "vdb/plume.####.vdb", "grids": { "density": "smoke", "vel": "gas", "block": "block volume" } },
    { "format": "png", "file": "preview/####.png", "grids": { "smoke": "smoke", "heat": "heat" }, "axis": "z" }
  ]
})";

constexpr const char* kEmpty = R"({ "sulva": 1, "range": [2, 4],
  "nodes": [ { "type": "server", "name": "scene", "children": [] } ] })";

struct Result {
  int code = -1;
  std::string out, err;
};

class RunCommand : public testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(BinaryPath())) GTEST_SKIP() << BinaryPath() << " isn't built";
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    mFolder = fs::path(testing::TempDir()) / fmt::format("run_{}_{}", info->name(), getpid());
    fs::remove_all(mFolder);
    fs::create_directories(mFolder);
    Scene("smoke.json", kSmoke);
    Scene("empty.json", kEmpty);
  }
  void TearDown() override { fs::remove_all(mFolder); }

  void Scene(const std::string& name, const std::string& text) {
    std::ofstream(mFolder / name) << text;
  }

  /// Runs the binary in the test's folder.
  Result Sulva(const std::string& arguments, fs::path out = {}) {
    if (out.empty()) out = mFolder / "stdout.txt";
    const fs::path err = mFolder / "stderr.txt";
    const std::string command = "cd '" + mFolder.string() + "' && '" + BinaryPath() + "' " +
                                arguments + " > '" + out.string() + "' 2> '" + err.string() + "'";
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            fs::is_regular_file(out) ? ReadAll(out) : std::string(), ReadAll(err)};
  }

  /// The lines of a statistics file without timings and memory, by frame; the summary is under -1.
  std::map<int, json> Statistics(const std::string& out) {
    std::map<int, json> lines;
    std::istringstream text(ReadAll(mFolder / out / "stats.jsonl"));
    for (std::string line; std::getline(text, line);) {
      json value = json::parse(line);
      if (value.contains("summary")) {
        value["summary"].erase("wall_s");
        lines[-1] = value["summary"];
        continue;
      }
      EXPECT_GT(value["peak_rss_bytes"].get<double>(), 1e6);
      value.erase("wall_s");
      value.erase("peak_rss_bytes");
      for (json& stage : value["stages"]) stage.erase("wall_s");
      for (json& solver : value["solvers"])
        for (const char* solves : {"pressure", "viscosity"})
          for (json& solve : solver[solves]) solve.erase("wall_s");
      lines[value["frame"].get<int>()] = value;
    }
    return lines;
  }

  /// Expects the exports of two runs to be the same files, byte for byte.
  void ExpectSameFiles(const std::string& a, const std::string& b) {
    int files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(mFolder / a)) {
      if (!entry.is_regular_file() || entry.path().extension() == ".jsonl") continue;
      const fs::path other = mFolder / b / fs::relative(entry.path(), mFolder / a);
      EXPECT_TRUE(ReadAll(entry.path()) == ReadAll(other)) << other;
      ++files;
    }
    EXPECT_GT(files, 0);
  }

  fs::path mFolder;
};

}  // namespace

TEST_F(RunCommand, WrongUsageIsToldOnStandardError) {
  for (const char* arguments :
       {"", "run", "fly", "run empty.json --speed 3", "run empty.json --frames 9:3",
        "run empty.json --frames 0:3", "run empty.json --threads 0",
        "run empty.json --set cell_size=2", "run empty.json --memory much",
        "run empty.json --out ''", "run empty.json --frames ''"}) {
    const Result result = Sulva(arguments);
    EXPECT_EQ(result.code, 2) << arguments;
    EXPECT_EQ(result.out, "") << arguments;
    EXPECT_NE(result.err, "") << arguments;
  }
  for (const char* arguments :
       {"--help", "run --help", "check --help", "nodes --help", "new --help"}) {
    const Result result = Sulva(arguments);
    EXPECT_EQ(result.code, 0) << arguments;
    EXPECT_NE(result.out.find("Example:\n  sulva"), std::string::npos) << arguments;
  }
  EXPECT_EQ(Sulva("--version").out, "sulva " SULVA_VERSION "\n");
}

TEST_F(RunCommand, EmptySceneRunsItsRangeAndWritesStatistics) {
  const Result result = Sulva("run empty.json");
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.out, "");
  const auto lines = Statistics("out/empty");
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines.begin()->second,
            json({{"frames", 3}, {"exit_code", 0}, {"warnings", json::array()}}));
  EXPECT_TRUE(lines.contains(2) && lines.contains(3) && lines.contains(4));
  EXPECT_EQ(Sulva("run empty.json --quiet --out q").err, "");

  // The server's own range takes the place of the scene's.
  EXPECT_EQ(Sulva("run empty.json --out own --set scene.use_preview_range=false "
                  "--set scene.first_frame=7 --set scene.last_frame=6")
                .code,
            0);
  EXPECT_EQ(Statistics("own").size(), 3u);
  EXPECT_TRUE(Statistics("own").contains(6));
}

TEST_F(RunCommand, BadInputsAndPlacesHaveTheirExitCodes) {
  EXPECT_EQ(Sulva("run nowhere.json").code, 5);
  Scene("bad.json", R"({ "sulva": 1, "nodes": [ { "type": "serverr", "name": "s" } ] })");
  const Result bad = Sulva("run bad.json --out bad");
  EXPECT_EQ(bad.code, 3);
  EXPECT_NE(bad.err.find("bad.json:1:"), std::string::npos) << bad.err;
  EXPECT_FALSE(fs::exists(mFolder / "bad"));

  std::ofstream(mFolder / "plain") << "no folder";
  const Result blocked = Sulva("run smoke.json --out plain/out --frames :0");
  EXPECT_EQ(blocked.code, 5);
  EXPECT_NE(blocked.err.find("plain/out"), std::string::npos) << blocked.err;
  EXPECT_EQ(ReadAll(mFolder / "plain"), "no folder");

  // Statistics that can't be written are a warning.
  fs::create_directories(mFolder / "taken" / "stats.jsonl");
  const Result warned = Sulva("run empty.json --out taken");
  EXPECT_EQ(warned.code, 0);
  EXPECT_NE(warned.err.find("warning: taken/stats.jsonl isn't whole: cannot write"),
            std::string::npos);
}

TEST_F(RunCommand, TooLargeGridsAreRefusedBeforeTheyGrow) {
  const Result result =
      Sulva("run smoke.json --quiet --set scene.cell_size=0.02 --memory 8M --out small");
  EXPECT_EQ(result.code, 6) << result.err;
  EXPECT_NE(result.err.find("the limit is"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("cell_size"), std::string::npos) << result.err;
  EXPECT_EQ(Statistics("small").at(-1)["exit_code"], 6);
  // Volumes take their grids before the box is negotiated; here one beyond any index.
  const Result vast = Sulva("run smoke.json --quiet --set scene.cell_size=0.00002 --out vast");
  EXPECT_EQ(vast.code, 6) << vast.err;
}

TEST_F(RunCommand, TraceNamesStagesAndObjectsAndSolversSleepAtTheStart) {
  const Result result = Sulva("run smoke.json --quiet --trace --frames 0:3");
  ASSERT_EQ(result.code, 0) << result.err;
  std::istringstream lines(result.out);
  std::map<int, std::set<std::string>> pressure;  // by frame
  int lastFrame = 0, lastStep = 0, lastStage = 0;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    int frame, step, stage;
    std::string name;
    ASSERT_TRUE(words >> frame >> step >> stage >> std::ws && std::getline(words, name)) << line;
    const bool sameStep = frame == lastFrame && step == lastStep;
    EXPECT_GE(std::tie(frame, step), std::tie(lastFrame, lastStep)) << line;
    if (sameStep) {
      EXPECT_GE(stage, lastStage) << line;
    }
    if (stage == 10) pressure[frame].insert(name);
    lastFrame = frame, lastStep = step, lastStage = stage;
  }
  EXPECT_TRUE(pressure[0].empty());
  EXPECT_TRUE(pressure[1].contains("gas"));
  EXPECT_TRUE(pressure[2].contains("gas"));
  EXPECT_TRUE(pressure[3].contains("gas"));
  EXPECT_NE(result.out.find(" 5 source\n"), std::string::npos);
}

TEST_F(RunCommand, TraceTellsWhenCachesWriteAndRead) {
  std::string text = kSmoke;
  const std::string before = R"({ "type": "channel_scalar", "name": "smoke" },)";
  text.insert(text.find(before) + before.size(),
              R"({ "type": "cache", "name": "keep", "parameters": { "objects": ["smoke"] } },)");
  Scene("kept.json", text);
  const Result written = Sulva("run kept.json --quiet --trace --frames :2 --set keep.mode=record");
  EXPECT_NE(written.out.find("2 1 17 keep\n"), std::string::npos) << written.out;
  EXPECT_EQ(written.out.find(" 0 keep\n"), std::string::npos) << written.out;
  const Result read = Sulva("run kept.json --quiet --trace --frames :2 --set keep.mode=play_back");
  EXPECT_NE(read.out.find("2 0 0 keep\n"), std::string::npos) << read.out;
  EXPECT_EQ(read.out.find(" 17 keep\n"), std::string::npos) << read.out;
}

TEST_F(RunCommand, AnswersThatReachNoOneAreFileErrors) {
  for (const char* arguments : {"nodes --json", "check empty.json", "--version"}) {
    const Result result = Sulva(arguments, "/dev/full");
    EXPECT_EQ(result.code, 5) << arguments;
    EXPECT_NE(result.err.find("cannot write to "), std::string::npos) << result.err;
  }
}

TEST_F(RunCommand, FrameOfSeveralServersTellsTheTimeOfTheFirst) {
  std::string text = kSmoke;
  text.insert(text.find("  ] } ],") + 5,
              R"(, { "type": "server", "name": "later", "children": [], "parameters": {
                     "use_preview_range": false, "first_frame": 3, "last_frame": 7 } })");
  Scene("two.json", text);
  const Result result = Sulva("run two.json --quiet --out two");
  ASSERT_EQ(result.code, 0) << result.err;
  const auto lines = Statistics("two");
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_NEAR(lines.at(4)["elapsed_s"].get<double>(), 0.16, 1e-6);
  // Behind the end of the first server's range its clock stands still.
  EXPECT_EQ(lines.at(7)["elapsed_s"], lines.at(5)["elapsed_s"]);
  EXPECT_EQ(lines.at(7)["substeps"], 0);
}

TEST_F(RunCommand, LaterStartSimulatesFromTheFirstFrame) {
  ASSERT_EQ(Sulva("run smoke.json --quiet --out all").code, 0);
  ASSERT_EQ(Sulva("run smoke.json --quiet --out part --frames 4:5").code, 0);
  auto all = Statistics("all");
  const auto part = Statistics("part");
  ASSERT_EQ(all.size(), 7u);
  ASSERT_EQ(part.size(), 3u);
  EXPECT_EQ(part.at(-1)["frames"], 2);
  EXPECT_EQ(part.at(4), all.at(4));
  EXPECT_EQ(part.at(5), all.at(5));
  EXPECT_GT(all.at(5)["channels"]["smoke"]["sum"].get<double>(), 0);
  EXPECT_GT(all.at(5)["solvers"]["gas"]["max_speed"].get<double>(), 0);
  EXPECT_GT(all.at(5)["solvers"]["gas"]["kinetic_energy"].get<double>(), 0);
  EXPECT_TRUE(fs::exists(mFolder / "part/preview/0005.png"));
  EXPECT_FALSE(fs::exists(mFolder / "part/preview/0003.png"));
  EXPECT_FALSE(fs::exists(mFolder / "part/vdb/plume.0003.vdb"));
  ExpectSameFiles("part", "all");
}

TEST_F(RunCommand, RerunsAndThreadCountsGiveTheSameBytes) {
  ASSERT_EQ(Sulva("run smoke.json --quiet --out one --threads 1").code, 0);
  ASSERT_EQ(Sulva("run smoke.json --quiet --out two --threads 2").code, 0);
  ASSERT_EQ(Sulva("run smoke.json --quiet --out again --threads 2").code, 0);
  ExpectSameFiles("one", "two");
  ExpectSameFiles("two", "again");
  EXPECT_EQ(Statistics("one"), Statistics("two"));
  EXPECT_EQ(Statistics("two"), Statistics("again"));
}

TEST_F(RunCommand, NonFiniteFlowEndsTheRunAndKeepsWhatWasWritten) {
  const Result result =
      Sulva("run smoke.json --quiet --out wild --set lift.temperature_coefficient=1e306");
  EXPECT_EQ(result.code, 4) << result.err;
  EXPECT_NE(result.err.find("no longer finite"), std::string::npos) << result.err;
  const auto lines = Statistics("wild");
  EXPECT_EQ(lines.at(-1)["exit_code"], 4);
  EXPECT_GE(lines.size(), 2u);
  EXPECT_EQ(std::size_t(std::distance(fs::directory_iterator(mFolder / "wild/preview"), {})),
            lines.size() - 1);
}

TEST_F(RunCommand, InterruptEndsInOrder) {
  std::string text = kSmoke;
  text.replace(text.find("[0, 5]"), 6, "[0, 100000]");
  Scene("long.json", text);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (chdir(mFolder.c_str()) != 0) _exit(99);
    execl(BinaryPath(), "sulva", "run", "long.json", "--quiet", "--out", "long", nullptr);
    _exit(99);
  }
  const fs::path third = mFolder / "long/preview/0003.png";
  for (int i = 0; i < 3000 && !fs::exists(third); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_TRUE(fs::exists(third));
  kill(child, SIGTERM);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
  const auto lines = Statistics("long");
  EXPECT_EQ(lines.at(-1)["exit_code"], 7);
  EXPECT_EQ(lines.at(-1)["frames"].get<std::size_t>(), lines.size() - 1);
  for (const auto& entry : fs::recursive_directory_iterator(mFolder / "long"))
    EXPECT_NE(entry.path().extension(), ".sulva-part");
}

TEST_F(RunCommand, WaysOfBodiesAreExportedAtTheEnd) {
  const std::string scene = "'" + SourcePath("/scenes/dominoes.json") + "'";
  ASSERT_EQ(Sulva("run " + scene + " --quiet --frames :4 --out whole").code, 0);
  ASSERT_EQ(Sulva("bake " + scene + " --out whole --file baked.glb").code, 0);
  const std::string exported = ReadAll(mFolder / "whole/bodies.glb");
  EXPECT_NE(exported.find("stone 16"), std::string::npos);
  EXPECT_TRUE(exported == ReadAll(mFolder / "baked.glb"));
  EXPECT_EQ(Sulva("verify whole").code, 0);
  std::ofstream(mFolder / "whole/bodies.glb", std::ios::app) << "x";
  EXPECT_EQ(Sulva("bake " + scene + " --out whole").code, 0) << "which mends it";
  EXPECT_EQ(Sulva("verify whole").code, 0);
  std::string other = ReadAll(SourcePath("/scenes/dominoes.json"));
  other.replace(other.find("\"fps\": 25"), 9, "\"fps\": 50");
  Scene("other.json", other);
  const Result foreign = Sulva("bake other.json --out whole");
  EXPECT_EQ(foreign.code, 2);
  EXPECT_NE(foreign.err.find("warning: it isn't the scene of the run"), std::string::npos);
  EXPECT_NE(foreign.err.find("name another one with --file"), std::string::npos) << foreign.err;
  EXPECT_TRUE(exported == ReadAll(mFolder / "whole/bodies.glb"));
  std::ofstream(mFolder / "whole/bodies.glb", std::ios::app) << "x";
  const Result damaged = Sulva("verify whole");
  EXPECT_EQ(damaged.code, 5);
  EXPECT_NE(damaged.out.find("bodies.glb: of the whole run: "), std::string::npos) << damaged.out;
  // Their beginning isn't known here.
  const Result part = Sulva("run " + scene + " --frames 2:4 --out part");
  EXPECT_EQ(part.code, 0);
  EXPECT_NE(part.err.find("warning: no bodies.glb: "), std::string::npos) << part.err;
  EXPECT_FALSE(fs::exists(mFolder / "part/bodies.glb"));
  const auto told = Statistics("part").at(-1)["warnings"];
  EXPECT_NE(told.dump().find("no bodies.glb: "), std::string::npos) << told;
}

TEST_F(RunCommand, WhatNeverWorksIsToldBeforeTheRunAndNotAgain) {
  std::string text = kSmoke;
  const std::string link = R"("volume": "ball volume", )";
  text.erase(text.find(link), link.size());
  Scene("idle.json", text);
  const Result result = Sulva("run idle.json --frames :3");
  EXPECT_EQ(result.code, 0) << result.err;
  const std::size_t first = result.err.find("warning: gridemitter \"source\": it never works: ");
  EXPECT_LT(first, result.err.find("frame 0")) << result.err;
  EXPECT_EQ(result.err.find("gridemitter \"source\"", first + 30), std::string::npos);
}
