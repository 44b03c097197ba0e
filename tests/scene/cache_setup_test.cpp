// `sulva cache-setup`: scenes that get the nodes which record them, and what these then do.
#include <gmock/gmock.h>

#include "cli/run_folder.h"

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

namespace MELDO_GLOBAL::app {
namespace {

/// The scene of RecordedSmoke without its cache and its exports of the last node.
std::string Unrecorded(int last) {
  std::string text = RecordedSmoke(last);
  const auto cut = text.find(",\n    { \"type\": \"cache\"");
  const auto end = text.find("] } }\n", cut) + 5;
  return text.substr(0, cut).append(" // the gas\n    /* the end ] */").append(text, end);
}

int CountFiles(const fs::path& folder) {
  int count = 0;
  if (fs::exists(folder))
    for (const auto& entry : fs::directory_iterator(folder)) count += entry.is_regular_file();
  return count;
}

}  // namespace

TEST(CacheSetup, WrittenSceneRecordsAndPlaysBackTheSame) {
  const RunFolder folder("setup");
  const std::string before = Unrecorded(4);
  folder.Write("s.json", before);
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "--set", "scene.cache_compression=small", "--set",
                        "scene.cache_window=true"}),
            0)
      << folder.Errors();
  EXPECT_EQ(ReadAll(folder.Path() / "s.json.bak"), before);
  const std::string after = ReadAll(folder.Path() / "s.json");
  EXPECT_THAT(after, HasSubstr("// the gas\n    /* the end ] */")) << "comments stay";
  EXPECT_THAT(after,
              HasSubstr(R"("mode": "record", "duration": "cache window", "compression": "small")"));
  EXPECT_THAT(after, HasSubstr(R"("objects": ["smoke", "heat", "gas"])"));
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "o", "--quiet"}), 0) << folder.Errors();
  EXPECT_EQ(folder.Errors(), "");
  EXPECT_EQ(CountFiles(folder.Path() / "o/cache"), 5);
  const auto recorded = folder.Files("o");
  ASSERT_EQ(
      folder.Run({"run", "s.json", "--out", "o", "--quiet", "--set", "cacher.mode=play_back"}), 0)
      << folder.Errors();
  const auto played = folder.Files("o");
  for (const auto& [name, bytes] : recorded) {
    if (!name.starts_with("preview/")) continue;
    // What stands before the pixels tells of the simulation, which is another one.
    const auto pixels = [](const std::string& png) { return png.substr(png.find("IDAT")); };
    EXPECT_EQ(pixels(played.at(name)), pixels(bytes)) << name;
  }
  std::istringstream lines(played.at("stats.jsonl"));
  for (std::string line; std::getline(lines, line);)
    if (const json frame = json::parse(line); frame.contains("frame")) {
      EXPECT_TRUE(frame["solvers"]["gas"]["pressure"].empty()) << "nothing is simulated";
      EXPECT_GT(frame["channels"]["smoke"]["sum"].get<double>(), 0);
    }
}

TEST(CacheSetup, NewServerPlaysWhatTheOtherRecorded) {
  const RunFolder folder("new_server");
  folder.Write("s.json", Unrecorded(3));
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "smoke", "heat"}), 0) << folder.Errors();
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "o", "--quiet"}), 0) << folder.Errors();
  // Plays from the same folder beside the simulation that recorded it.
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "smoke", "heat", "--out", "p.json", "--set",
                        "scene.cache_setup_mode=new_server"}),
            0)
      << folder.Errors();
  EXPECT_THAT(folder.Errors(), HasSubstr("in the new server \"Cache\" plays smoke, heat"));
  const std::string text = ReadAll(folder.Path() / "p.json");
  EXPECT_THAT(
      text,
      HasSubstr(
          R"("name": "Cache", "parameters": { "extra_substeps": 0, "extra_min_substeps": 0, "cell_size": 0.15)"));
  ASSERT_EQ(folder.Run({"run", "p.json", "--out", "o", "--quiet"}), 0) << folder.Errors();
  std::istringstream lines(folder.Files("o").at("stats.jsonl"));
  for (std::string line; std::getline(lines, line);)
    if (const json frame = json::parse(line); frame.contains("frame")) {
      EXPECT_EQ(frame["channels"]["smoke"]["sum"], frame["channels"]["smoke cached"]["sum"]);
    }
}

TEST(CacheSetup, CopiesPlayWhatTheirOriginalsRecordedInAnyOrder) {
  const RunFolder folder("copies");
  std::string scene = Unrecorded(3);
  const std::string forces = R"("forces": ["lift"])";
  scene.replace(scene.find(forces), forces.size(), forces + R"(, "density_channel": "smoke")");
  folder.Write("s.json", scene);
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "--set", "scene.cache_name=take_"}), 0)
      << folder.Errors();
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "o", "--quiet"}), 0) << folder.Errors();
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "gas", "heat", "smoke", "--out", "p.json", "--set",
                        "scene.cache_setup_mode=new_server"}),
            0)
      << folder.Errors();
  EXPECT_THAT(folder.Errors(), HasSubstr("its copy is without forces"));
  const std::string text = ReadAll(folder.Path() / "p.json");
  const std::string copies = text.substr(text.find("// Plays what was recorded"));
  EXPECT_THAT(copies, HasSubstr(R"("density_channel": "smoke cached")"));
  EXPECT_THAT(copies, testing::Not(HasSubstr("lift")));
  EXPECT_THAT(copies, HasSubstr(R"("base_name": "take_")"));
  ASSERT_EQ(folder.Run({"run", "p.json", "--out", "o", "--quiet"}), 0) << folder.Errors();
  EXPECT_THAT(folder.Errors(), testing::Not(HasSubstr("the recording has no")));
  std::istringstream lines(folder.Files("o").at("stats.jsonl"));
  for (std::string line; std::getline(lines, line);)
    if (const json frame = json::parse(line); frame.contains("frame")) {
      EXPECT_EQ(frame["channels"]["smoke"]["sum"], frame["channels"]["smoke cached"]["sum"]);
      EXPECT_EQ(frame["channels"]["heat"]["sum"], frame["channels"]["heat cached"]["sum"]);
    }
}

