// Notes and warnings of numbers, links and places with which nothing happens.
#include <gmock/gmock.h>

#include "cli/run_folder.h"
#include "scene/scene_file.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace MELDO_GLOBAL::app {
namespace {

/// What is told of a source of smoke with nodes beside it.
std::vector<std::string> ToldWith(const std::string& nodes, const std::string& ofRate = "") {
  const std::string text =
      R"({ "sulva": 1, "range": [0, 4],
 "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 60, 0] } ],
 "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.1 }, "children": [
  { "type": "channel_scalar", "name": "smoke" },
  { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
  { "type": "volume", "name": "shape", "parameters": { "mesh": "skin" } },
  { "type": "emission_setting", "name": "rate", "parameters": { )" +
      ofRate + R"( } },
  { "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } },
  { "type": "gridemitter", "name": "source", "parameters": { "volume": "shape", "channels": ["pair"] } },
  { "type": "grid_advection", "name": "move", "parameters": { "target": "smoke", "solver": "gas" } }, { "type": "grid_advection", "name": "carry", "parameters": { "target": "gas", "solver": "gas" } },
  )" + nodes +
      R"({ "type": "fluid", "name": "gas", "position": [-100, 0, -100], "parameters": { "box_size": [200, 200, 200], "forces": null } } ] } ] })";
  const RunFolder folder("hints");
  Diagnostics diagnostics;
  LoadScene(folder.Write("s.json", text), diagnostics);
  return diagnostics.Lines();
}

}  // namespace

TEST(SettingHints, WhatHasNoStrengthIsNoted) {
  EXPECT_THAT(ToldWith(""), IsEmpty());
  const std::pair<std::string, std::string> cases[] = {
      {R"({ "type": "force_gravity", "name": "n", "parameters": { "strength": 0 } },)",
       "note: force_gravity \"n\": 'strength' is 0: it does nothing"},
      {R"({ "type": "force_gravity", "name": "n", "parameters": { "acceleration": [0, 0, 0] } },)",
       "'acceleration' has no length: it pushes nothing"},
      {R"({ "type": "grid_dissipate", "name": "n", "parameters": { "channel": "smoke", "rate": 0 } },)",
       "note: grid_dissipate \"n\": 'rate' is 0: it does nothing"},
      {R"({ "type": "force_buoyancy", "name": "n", "parameters": { "temperature_channel": "smoke", "direction": [0, 0, 0] } },)",
       "'direction' has no length: it lifts nothing"},
      {R"({ "type": "force_buoyancy", "name": "n", "parameters": { "temperature_channel": "smoke", "temperature_coefficient": 0, "density_coefficient": 0 } },)",
       "'temperature_coefficient' and 'density_coefficient' are 0: it lifts nothing"},
      {R"({ "type": "duration", "name": "n", "parameters": { "pause": 3 } }, { "type": "force_gravity", "name": "m", "parameters": { "settings": "of it" } },
          { "type": "emission_setting", "name": "of it", "parameters": { "duration": "n" } },)",
       "'pause' has no effect without 'repeats'"},
      {R"({ "type": "force_swirling", "name": "n", "parameters": { "strength": -1 } },)",
       "'strength' is below 0: it does nothing"},
      {R"({ "type": "alignment", "name": "n", "parameters": { "mode": "body_velocity", "centre": "ball" } },
          { "type": "force_gravity", "name": "m", "parameters": { "alignment": "n" } },)",
       "alignment \"n\": it points nowhere: no volume under 'centre' moves"},
      {R"({ "type": "alignment", "name": "n", "parameters": { "mode": "surface_normal" } },
          { "type": "force_gravity", "name": "m", "parameters": { "alignment": "n" } },)",
       "it points along its 'vector'"},
      {R"({ "type": "group", "name": "n", "parameters": { "priority": 3 }, "children": [] },)",
       "without effect: 'priority' of \"n\""},
      {R"({ "type": "property_scalar", "name": "n" },)",
       "note: property_scalar \"n\": no node that is switched on reads it"},
      {R"({ "type": "fluid", "name": "n", "position": [-100, 0, -100], "parameters": { "box_size": [200, 200, 200], "forces": [] } },)",
       "note: fluid \"n\": nothing moves with its flow, and no export, picture or recording takes"},
      {R"({ "type": "fluid", "name": "n", "position": [-100, 0, -100], "parameters": { "box_size": [200, 200, 200], "forces": [] } },
          { "type": "channel_scalar", "name": "dust", "parameters": { "initial_value": 1 } },
          { "type": "grid_advection", "name": "drift", "parameters": { "target": "dust", "solver": "n" } },)",
       "note: fluid \"n\": nothing carries its velocity along, so that whirls stay where they are; "
       "add a grid_advection that has it as its 'target'"}};
  for (const auto& [nodes, expected] : cases)
    EXPECT_THAT(ToldWith(nodes), ElementsAre(HasSubstr(expected))) << nodes;
  EXPECT_THAT(ToldWith(R"({ "type": "force_gravity", "name": "n", "parameters": { "strength":
                             { "keys": [[0, 0], [3, 1]] } } },)"),
              IsEmpty())
      << "it comes later";
  const auto withPadding = [](const std::string& more) {
    return ToldWith(R"({ "type": "fluid", "name": "n", "parameters": { "padding_cells": 1)" + more +
                    " } },");
  };
  EXPECT_THAT(withPadding(""),
              Contains(HasSubstr("'padding_cells' counts as 2: with less, smoke")));
  EXPECT_THAT(withPadding(R"(, "container_sides": "walls")"),
              Not(Contains(HasSubstr("padding_cells"))));
}

