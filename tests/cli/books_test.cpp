// The ledgers of the statistics, over whole runs.
#include <gtest/gtest.h>

#include <cmath>

#include "cli/run_folder.h"
#include "cli/scene_run.h"
#include "paths.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace MELDO_GLOBAL::app {
namespace {

double Entry(const json& ledger, const char* key) { return ledger[key].get<double>(); }

/// What a frame's entries make of the total.
double Change(const json& ledger) {
  return Entry(ledger, "emitted") + Entry(ledger, "made") - Entry(ledger, "burnt") -
         Entry(ledger, "left") - Entry(ledger, "trimmed") - Entry(ledger, "trapped") +
         Entry(ledger, "drift");
}

/// The lines of the warnings of a run, by frame.
std::map<int, json> WarningsOf(const RunFolder& folder, const std::string& out) {
  std::map<int, json> told;
  std::istringstream lines(ReadAll(folder.Path() / out / "stats.jsonl"));
  for (std::string line; std::getline(lines, line);) {
    const json value = json::parse(line);
    if (value.contains("frame") && !value["warnings"].empty())
      told[value["frame"].get<int>()] = value["warnings"];
  }
  return told;
}

}  // namespace

TEST(Books, EntriesAddUpToTheChangeOfEachTotal) {
  std::map<std::string, double> seen;
  const std::map<std::string, int> scenes = {
      {"grid_combustion_fire", 12}, {"grid_cooling", 20}, {"pushed_smoke", 12}};
  for (const auto& [name, last] : scenes) {
    const SceneRun run =
        RunCoarsely(fs::path(SourcePath()) / "tests/scenes" / (name + ".json"), 0.1, last);
    ASSERT_EQ(run.status, 0) << run.errors;
    std::map<std::string, double> before;
    for (const json& frame : run.frames)
      for (const auto& [channel, record] : frame["channels"].items()) {
        if (channel == "fire") {
          EXPECT_FALSE(record.contains("ledger")) << "an age is no amount";
          continue;
        }
        const json& ledger = record["ledger"];
        const double sum = Entry(ledger, "total");
        EXPECT_NEAR(sum - before[channel], Change(ledger), 1e-9 * (1 + std::fabs(sum)))
            << name << ": " << channel << " in frame " << frame["frame"];
        EXPECT_NEAR(sum, record["sum"].get<double>(), 1e-6 * (1 + std::fabs(sum)))
            << "no outermost cell of these scenes holds any";
        before[channel] = sum;
        for (const auto& [key, value] : ledger.items()) seen[key] += std::fabs(value.get<double>());
      }
  }
  for (const auto& [key, amount] : seen) EXPECT_GT(amount, 1e-6) << key;
  EXPECT_EQ(seen.size(), 9u);
}

TEST(Books, AFireMakesWhatItsFuelGives) {
  const fs::path scene = fs::path(SourcePath()) / "tests/scenes/grid_combustion_fire.json";
  const SceneRun run = RunCoarsely(scene, 0.1, 12);
  ASSERT_EQ(run.status, 0) << run.errors;
  double burnt = 0;
  for (const json& frame : run.frames) {
    const json &fuel = frame["channels"]["fuel"]["ledger"],
               &heat = frame["channels"]["heat"]["ledger"],
               &smoke = frame["channels"]["smoke"]["ledger"];
    const double now = Entry(fuel, "burnt");
    burnt += now;
    EXPECT_NEAR(Entry(heat, "made"), 1000 * now, 1e-6 * (1 + 1000 * now));
    EXPECT_NEAR(Entry(smoke, "made"), 10 * 0.04 * now, 1e-9 * (1 + now));
    EXPECT_EQ(Entry(smoke, "emitted"), 0);
  }
  EXPECT_GT(burnt, 10);
  const json& first = run.frames[0]["channels"];
  EXPECT_GT(Entry(first["fuel"]["ledger"], "emitted"), 1);
  EXPECT_NEAR(Entry(first["heat"]["ledger"], "emitted"),
              4000 * Entry(first["fuel"]["ledger"], "emitted"), 1e-6);
}

TEST(Books, ADriftIsToldOnceAndAlikeByARunThatGoesOn) {
  const RunFolder folder("books");
  folder.Write("smoke.json", RecordedSmoke(52, 0.25));
  const auto run = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"run", "smoke.json", "--quiet", "--checkpoint", "12", "--out"});
    for (const char* node : {"move smoke", "move heat"})
      more.insert(more.end(), {"--set", std::string(node) + ".scheme=semi_lagrangian", "--set",
                               std::string(node) + ".path_integration=euler"});
    return folder.Run(more);
  };
  ASSERT_EQ(run({"whole"}), 0) << folder.Errors();
  const auto told = WarningsOf(folder, "whole");
  ASSERT_FALSE(told.empty());
  EXPECT_NE(told.begin()->second.dump().find(R"(grid_advection \"move smoke\": \"smoke\")"),
            std::string::npos)
      << told.begin()->second;
  EXPECT_GE(told.begin()->first, 24) << "a window lasts a second";
  std::size_t count = 0;
  for (const auto& [frame, warnings] : told) count += warnings.size();
  EXPECT_EQ(count, 2) << "smoke and heat, each once";

  ASSERT_EQ(run({"part", "--frames", ":18"}), 0);
  ASSERT_EQ(run({"part", "--resume"}), 0) << folder.Errors();
  EXPECT_EQ(WarningsOf(folder, "part"), told);
  EXPECT_EQ(folder.Files("part").at("stats.jsonl"), folder.Files("whole").at("stats.jsonl"));
}

}  // namespace MELDO_GLOBAL::app
