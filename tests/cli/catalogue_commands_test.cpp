// The commands that print or copy what the product brings: nodes, new.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "cli/command_new.h"
#include "cli/command_nodes.h"
#include "host/exit_codes.h"
#include "nodes/catalogue.h"
#include "nodes/guide.h"
#include "nodes/help_words.h"
#include "nodes/presets.h"
#include "paths.h"
#include "scene/render_section.h"
#include "scene/scene_file.h"
#include "scene/scene_schema.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using MELDO_SULVA::Catalogue;
using MELDO_SULVA::SaysMoreThanItsName;
using nlohmann::json;

namespace {

std::string Output(const std::function<int()>& command) {
  testing::internal::CaptureStdout();
  const int code = command();
  std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(code, 0);
  return text;
}

}  // namespace

TEST(NodesCommand, JsonHoldsEveryKindWithItsParameters) {
  const json kinds = json::parse(Output([] { return RunNodes("", true); }));
  ASSERT_EQ(kinds.size(), Catalogue().size());
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    EXPECT_EQ(kinds[i]["id"], Catalogue()[i].id);
    for (const json& parameter : kinds[i]["parameters"])
      for (const char* key : {"id", "name", "type", "default", "unit", "help"})
        EXPECT_TRUE(parameter.contains(key)) << kinds[i]["type"] << " " << key;
  }
}

TEST(NodesCommand, ShowsApartWhatIsOnlyKept) {
  const std::string text = Output([] { return RunNodes("fluid", false); });
  const std::size_t kept = text.find("\nKept with the scene, without effect:\n");
  ASSERT_NE(kept, std::string::npos);
  EXPECT_LT(text.find("  accuracy "), kept);
  EXPECT_GT(text.find("  viscosity_mode "), kept);
  std::set<std::string> names;
  const json fluid = json::parse(Output([] { return RunNodes("fluid", true); }))[0];
  for (const json& row : fluid["parameters"])
    if (row.contains("kept")) names.insert(row["name"]);
  EXPECT_TRUE(names.contains("viscosity_mode") && !names.contains("accuracy"));
}

TEST(NodesCommand, KnowsTheTablesOfPictures) {
  const json light = json::parse(Output([] { return RunNodes("light", true); }))[0];
  EXPECT_EQ(light["type"], "light");
  EXPECT_EQ(light["parameters"][0]["choices"][1]["name"], "spot");
  EXPECT_NE(Output([] { return RunNodes("gas", false); }).find("phase_function"),
            std::string::npos);
}

TEST(NodesCommand, DefaultsLimitsAndChoicesAreJsonOfTheirKind) {
  const json server = json::parse(Output([] { return RunNodes("1300000", true); }))[0];
  const auto find = [](const json& kind, int id) {
    for (const json& parameter : kind["parameters"])
      if (parameter["id"] == id) return parameter;
    return json();
  };
  EXPECT_EQ(server["type"], "server");
  EXPECT_TRUE(server["priority"].is_null());
  EXPECT_EQ(find(server, 1002)["default"], 0.2);
  EXPECT_EQ(find(server, 1012)["default"], json({0.0, -9.81, 0.0}));
  EXPECT_EQ(find(server, 1006)["default"], true);
  EXPECT_EQ(find(server, 1003)["choices"][2], json({{"value", 2}, {"name", "fixed_step"}}));
  EXPECT_EQ(find(server, 1005)["max"], 254);
  const json volume = json::parse(Output([] { return RunNodes("Volume", true); }))[0];
  EXPECT_TRUE(find(volume, 1003)["default"].is_null());
  EXPECT_EQ(find(volume, 2502)["default"], json::array());
  EXPECT_FALSE(find(volume, 1003).contains("min"));
  EXPECT_THROW(RunNodes("volumes of it", false), CommandError);
}

TEST(NodesCommand, TextNamesEveryKind) {
  const std::string text = Output([] { return RunNodes("", false); });
  for (const auto& kind : Catalogue())
    EXPECT_NE(text.find(std::string(kind.label)), std::string::npos) << kind.label;
}

TEST(NodesCommand, HelpOfPicturesSaysMoreThanTheName) {
  for (const PictureTable& table : PictureTables())
    for (const host::ParameterRow& row : table.rows())
      EXPECT_TRUE(SaysMoreThanItsName(row)) << table.name << '.' << row.name << ": " << row.help;
}

