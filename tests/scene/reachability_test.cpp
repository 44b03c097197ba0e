// Who takes part in a simulation, and what is told of it with its place.
#include "scene/reachability.h"

#include <gmock/gmock.h>

#include "cli/run_folder.h"
#include "scene/scene_file.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace MELDO_GLOBAL::app {
namespace {

/// A source of smoke in a box, of which a test changes a part.
const char* const kSmoke = R"({ "sulva": 1, "range": [0, 4],
 "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 60, 0] } ],
 "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.1 }, "children": [
  { "type": "channel_scalar", "name": "smoke" },
  { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
  { "type": "volume", "name": "shape", "parameters": { "mesh": "skin" } },
  { "type": "emission_setting", "name": "rate" },
  { "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } },
  { "type": "gridemitter", "name": "source", "parameters": { "volume": "shape", "channels": ["pair"] } },
  { "type": "force_gravity", "name": "wind" },
  { "type": "grid_advection", "name": "move", "parameters": { "target": "smoke", "solver": "gas" } }, { "type": "grid_advection", "name": "carry", "parameters": { "target": "gas", "solver": "gas" } },
  { "type": "fluid", "name": "gas", "position": [-100, 0, -100], "parameters": { "box_size": [200, 200, 200], "forces": ["wind"] } } ] } ] })";

struct LoadedSmoke {
  explicit LoadedSmoke(const std::string& what = "", const std::string& with = "",
                       const std::vector<std::string>& overrides = {}, const std::string& more = "",
                       const std::string& object = "") {
    std::string text = kSmoke;
    text.insert(text.size() - 1, more);
    text.insert(text.find('[', text.find("objects")) + 1, object);
    if (!what.empty()) {
      if (text.find(what) == text.npos) throw std::runtime_error(what + " isn't there");
      text.replace(text.find(what), what.size(), with);
    }
    const RunFolder folder("reachability");
    scene = LoadScene(folder.Write("s.json", text), diagnostics, overrides);
    for (std::string line : diagnostics.Lines()) {
      if (line.find("/s.json:") != line.npos) line.erase(0, line.find("/s.json:") + 1);
      lines.push_back(line);
    }
  }
  const NodeReach& Of(const std::string& name) const {
    return *scene->reach.Of(scene->document->FindByName("scene/" + name)->Id());
  }

  Diagnostics diagnostics;
  std::optional<LoadedScene> scene;
  std::vector<std::string> lines;
};

}  // namespace

TEST(Reachability, AWholeSceneHasNothingToTell) {
  const LoadedSmoke whole;
  EXPECT_THAT(whole.lines, IsEmpty());
  EXPECT_THAT(whole.scene->reach.Idle(), IsEmpty());
  ASSERT_EQ(whole.Of("smoke").readers.size(), 2u);
  EXPECT_EQ(whole.Of("smoke").readers[0]->Name(), "pair");
  EXPECT_EQ(whole.Of("smoke").readers[1]->Name(), "move");
}

TEST(Reachability, ACauseIsToldOnceAndItsVictimsSleep) {
  const LoadedSmoke cut(R"({ "object": "ball" })", "{ }");
  EXPECT_THAT(cut.lines,
              ElementsAre(HasSubstr("s.json:5:3: warning: mesh \"skin\": it never works: it has "
                                    "no object; name one under 'object'")));
  EXPECT_EQ(cut.Of("source").whyIdle,
            "its 'volume': 'shape' never works: its 'mesh': 'skin' never works: it has no "
            "object; name one under 'object'");
  EXPECT_TRUE(cut.Of("smoke").MayWork() && cut.Of("pair").MayWork());
  EXPECT_THAT(cut.Of("gas").whyIdle, HasSubstr("'source', which would fill it, never works"));
}