TEST(SettingHints, PointsThatBringNothingAreAWarning) {
  const auto with = [](const std::string& parameters) {
    return ToldWith(
        R"({ "type": "channelvalue", "name": "dust", "parameters": { "channel": "smoke" } },
   { "type": "properties_particles", "name": "dots", "parameters": { "source": "skin", "values": ["dust"], )" +
        parameters + " } },");
  };
  EXPECT_THAT(with(R"("radius": 2)"), IsEmpty());
  EXPECT_THAT(with(R"("radius": 0)"), ElementsAre(HasSubstr("'radius' is 0: its points reach no")));
  for (const std::string row : {"mass_scale", "radius_scale"})
    EXPECT_THAT(with("\"" + row + "\": 0"),
                ElementsAre(HasSubstr("'" + row + "' is 0: its points bring nothing")));
  EXPECT_THAT(
      ToldWith(
          R"({ "type": "channelvalue", "name": "dust", "parameters": { "channel": "smoke", "value": 0 } },
   { "type": "properties_particles", "name": "dots", "parameters": { "source": "skin", "values": ["dust"] } },)"),
      ElementsAre(HasSubstr("channelvalue \"dust\": 'value' is 0: it adds nothing to 'smoke'")));
  EXPECT_THAT(with(R"("particle_type": "liquid")"),
              ElementsAre(HasSubstr("'particle_type' has no effect: 'skin' is no group of")));
  EXPECT_THAT(with(R"("falloff": [[0, [1, 0, 0]]])"),
              ElementsAre(HasSubstr("'falloff' has no effect while 'distance_mode' is none")));
  EXPECT_THAT(
      ToldWith(
          R"({ "type": "channelvalue", "name": "dust", "parameters": { "channel": "smoke", "vector_value": [3, 0, 0], "solver_field": "velocity" } },
   { "type": "properties_particles", "name": "dots", "parameters": { "source": "skin", "values": ["dust"] } },)"),
      ElementsAre(HasSubstr("'vector_value' has no effect: 'smoke' is a field of numbers"),
                  HasSubstr("'solver_field' has no effect: 'smoke' is no solver")));
  EXPECT_THAT(with(R"("distance_mode": "falloff", "falloff": null)"),
              ElementsAre(HasSubstr("it has no 'falloff', which its 'distance_mode' asks for")));
}

TEST(SettingHints, AnAmountOfTheOtherSortIsNoted) {
  EXPECT_THAT(
      ToldWith("", R"("vector_amount": [3, 0, 0])"),
      ElementsAre(HasSubstr("'vector_amount' has no effect: it fills fields of numbers alone")));
  EXPECT_THAT(ToldWith(R"({ "type": "channel_vector", "name": "colour" },
   { "type": "channelsettings", "name": "both", "parameters": { "channel": "colour", "settings": "rate" } },
   { "type": "gridemitter", "name": "paint", "parameters": { "volume": "shape", "channels": ["both"] } },
   { "type": "grid_advection", "name": "move it", "parameters": { "target": "colour", "solver": "gas" } },)",
                       R"("vector_amount": [3, 0, 0])"),
              IsEmpty());
}

TEST(SettingHints, AnAmountThatOnlyTakesAwayFillsNothing) {
  const std::string amount = R"("amount": -3)";
  EXPECT_THAT(ToldWith("", amount),
              ElementsAre(HasSubstr("channel_scalar \"smoke\": 'move' works on "
                                    "it, and no emitter")));
  EXPECT_THAT(ToldWith(R"({ "type": "emission_setting", "name": "gives" },
   { "type": "channelsettings", "name": "more", "parameters": { "channel": "smoke", "settings": "gives" } },
   { "type": "gridemitter", "name": "well", "parameters": { "volume": "shape", "channels": ["more"] } },)",
                       amount),
              IsEmpty())
      << "it takes from what another one gives";
}

TEST(SettingHints, WindowsThatGiveNothingAreAWarning) {
  const auto with = [](const std::string& window) {
    return ToldWith(R"({ "type": "duration", "name": "window", "parameters": {)" + window + "} },",
                    R"("duration": "window")");
  };
  EXPECT_THAT(with(R"("start": 0.16)"), ElementsAre(HasSubstr("it never opens")));
  EXPECT_THAT(with(R"("start": 0.1)"), IsEmpty());
  EXPECT_THAT(with(R"("length": 5, "curve": [[0, 0], [1, 0]])"),
              ElementsAre(HasSubstr("'curve' is 0 throughout: nothing happens in its window")));
}

}  // namespace MELDO_GLOBAL::app
