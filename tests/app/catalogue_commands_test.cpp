// The commands that print or copy what the product brings: nodes, new.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "app/command_new.h"
#include "app/command_nodes.h"
#include "app/exit_codes.h"
#include "app/scene_schema.h"
#include "nodes/catalogue.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using MELDO_SULVA::Catalogue;
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
  std::ofstream(target, std::ios::app) << "// changed by its owner\n";
  const auto size = fs::file_size(target);
  EXPECT_THROW(RunNew("box", target), CommandError);
  EXPECT_EQ(fs::file_size(target), size);
  EXPECT_THROW(RunNew("bax", folder / "other.json"), CommandError);
  const std::string list = Output([] { return RunNew("", {}); });
  EXPECT_NE(list.find("box"), std::string::npos);
  fs::remove_all(folder);
}