TEST(Reachability, AGasThatNothingFillsNamesTheCause) {
  const std::string source = R"("name": "source", "parameters")";
  const LoadedSmoke off(source, R"("name": "source", "enabled": false, "parameters")");
  const std::string cause = "'source', which would fill it, never works: it is switched off";
  EXPECT_THAT(off.lines,
              testing::Contains(HasSubstr(
                  "s.json:12:3: warning: fluid \"gas\": it has nothing to move: " + cause)));
  EXPECT_EQ(off.Of("gas").whyIdle, cause);
  EXPECT_EQ(off.Of("move").whyIdle, "its 'solver': 'gas' never works: " + cause);
  EXPECT_FALSE(off.Of("wind").MayWork()) << "the gas that it pushes rests";

  // Volumes that are there for the space, and recordings, bring something too.
  EXPECT_THAT(LoadedSmoke(source, R"("name": "source", "enabled": false, "parameters")",
                          {"shape.affects_bounds=true"})
                  .Of("gas")
                  .whyIdle,
              "");
  const std::string cache = R"({ "type": "cache", "name": "tape", "parameters": { "mode": "%",
    "objects": ["smoke"] } }, { "type": "gridemitter", "name": "source", "enabled": false, "parameters")";
  for (const std::string mode : {"play_back", "both", "record"}) {
    std::string with = cache;
    with.replace(with.find('%'), 1, mode);
    EXPECT_EQ(LoadedSmoke(R"({ "type": "gridemitter", )" + source, with).Of("gas").MayWork(),
              mode != "record");
  }
  // An excerpt without any source is most likely meant as one.
  const LoadedSmoke excerpt(
      R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "shape", "channels": ["pair"] } },)",
      "");
  EXPECT_FALSE(excerpt.diagnostics.HasWarnings());
  EXPECT_THAT(excerpt.lines, testing::Contains(HasSubstr("note: fluid \"gas\": it has nothing")));
}

TEST(Reachability, OperatorsOnFieldsThatNothingFillsRest) {
  const RunFolder folder("reachability");
  Diagnostics diagnostics;
  const auto scene = LoadScene(folder.Write("s.json", R"({ "sulva": 1, "nodes": [
   { "type": "server", "name": "scene", "children": [
    { "type": "channel_scalar", "name": "smoke" },
    { "type": "grid_dissipate", "name": "fade", "parameters": { "channel": "smoke" } },
    { "type": "grid_diffusion", "name": "blur", "parameters": { "channel": "smoke" } } ] } ] })"),
                               diagnostics);
  EXPECT_THAT(diagnostics.Lines(),
              ElementsAre(HasSubstr("note: grid_dissipate \"fade\": it has nothing to work on: "
                                    "there is no emitter that fills anything")));
  EXPECT_FALSE(scene->reach.Of(scene->document->FindByName("scene/blur")->Id())->MayWork());
}

TEST(Reachability, ALinkThatIsGivenIsNoEmptyOne) {
  const LoadedSmoke off(R"("name": "smoke" })", R"("name": "smoke", "enabled": false })");
  EXPECT_EQ(off.Of("move").whyIdle, "its 'target': 'smoke' is switched off");
  EXPECT_THAT(LoadedSmoke("", "", {"move.target=null"}).Of("move").whyIdle, "")
      << "without a target it moves the gas";
  const LoadedSmoke group(R"({ "type": "channel_scalar", "name": "smoke" })",
                          R"({ "type": "group", "name": "fields", "enabled": false, "children": [
    { "type": "channel_scalar", "name": "smoke" } ] })");
  EXPECT_EQ(group.Of("move").whyIdle,
            "its 'target': 'smoke' is switched off with 'fields', above it");
}

TEST(Reachability, AListThatIsLeftOpenTakesWhatIsThere) {
  const std::string wind = R"({ "type": "force_gravity", "name": "wind" })";
  const std::string iterator =
      R"({ "type": "grid_celliterator", "name": "cells", "parameters": { "channel": "smoke", "operators": null } })";
  EXPECT_THAT(LoadedSmoke(wind, wind + "," + iterator).Of("cells").whyIdle,
              HasSubstr("there is none in its server that 'operators', left open, could take"));
  const std::string ramp =
      R"(,{ "type": "channelop_remap", "name": "ramp", "parameters": { "gradient": [[0, [0, 0, 0]], [1, [1, 1, 1]]] } })";
  EXPECT_THAT(LoadedSmoke(wind, wind + "," + iterator + ramp).Of("cells").whyIdle, "");
}

TEST(Reachability, LinksThatLeadNowhereHaveThePlaceOfTheirEntry) {
  const LoadedSmoke off(R"("name": "wind" })", R"("name": "wind", "enabled": false })");
  EXPECT_THAT(off.lines, ElementsAre(HasSubstr(
                             "s.json:12:122: warning: fluid \"gas\": 'forces': 'wind' is switched "
                             "off")));
  EXPECT_EQ(off.Of("wind").whyIdle, "it is switched off");
  const LoadedSmoke given("", "", {"gas.forces=[]"});
  EXPECT_THAT(given.lines,
              ElementsAre(HasSubstr("s.json:10:3: warning: force_gravity \"wind\": it never works: "
                                    "no solver that runs names it under 'forces'")));
  EXPECT_THAT(LoadedSmoke("", "", {"gas.forces=null"}).lines, IsEmpty())
      << "all forces of the server";
  const LoadedSmoke option("", "", {"move.solver=null"});
  EXPECT_THAT(option.lines,
              testing::Contains(HasSubstr("--set move.solver=null: warning: grid_advection")));
}