TEST(CacheSetup, LaterCachesKeepNamesApartAndKinds) {
  const RunFolder folder("later");
  folder.Write("s.json", R"({ "sulva": 1, "nodes": [ { "type": "server", "name": "scene",
 "parameters": { "cache_name": "take_", "cache_objects": [{ "node": "water", "flags": 2 }] }, "children": [
  { "type": "particlegroup", "name": "water" },
  { "type": "particlegroup", "name": "foam" } ] } ] })");
  ASSERT_EQ(folder.Run({"cache-setup", "s.json"}), 0) << folder.Errors();
  const std::string first = ReadAll(folder.Path() / "s.json");
  EXPECT_THAT(first, HasSubstr(R"("base_name": "take_particles_")"));
  EXPECT_THAT(first, HasSubstr(R"("objects": [{ "node": "water", "flags": 2 }])"));
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "foam"}), 0) << folder.Errors();
  EXPECT_THAT(ReadAll(folder.Path() / "s.json"),
              HasSubstr(R"("base_name": "take_particles_2_", "objects": ["foam"])"));
  EXPECT_EQ(folder.Run({"check", "s.json"}), 0) << folder.Errors();
  EXPECT_EQ(folder.Run(
                {"cache-setup", "s.json", "--out", "t.json", "--set", "scene.cache_show_frame=-5"}),
            3)
      << "no cache holds a frame below 0";
}

TEST(CacheSetup, SaysWhatItCannotDoAndLeavesTheSceneAlone) {
  const RunFolder folder("refusals");
  const std::string before = Unrecorded(2);
  folder.Write("s.json", before);
  EXPECT_EQ(folder.Run({"cache-setup", "s.json", "ball mesh"}), 2);
  EXPECT_THAT(folder.Errors(),
              HasSubstr("mesh \"ball mesh\" can't be cached; expected a field, a volume, a flow, "
                        "a group of particles or a mesher"));
  EXPECT_EQ(folder.Run({"cache-setup", "s.json", "smok"}), 3);
  EXPECT_THAT(folder.Errors(), HasSubstr("did you mean 'smoke'?"));
  EXPECT_EQ(ReadAll(folder.Path() / "s.json"), before);
  EXPECT_FALSE(fs::exists(folder.Path() / "s.json.bak"));

  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "smoke"}), 0);
  EXPECT_EQ(folder.Run({"cache-setup", "s.json", "smoke"}), 2);
  EXPECT_THAT(folder.Errors(),
              HasSubstr("channel_scalar \"smoke\" is cached by cache \"cacher\" already"));
  ASSERT_EQ(folder.Run({"cache-setup", "s.json"}), 0) << "the rest gets a cacher of its own";
  EXPECT_THAT(ReadAll(folder.Path() / "s.json"),
              HasSubstr(R"("base_name": "cache_2_", "objects": ["heat", "gas"])"));
  EXPECT_EQ(folder.Run({"cache-setup", "s.json"}), 2);
  EXPECT_THAT(folder.Errors(), HasSubstr("nothing is left to cache"));
  EXPECT_EQ(folder.Run({"cache-setup", "s.json", "block volume", "--out", "s.json"}), 5);
  EXPECT_THAT(folder.Errors(), HasSubstr("exists already"));
  ASSERT_EQ(folder.Run({"run", "s.json", "--out", "o", "--quiet"}), 0);
  EXPECT_EQ(CountFiles(folder.Path() / "o/cache"), 6) << "two caches, three frames each";
}

TEST(CacheSetup, FindsItsPlaceBetweenBracketsCommentsAndGroups) {
  const RunFolder folder("odd");
  folder.Write("s.json", R"({ "sulva": 1, "nodes": [ { "type": "server", "name": "ü", "children": [
 { "type": "group", "children": [ { "type": "channel_scalar", "name": "a \" ]b" } ] }, { "type": "fluid", "name": "gas" } /* ] */ ] },
 { "type": "server", "name": "two", "children": [
  { "type": "channel_scalar" } // last ]
] } ] })");
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "--out", "o.json"}), 0) << folder.Errors();
  EXPECT_EQ(folder.Run({"check", "o.json"}), 0) << folder.Errors();
  EXPECT_THAT(folder.Answers(), HasSubstr("8 nodes"));
  const std::string both = ReadAll(folder.Path() / "o.json");
  EXPECT_THAT(both, HasSubstr("/* ] */"));
  EXPECT_THAT(both, HasSubstr("// last ]\n"));
  EXPECT_THAT(both, HasSubstr(R"("objects": ["a \" ]b", "gas"])"));
  EXPECT_THAT(both, HasSubstr(R"("base_name": "cache_2_", "objects": ["Scalar"])"))
      << "two servers don't write over each other's files";
  ASSERT_EQ(folder.Run({"cache-setup", "s.json", "gas", "--out", "p.json", "--set",
                        "ü.cache_setup_mode=new_server"}),
            0)
      << folder.Errors();
  EXPECT_EQ(folder.Run({"check", "p.json"}), 0) << folder.Errors();
  EXPECT_THAT(folder.Answers(), HasSubstr("9 nodes"));
}

}  // namespace MELDO_GLOBAL::app
