// A group of nodes: what it means to be named in a list or a link, and what it does in a scene.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "framework/sulva_scene.h"
#include "host/temp_folder.h"
#include "nodes/catalogue.h"
#include "scene/scene_file.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// A scene with a group "forces" of two forces in two depths, a group "one" of a single channel and
/// more `children` of the server.
struct LoadedGroups {
  explicit LoadedGroups(const std::string& children,
                        const std::vector<std::string>& overrides = {}) {
    const fs::path path = folder.Path() / "scene.json";
    std::ofstream(path) << R"({ "sulva": 1,
"nodes": [ { "type": "server", "name": "scene", "children": [
  { "type": "group", "name": "forces", "children": [
    { "type": "force_gravity", "name": "wind" },
    { "type": "Node Group", "name": "inner", "children": [ { "type": "force_swirling", "name": "curls" } ] } ] },
  { "type": "group", "name": "one", "children": [ { "type": "channel_scalar", "name": "smoke" } ] },
  { "type": "group", "name": "none" },
)" << children << "\n ] } ] }\n";
    scene = LoadScene(path, diagnostics, overrides);
  }
  host::BaseNode* Node(const std::string& name) const { return Find(*scene->server, name); }
  static host::BaseNode* Find(host::BaseNode& node, const std::string& name) {
    if (node.Name() == name) return &node;
    for (host::BaseNode* child : node.Children())
      if (host::BaseNode* found = Find(*child, name)) return found;
    return nullptr;
  }
  /// The names in a list of links, each with its flags.
  std::vector<std::string> Listed(const std::string& node, i32 id) const {
    std::vector<std::string> names;
    for (const auto& entry : std::get<host::InExcludeData>(*Node(node)->Get(id)).entries)
      names.push_back(scene->document->Find(entry.node)->Name() + " " +
                      std::to_string(entry.flags));
    return names;
  }

  host::TempFolder folder;
  Diagnostics diagnostics;
  std::optional<LoadedScene> scene;
};

constexpr i32 kForces = 1008, kTarget = 1000;

}  // namespace

TEST(Group, InAListStandsForItsChildrenWithTheFlagsOfTheEntry) {
  const LoadedGroups loaded(R"({ "type": "force_buoyancy", "name": "lift" },
    { "type": "fluid", "name": "gas", "parameters": { "forces": ["lift", { "node": "forces", "flags": 3 }] } })");
  ASSERT_TRUE(loaded.scene) << loaded.diagnostics.Lines()[0];
  EXPECT_THAT(loaded.Listed("gas", kForces), ElementsAre("lift 0", "wind 3", "curls 3"));
}

TEST(Group, OnTheCommandLineToo) {
  const LoadedGroups loaded(R"({ "type": "fluid", "name": "gas" })",
                            {R"(gas.forces=["/scene/forces"])"});
  ASSERT_TRUE(loaded.scene);
  EXPECT_THAT(loaded.Listed("gas", kForces), ElementsAre("wind 0", "curls 0"));
}

TEST(Group, InALinkStandsForItsOnlyChild) {
  const LoadedGroups loaded(
      R"({ "type": "grid_advection", "name": "move", "parameters": { "target": "one" } },
         { "type": "cache", "name": "cache", "parameters": { "objects": ["one"] } })");
  ASSERT_TRUE(loaded.scene) << loaded.diagnostics.Lines()[0];
  EXPECT_EQ(std::get<host::Link>(*loaded.Node("move")->Get(kTarget)).node,
            loaded.Node("smoke")->Id());
  EXPECT_THAT(loaded.Listed("cache", 1012), ElementsAre("smoke 0"))
      << "a list that takes any node doesn't take the group itself";
}