TEST(Reachability, StagesInWhichNothingRunsAndServantsWithoutReaders) {
  for (const int stage : {1, 4, 16, 17, 23})
    EXPECT_THAT(LoadedSmoke(R"("solver": "gas" })",
                            R"("solver": "gas", "stage": )" + std::to_string(stage) + " }")
                    .lines,
                ElementsAre(HasSubstr("'stage': no node runs in stage " + std::to_string(stage))));
  EXPECT_THAT(LoadedSmoke(R"("solver": "gas" })", R"("solver": "gas", "stage": 12 })").lines,
              IsEmpty());
  const LoadedSmoke unread(R"(, "settings": "rate")", "");
  EXPECT_THAT(unread.lines,
              ElementsAre(HasSubstr("s.json:7:3: note: emission_setting \"rate\": no node"),
                          HasSubstr("channelsettings \"pair\": it never works")));
  EXPECT_FALSE(unread.Of("source").MayWork()) << "its only pair never works";
  EXPECT_TRUE(unread.Of("rate").isUnread);
}

TEST(Reachability, FieldsThatOnlyTheStatisticsTellOfAreNotedAtOnce) {
  const std::string exports = R"(, "exports": [ { "format": "vdb", "file": "####.vdb", "grids": {)";
  const std::string two = R"({ "type": "channel_scalar", "name": "dust" },
    { "type": "channel_temp", "name": "heat" }, { "type": "channel_scalar", "name": "smoke" })";
  const std::string one = R"({ "type": "channel_scalar", "name": "smoke" })";
  const auto load = [&](const std::string& grids, const std::string& channels) {
    LoadedSmoke loaded(one, channels, {}, exports + grids + "} } ]");
    return loaded;
  };
  EXPECT_THAT(load(R"("density": "smoke")", one).lines, IsEmpty());
  const LoadedSmoke velocity = load(R"("velocity": "gas")", one);
  EXPECT_THAT(velocity.lines,
              ElementsAre(HasSubstr("s.json:4:3: note: channel_scalar \"smoke\": no working node, export "
                                    "or picture reads it: the statistics alone tell of it")));
  EXPECT_TRUE(velocity.Of("smoke").isUnread);
  EXPECT_THAT(load(R"("density": "smoke")", two).lines,
              ElementsAre(HasSubstr("channel_scalar \"dust\": no working node, export or picture reads "
                                    "it, nor 'heat': the statistics alone tell of them")));
  const std::string reader = two + R"(, { "type": "force_buoyancy", "name": "lift",
    "parameters": { "temperature_channel": "heat", "density_channel": "dust" } })";
  EXPECT_THAT(load(R"("density": "smoke")", reader).lines,
              ElementsAre(HasSubstr("reads it, nor 'heat'"),
                          HasSubstr("force_buoyancy \"lift\": it never works")))
      << "who never works doesn't read";
}

TEST(Reachability, ShapesThatNothingComesOutOf) {
  const std::string ball =
      R"("type": "sphere", "radius": 30, "segments": 16, "position": [0, 60, 0])";
  EXPECT_THAT(
      LoadedSmoke(ball, R"("type": "sphere", "radius": 30, "position": [0, 260, 0])").lines,
      ElementsAre(HasSubstr("s.json:9:72: warning: gridemitter \"source\": it never works: "
                            "the shape of 'shape' lies outside of the box of every fluid")));
  EXPECT_THAT(
      LoadedSmoke(ball, R"("type": "plane", "size": [60, 60], "position": [0, 60, 0])").lines,
      ElementsAre(HasSubstr("is flat and has no inside")));
  EXPECT_THAT(
      LoadedSmoke(ball, R"("type": "box", "size": [60, 4, 60], "position": [0, 60, 0])").lines,
      ElementsAre(HasSubstr("is 0.4 of a cell thin")));
  EXPECT_THAT(LoadedSmoke(ball, R"("type": "sphere", "radius": 30, "position": [0, 215, 0])").lines,
              IsEmpty())
      << "it reaches into the box";
  EXPECT_THAT(
      LoadedSmoke(
          ball,
          R"("type": "sphere", "radius": 30, "position": {"keys": [[0, [0, 260, 0]], [3, [0, 60, 0]]]})")
          .lines,
      IsEmpty())
      << "it comes into the box later";
}