TEST(NodesCommand, GroupsStandInTheOrderOfTheMenu) {
  const std::string text = Output([] { return RunNodes("", false); });
  std::size_t at = 0;
  for (const char* line :
       {"Support\n  server ", "  group ", "General\n  duration ", "Bodies\n  volume ",
        "  obstacle ", "Dynamics\n  fluid ", "Grids\n  channel_scalar ", "  channel_vector ",
        "  channel_temp ", "Grids/Forces", "Grids/Emitters", "Presets", "  gas_windsmoke ",
        "  gas_tempsmoke ", "  preset_fire "}) {
    const std::size_t found = text.find(line, at);
    ASSERT_NE(found, std::string::npos) << line;
    at = found;
  }
}

TEST(NodesCommand, OneKindIsFoundHoweverItIsWritten) {
  const std::string emitter = Output([] { return RunNodes("gridemitter", false); });
  EXPECT_EQ(Output([] { return RunNodes("GridEmitter", false); }), emitter);
  EXPECT_EQ(Output([] { return RunNodes("emitter::grid", false); }), emitter);
  EXPECT_NE(Output([] { return RunNodes("Obstacle", false); }).find("linear_velocity_transfer"),
            std::string::npos);
  try {
    RunNodes("gridemiter", false);
    FAIL();
  } catch (const CommandError& error) {
    EXPECT_NE(std::string(error.what()).find("did you mean 'gridemitter'?"), std::string::npos);
  }
}

TEST(NodesCommand, AParameterIsShownWithAllThatIsKnownOfIt) {
  const std::string text = Output([] { return RunNodes("server", false); });
  EXPECT_NE(
      text.find("cfl                            1011   real      default 2 cells, at least 0, "
                "only with time_mode adaptive\n      how far the fastest flow"),
      std::string::npos)
      << text;
  EXPECT_NE(Output([] {
              return RunNodes("gridemitter", false);
            }).find("link      default none, to volume, volume_multi\n"),
            std::string::npos);
  EXPECT_NE(text.find("default adaptive, one of adaptive (0), fixed_substeps (1), fixed_step (2)"),
            std::string::npos);
}

namespace {
/// Whether nodes of any kind may name one of this kind.
bool IsLinked(i32 id) {
  for (const auto& kind : Catalogue())
    for (const auto& row : MELDO_SULVA::ParametersOf(kind))
      if (std::find(row.accepts.begin(), row.accepts.end(), id) != row.accepts.end()) return true;
  return false;
}
}  // namespace

TEST(NodesCommand, EveryKindHasAPurposeAndAnExampleThatIsValid) {
  const fs::path folder = fs::temp_directory_path() / "sulva_examples";
  fs::create_directories(folder);
  std::vector<std::pair<i32, std::string>> kinds = {{host::kObstacleTag, "\"obstacle\": {"}};
  for (const auto& kind : Catalogue())
    kinds.emplace_back(kind.id, "\"type\": \"" + std::string(kind.type) + "\"");
  for (const auto& [id, use] : kinds) {
    SCOPED_TRACE(id);
    EXPECT_FALSE(MELDO_SULVA::PurposeOf(id).empty());
    const std::string example = MELDO_SULVA::ExampleOf(id);
    EXPECT_NE(example.find(use), std::string::npos) << "the example uses the kind:\n" << example;
    const auto lines = std::count(example.begin(), example.end(), '\n');
    EXPECT_GE(lines, 4);
    EXPECT_LE(lines, 16);
    std::ofstream(folder / "example.json") << example;
    Diagnostics diagnostics;
    EXPECT_TRUE(LoadScene(folder / "example.json", diagnostics)) << example;
    // Most are excerpts, without a source; what no kind links is read by none.
    for (const std::string& line : diagnostics.Lines())
      EXPECT_TRUE(line.find(": it has nothing to ") != line.npos ||
                  (!IsLinked(id) && line.find(" reads it, so that it ") != line.npos))
          << line << "\n"
          << example;
  }
  fs::remove_all(folder);
}