TEST(Group, WhatItCannotStandForIsAnErrorAtItsPlace) {
  const LoadedGroups loaded(
      R"({ "type": "grid_advection", "name": "a", "parameters": { "target": "forces" } },
{ "type": "grid_advection", "name": "b", "parameters": { "solver": "none" } },
{ "type": "fluid", "name": "c", "parameters": { "forces": ["one"] } },
{ "type": "fluid", "name": "d", "parameters": { "forces": ["forcez"] } },
{ "type": "cache", "name": "e", "parameters": { "duration": "forces", "objects": ["forces"], "constraints": ["none"] } },
{ "type": "force_buoyancy", "name": "f", "parameters": { "temperature_channel": "inner" } })");
  EXPECT_FALSE(loaded.scene);
  EXPECT_THAT(
      loaded.diagnostics.Lines(),
      ElementsAre(
          HasSubstr("8:68: error: grid_advection \"a\": 'target': the group 'forces' stands "
                    "for its children, but its 'wind' is a force_gravity node"),
          HasSubstr("9:68: error: grid_advection \"b\": 'solver': the group 'none' is empty"),
          HasSubstr("10:60: error: fluid \"c\": 'forces': the group 'one' stands for its "
                    "children, but its 'smoke' is a channel_scalar node"),
          HasSubstr("did you mean 'forces'?"),
          HasSubstr("'duration': the group 'forces' stands for its children, but its 'wind'"),
          HasSubstr("'objects': the group 'forces' stands for its children, but its 'wind'"),
          HasSubstr("'constraints': the group 'none' is empty"),
          HasSubstr("its 'curls' is a force_swirling node")));
}

TEST(Group, OfSeveralThatFitASingleLinkIsAQuestion) {
  const LoadedGroups loaded(R"({ "type": "group", "name": "two", "children": [
      { "type": "channel_scalar", "name": "x" }, { "type": "channel_scalar", "name": "y" } ] },
    { "type": "grid_advection", "name": "move", "parameters": { "target": "two" } })");
  EXPECT_FALSE(loaded.scene);
  EXPECT_THAT(loaded.diagnostics.Lines(),
              ElementsAre(HasSubstr("the group 'two' has 2 children; a group stands here for its "
                                    "one child, so name the child that is meant")));
}

TEST(Group, ANodeOfTheSameNameThatFitsIsMeantFirst) {
  const LoadedGroups loaded(R"({ "type": "channel_scalar", "name": "forces 2" },
    { "type": "group", "name": "x", "children": [ { "type": "channel_scalar", "name": "forces" } ] },
    { "type": "grid_advection", "name": "move", "parameters": { "target": "forces" } })");
  ASSERT_TRUE(loaded.scene) << loaded.diagnostics.Lines()[0];
  EXPECT_EQ(std::get<host::Link>(*loaded.Node("move")->Get(kTarget)).node,
            LoadedGroups::Find(*loaded.Node("x"), "forces")->Id());
}

TEST(Group, ItsChildrenAreNodesOfTheSceneAndGoOffWithIt) {
  const LoadedGroups loaded(
      R"({ "type": "group", "name": "last", "position": [10, 0, 0], "children": [
    { "type": "channel_scalar", "name": "deep" } ] })");
  ASSERT_TRUE(loaded.scene);
  const auto scene = MELDO_SULVA::CreateScene(*loaded.scene->server);
  scene->Synchronise(loaded.scene->document.get());
  EXPECT_EQ(scene->List(1).size(), 2u) << "smoke and deep";
  EXPECT_EQ(scene->List(7).size(), 2u) << "wind and curls";
  EXPECT_EQ(loaded.Node("deep")->GlobalMatrix().offset.x, 10);
  loaded.Node("last")->SetEnabled(false);
  scene->Synchronise(loaded.scene->document.get());
  EXPECT_EQ(scene->FindObject(loaded.Node("deep"), 1), nullptr);
  EXPECT_NE(scene->FindObject(loaded.Node("smoke"), 1), nullptr);
  std::size_t objects = 0;
  for (i32 list = 1; list <= 11; ++list) objects += scene->List(list).size();
  EXPECT_EQ(objects, 4u) << "groups have no object";
}