TEST(Reachability, AFluidThatNothingComesIntoIsTold) {
  const std::string wind = R"({ "type": "force_gravity", "name": "wind" },)";
  const auto told = [&](const std::string& place, const std::string& more = "") {
    std::vector<std::string> lines =
        LoadedSmoke(wind, wind + R"({ "type": "fluid", "name": "other", "position": )" + place +
                              R"(, "parameters": { "forces": [], "box_size": [90, 90, 90] } },)" +
                              more)
            .lines;
    std::erase_if(lines,
                  [](const std::string& line) { return line.find("its flow") != line.npos; });
    return lines;
  };
  EXPECT_THAT(told("[500, 0, 0]"),
              ElementsAre(HasSubstr("warning: fluid \"other\": it never works: no emitter fills "
                                    "anything in its box; it begins at its position")));
  EXPECT_THAT(told("[0, 40, 0]"), IsEmpty());
  EXPECT_THAT(told("[150, 0, 0]"), IsEmpty()) << "the first one's smoke may drift into it";
  EXPECT_THAT(told("{\"keys\": [[0, [500, 0, 0]], [3, [0, 0, 0]]]}"), IsEmpty());
  EXPECT_THAT(told("[500, 0, 0]", R"({ "type": "cache", "name": "tape", "parameters": { "mode":
                                  "play_back", "objects": ["smoke"] } },)"),
              IsEmpty())
      << "a recording may bring something";
}

TEST(Reachability, WhatIsInTheWayOfNothingAndServersWithoutNodesAreNoted) {
  const std::string mesh = R"({ "type": "mesh", "name": "skin",)";
  const auto told = [&](const std::string& place) {
    return LoadedSmoke(
               mesh,
               R"({ "type": "mesh", "name": "wall skin", "parameters": { "object": "wall" } },
   { "type": "volume", "name": "wall", "parameters": { "mesh": "wall skin" }, "obstacle": {} },)" +
                   mesh,
               {}, "",
               R"({ "name": "wall", "type": "box", "size": [20, 20, 20], "position": )" + place +
                   " },")
        .lines;
  };
  EXPECT_THAT(told("[0, 150, 0]"), IsEmpty());
  EXPECT_THAT(told("[0, 250, 0]"),
              ElementsAre(HasSubstr("note: volume \"wall\": it lies outside of the box of every "
                                    "fluid, and is in the way of no gas")));
  EXPECT_THAT(
      LoadedSmoke(R"("nodes": [ )", R"("nodes": [ { "type": "server", "name": "bare" }, )").lines,
      ElementsAre(HasSubstr("note: server \"bare\": it has no nodes")));
}

TEST(Reachability, ACacheWithoutFilesToPlayIsNoted) {
  const std::string wind = R"({ "type": "force_gravity", "name": "wind" },)";
  const auto told = [&](const std::string& parameters) {
    return LoadedSmoke(wind, wind + R"({ "type": "cache", "name": "tape", "parameters": {
   "objects": ["smoke"], )" + parameters +
                                 " } },")
        .lines;
  };
  const std::string folder = R"("folder": "custom", "custom_folder": "nowhere")";
  EXPECT_THAT(told(R"("mode": "play_back", )" + folder),
              ElementsAre(HasSubstr("note: cache \"tape\": it has nothing to play: there are no "
                                    "files of its 'base_name' in ")));
  EXPECT_THAT(told(R"("mode": "both", )" + folder), IsEmpty());
  EXPECT_THAT(told(R"("mode": "play_back")"), IsEmpty()) << "that folder is each run's own";
}

TEST(Reachability, PointsOutsideOfEveryBoxFillNothing) {
  const std::string wind = R"({ "type": "force_gravity", "name": "wind" },)";
  const auto told = [&](const std::string& place) {
    const LoadedSmoke loaded(
        wind, wind + R"({ "type": "mesh", "name": "star skin", "parameters": { "object": "star" } },
   { "type": "channelvalue", "name": "dust", "parameters": { "channel": "smoke" } },
   { "type": "properties_particles", "name": "dots", "parameters": { "source": "star skin", "values": ["dust"], "radius": 2 } },)",
        {}, "",
        R"({ "name": "star", "type": "box", "size": [20, 20, 20], "position": )" + place + " },");
    return loaded.lines;
  };
  EXPECT_THAT(told("[0, 60, 0]"), IsEmpty());
  EXPECT_THAT(told("[0, 225, 0]"), IsEmpty()) << "the lower points reach in";
  EXPECT_THAT(told("[0, 260, 0]"),
              ElementsAre(HasSubstr("properties_particles \"dots\": it never works: the shape of "
                                    "'star skin' lies outside of the box of every fluid")));
}

}  // namespace MELDO_GLOBAL::app
