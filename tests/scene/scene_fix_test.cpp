#include "scene/scene_fix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cli/command_line.h"
#include "host/temp_folder.h"
#include "scene/scene_file.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

SceneFix Fixed(const std::string& text) {
  Diagnostics diagnostics;
  JsonValue root;
  EXPECT_TRUE(ParseJson(text, "scene.json", root, diagnostics)) << diagnostics.Lines()[0];
  return FixVolumes(text, root);
}

std::string Scene(const std::string& children) {
  std::string text = R"({ "sulva": 1, // Kugel "ö"
 "objects": [)";
  for (const char* name : {"a", "b", "c", "d", "e", "f", "both"})
    text += std::string("{ \"type\": \"sphere\", \"name\": \"") + name + "\" }, ";
  return text + R"({ "type": "light", "name": "sun" } ],
 "nodes": [ { "type": "server", "name": "scene", "children": [
   { "type": "mesh", "name": "m", "parameters": { "object": "a" } }, /* [ */)" +
         children + " ] } ] }\n";
}

std::vector<std::string> ProblemsOf(const std::string& text) {
  host::TempFolder folder;
  const fs::path path = folder.Path() / "scene.json";
  std::ofstream(path, std::ios::binary) << text;
  Diagnostics diagnostics;
  LoadScene(path, diagnostics);
  std::vector<std::string> lines = diagnostics.Lines();
  // These scenes have nothing that reads their nodes.
  std::erase_if(lines, [](const std::string& line) { return line.find(": note: ") != line.npos; });
  return lines;
}

}  // namespace

TEST(SceneFix, PutsAMeshBetweenAVolumeAndItsObject) {
  const std::string before = Scene(R"(
   { "name": "ü", /* keep */ "type": "Volume", "parameters": { "mesh": "b", "padding_cells": 2 } })");
  const SceneFix fix = Fixed(before);
  EXPECT_THAT(fix.notes, ElementsAre(R"(volume "ü": made the mesh node 'ü b')"));
  EXPECT_EQ(fix.text, Scene(R"(
   { "children": [ { "type": "mesh", "name": "ü b", "parameters": { "object": "b" } } ], "name": "ü", /* keep */ "type": "Volume", "parameters": { "mesh": "ü b", "padding_cells": 2 } })"));
  EXPECT_THAT(ProblemsOf(before), testing::Not(IsEmpty()));
  EXPECT_THAT(ProblemsOf(fix.text), IsEmpty());
  EXPECT_THAT(Fixed(fix.text).notes, IsEmpty()) << "nothing is left to do";
}

TEST(SceneFix, GivesEachEntryOfAShortListItsMesh) {
  const SceneFix fix = Fixed(Scene(R"(
   { "type": 1300133, "name": "g", "children": [ { "type": "mesh", "name": "g a" } ],
     "parameters": { "1100": [ "m", "a", {"node": "/b", "flags": 2} ] } })"));
  EXPECT_EQ(fix.notes.size(), 2u);
  EXPECT_THAT(fix.text, HasSubstr(R"([ "m", "g a 2", {"node": "g b", "flags": 2} ])"));
  EXPECT_THAT(
      fix.text,
      HasSubstr(
          R"({ "type": "mesh", "name": "g b", "parameters": { "object": "/b" } }, { "type": "mesh", "name": "g a" } ])"));
}

TEST(SceneFix, JoinsALongListInOneGroup) {
  const SceneFix fix = Fixed(Scene(R"(
   { "type": "volume_multi", "name": "g", "children": [],
     "parameters": { "meshes": [ "a", "b", /* , "x" ] */ {"node": "m"}, "c", "d", "e" ] } })"));
  EXPECT_THAT(fix.notes, ElementsAre(R"(volume_multi "g": made the node 'g a,..' for 5 objects)"));
  EXPECT_THAT(fix.text, HasSubstr(R"("meshes": ["g a,..", {"node": "m"}])"));
  EXPECT_THAT(fix.text, HasSubstr(R"("parameters": { "objects": ["a", "b", "c", "d", "e"] } } ])"));
  EXPECT_THAT(ProblemsOf(fix.text), IsEmpty());
}

TEST(SceneFix, LeavesAloneWhatItDoesNotUnderstand) {
  for (const char* children :
       {R"({ "type": "volume", "name": "v", "parameters": { "mesh": "m" } })",
        R"({ "type": "volume", "name": "v", "parameters": { "mesh": "sun" } })",
        R"({ "type": "volume", "name": "v", "parameters": { "mesh": "nowhere" } })",
        R"({ "type": "volume", "name": "v", "parameters": { "mesh": ["a"] } })",
        R"({ "type": "volume", "name": "v", "children": 3, "parameters": { "mesh": "a" } })",
        R"({ "type": "duration", "name": "both" },
           { "type": "volume", "name": "v", "parameters": { "mesh": "both" } })",
        R"({ "type": {}, "name": "v", "parameters": { "mesh": "a" } })",
        R"({ "type": "volume_multi", "name": "v", "parameters": { "meshes": "a" } })"}) {
    const SceneFix fix = Fixed(Scene(children));
    EXPECT_THAT(fix.notes, IsEmpty()) << children;
    EXPECT_EQ(fix.text, Scene(children));
  }
  EXPECT_THAT(Fixed("[]").notes, IsEmpty());
  EXPECT_THAT(Fixed(R"({"objects": 1, "nodes": {"a": []}})").notes, IsEmpty());
}

TEST(SceneFix, CommandKeepsTheSceneAsItWas) {
  host::TempFolder folder;
  const fs::path path = folder.Path() / "scene.json";
  const auto read = [](const fs::path& p) {
    std::ifstream file(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  const std::string before =
      Scene(R"({ "type": "volume", "name": "v", "parameters": { "mesh": "a" } })");
  std::ofstream(path, std::ios::binary) << before;
  const auto check = [&](bool fix) {
    std::string words[] = {"sulva", "check", path.string(), "--fix"};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data()};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int code = Main(fix ? 4 : 3, arguments);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return code;
  };
  EXPECT_EQ(check(false), 3);
  EXPECT_EQ(check(true), 0);
  EXPECT_EQ(read(path.string() + ".bak"), before);
  const std::string fixed = read(path);
  EXPECT_NE(fixed, before);
  EXPECT_EQ(check(true), 0);
  EXPECT_EQ(read(path), fixed);
  EXPECT_FALSE(fs::exists(path.string() + ".bak2")) << "nothing to fix, nothing written";
  std::ofstream(path, std::ios::binary) << before;
  EXPECT_EQ(check(true), 0);
  EXPECT_EQ(read(path.string() + ".bak2"), before);
}