TEST(SceneSchema, EveryReferenceResolvesAndEveryKindIsThere) {
  const json schema = json::parse(SceneSchema());
  for (const auto& kind : Catalogue())
    EXPECT_TRUE(schema["$defs"].contains("parameters_" + std::string(kind.type)));
  const std::function<void(const json&)> walk = [&](const json& value) {
    if (value.is_object() && value.contains("$ref")) {
      const std::string target = value["$ref"].get<std::string>().substr(1);
      EXPECT_TRUE(schema.contains(json::json_pointer(target))) << target;
    }
    if (value.is_structured())
      for (const json& inner : value) walk(inner);
  };
  walk(schema);
}

TEST(NewCommand, CopiesASceneOnceAndNeverOverwrites) {
  const fs::path folder = fs::temp_directory_path() / "sulva_new_command";
  fs::remove_all(folder);
  fs::create_directories(folder);
  const fs::path target = folder / "mine.json";
  Output([&] { return RunNew("box", target); });
  EXPECT_TRUE(fs::is_regular_file(target));
  std::ifstream file(target);
  const auto schema = json::parse(file, nullptr, true, true)["$schema"].get<std::string>();
  EXPECT_TRUE(fs::path(schema).is_relative()) << schema;
  EXPECT_TRUE(fs::equivalent(folder / schema, SourcePath("/docs/sulva.schema.json"))) << schema;
  std::ofstream(target, std::ios::app) << "// changed by its owner\n";
  const auto size = fs::file_size(target);
  EXPECT_THROW(RunNew("box", target), CommandError);
  EXPECT_EQ(fs::file_size(target), size);
  EXPECT_THROW(RunNew("bax", folder / "other.json"), CommandError);
  fs::remove_all(folder);
}

TEST(NewCommand, ListsEachSceneInALineAndPresetsByTheirLabel) {
  std::istringstream list(Output([] { return RunNew("", {}); }));
  std::set<std::string> names;
  for (std::string line; std::getline(list, line);) {
    EXPECT_LT(line.size(), 140u) << line;
    names.insert(line.substr(0, line.find(' ')));
    EXPECT_GT(line.size(), line.find(' ') + 12) << line << ": says what it shows";
  }
  for (const auto& entry : fs::directory_iterator(SourcePath("/scenes")))
    if (entry.path().extension() == ".json") {
      EXPECT_TRUE(names.erase(entry.path().stem().string())) << entry.path();
    }
  EXPECT_TRUE(names.empty());

  const fs::path folder = fs::temp_directory_path() / "sulva_presets";
  for (const auto& preset : MELDO_SULVA::Presets()) {
    const fs::path file = folder / (std::string(preset.name) + ".json");
    fs::remove(file);
    Output([&] { return RunNew(std::string(preset.label), file); });
    Diagnostics diagnostics;
    const auto scene = LoadScene(file, diagnostics);
    ASSERT_TRUE(scene) << preset.name;
    EXPECT_TRUE(diagnostics.Lines().empty());
    EXPECT_TRUE(scene->render) << "it makes a picture";
    std::ifstream in(file);
    const std::string text(std::istreambuf_iterator<char>(in), {});
    EXPECT_NE(text.find("// " + std::string(preset.label) + ": "), std::string::npos);
  }
  fs::remove_all(folder);
}

/// A comment tells what a node is for; a few of one kind may share it.
TEST(ReadyMadeScenes, EveryNodeIsExplained) {
  constexpr int most = 4;
  for (const auto& entry : fs::directory_iterator(SourcePath("/scenes"))) {
    if (entry.path().extension() != ".json") continue;
    std::ifstream in(entry.path());
    int sharers = most, number = 0;
    bool inNodes = false;
    for (std::string line; std::getline(in, line);) {
      ++number;
      const std::size_t at = line.find_first_not_of(' ');
      if (line.starts_with("  \"")) inNodes = line.starts_with("  \"nodes\"");
      if (at == std::string::npos) {
        sharers = most;
      } else if (line.compare(at, 2, "//") == 0) {
        sharers = 0;
      } else if (inNodes && line.compare(at, 8, "{ \"type\"") == 0) {
        EXPECT_LT(sharers++, most) << entry.path() << ':' << number << ": " << line;
      }
    }
  }
}
