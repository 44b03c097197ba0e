// What the check tells of combustion, cooling and densities with which nothing happens.
#include <gmock/gmock.h>

#include "cli/run_folder.h"
#include "scene/scene_file.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace MELDO_GLOBAL::app {
namespace {

const char* const kFlame = R"({ "sulva": 1, "range": [0, 4],
 "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 60, 0] } ],
 "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.1 }, "children": [
  { "type": "channel_fuel", "name": "fuel", "parameters": { "ignition": 600 } },
  { "type": "channel_fire", "name": "fire", "parameters": { "burn_time": 2 } },
  { "type": "channel_temp", "name": "heat", "parameters": { "value_max": 3000 } },
  { "type": "channel_scalar", "name": "smoke" },
  { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
  { "type": "volume", "name": "shape", "parameters": { "mesh": "skin" } },
  { "type": "emission_setting", "name": "rate", "parameters": { "amount": 900 } },
  { "type": "channelsettings", "name": "of fuel", "parameters": { "channel": "fuel", "settings": "rate" } },
  { "type": "channelsettings", "name": "of heat", "parameters": { "channel": "heat", "settings": "rate" } },
  { "type": "gridemitter", "name": "source", "parameters": { "volume": "shape", "channels": ["of fuel", "of heat"] } },
  { "type": "grid_combustion_fire", "name": "burn", "parameters": { "fuel": "fuel", "temperature": "heat", "fire": "fire", "smoke": "smoke", "solver": "gas" } },
  { "type": "grid_cooling", "name": "cool", "parameters": { "temperature": "heat", "fire": "fire" } },
  { "type": "grid_advection", "name": "move fuel", "parameters": { "target": "fuel", "solver": "gas" } },
  { "type": "grid_advection", "name": "move heat", "parameters": { "target": "heat", "solver": "gas" } }, { "type": "grid_advection", "name": "carry", "parameters": { "target": "gas", "solver": "gas" } },
  { "type": "fluid", "name": "gas", "position": [-100, 0, -100], "parameters": { "box_size": [200, 200, 200], "forces": [] } } ] } ] })";

/// What is told of the flame with one text in place of another.
std::vector<std::string> ToldOfFlame(const std::string& what, const std::string& with) {
  std::string text = kFlame;
  if (text.find(what) == text.npos) throw std::runtime_error(what + " isn't there");
  text.replace(text.find(what), what.size(), with);
  const RunFolder folder("fire_hints");
  Diagnostics diagnostics;
  LoadScene(folder.Write("s.json", text), diagnostics);
  return diagnostics.Lines();
}

struct Case {
  std::string what, with, told;
};

void ExpectTold(const std::vector<Case>& cases) {
  for (const Case& each : cases)
    EXPECT_THAT(ToldOfFlame(each.what, each.with), Contains(HasSubstr(each.told))) << each.with;
}

}  // namespace

TEST(FireHints, AFlameThatBurnsHasNothingToTell) {
  EXPECT_THAT(ToldOfFlame("burn_time", "burn_time"), IsEmpty());
}

TEST(FireHints, FuelThatNeverCatchesFireIsAWarning) {
  ExpectTold(
      {{R"("value_max": 3000)", R"("value_max": 500)",
        "warning: grid_combustion_fire \"burn\": it never burns: 'fuel' catches fire from 600 "
        "on, and 'heat' holds at most 500, its 'value_max'"},
       {R"("channels": ["of fuel", "of heat"])", R"("channels": ["of fuel"])",
        "it never burns: 'fuel' catches fire from 600 on, and nothing else puts heat into "
        "'heat'"},
       {R"("channels": ["of fuel", "of heat"])", R"("channels": ["of heat"])",
        "warning: channel_fuel \"fuel\": 'burn' reads it, and no emitter"}});
  EXPECT_THAT(ToldOfFlame(R"("value_max": 3000)", R"("value_max": 3000, "initial_value": 700)"),
              IsEmpty());
  EXPECT_THAT(
      ToldOfFlame(R"("fuel": "fuel", )", ""),
      Contains(HasSubstr("warning: channel_fire \"fire\": 'burn' reads it, and no emitter")))
      << "without fuel the fire is what it begins with";
}

TEST(FireHints, NumbersAndLinksThatCountForNothingAreNoted) {
  const std::string solver = R"("solver": "gas" } },
  { "type": "grid_cooling")";
  const auto with = [&](const std::string& text) { return text + solver; };
  ExpectTold(
      {{solver, with(R"("burn_rate": 0, )"),
        "note: grid_combustion_fire \"burn\": 'burn_rate' is 0"},
       {solver, with(R"("heat": 0, )"), "'heat' is 0: what burns gets no hotter"},
       {solver, with(R"("smoke_amount": 0, )"), "'smoke_amount' is 0: it leaves no smoke"},
       {solver, with(R"("expansion": 0, )"), "'expansion' is 0: it blows nothing apart"},
       {R"("smoke": "smoke", )", R"("smoke_amount": 3, )",
        "'smoke_amount' has no effect without 'smoke'"},
       {R"("smoke": "smoke", )", R"("smoke": "heat", )",
        "warning: grid_combustion_fire \"burn\": 'heat' is its 'temperature' and its 'smoke' "
        "at once"},
       {R"("temperature": "heat", "fire": "fire" } },
  { "type": "grid_adv)",
        R"("temperature": "heat", "fire": "fire", "rate": 0 } },
  { "type": "grid_adv)",
        "'rate' is 0: flames age, and nothing cools"},
       {R"("temperature": "heat", "fire": "fire" } },
  { "type": "grid_adv)",
        R"("temperature": "heat" } },
  { "type": "grid_adv)",
        "note: channel_fire \"fire\": 'burn_time' has no effect without a grid_cooling that "
        "names it under 'fire'"}});
  EXPECT_THAT(
      ToldOfFlame(R"("fuel": "fuel", )", R"("heat": 3, "oxygen_ratio": 0.4, "mode": "oxygen", )"),
      Contains(HasSubstr("'heat' has no effect without 'fuel'")));
  EXPECT_THAT(
      ToldOfFlame(R"("fuel": "fuel", )", R"("heat": 3, "oxygen_ratio": 0.4, "mode": "oxygen", )"),
      Contains(HasSubstr("'oxygen_ratio' has no effect without 'fuel'")));
}

TEST(FireHints, OperatorsOnFieldsThatStayEmptyAreAWarning) {
  const std::string gas = R"({ "type": "fluid", "name": "gas")";
  for (
      const std::string node :
      {R"({ "type": "grid_cooling", "name": "n", "parameters": { "temperature": "dust" } },)",
       R"({ "type": "grid_dissipate", "name": "n", "parameters": { "channel": "dust" } },)",
       R"({ "type": "grid_diffusion", "name": "n", "parameters": { "channel": "dust" } },)",
       R"({ "type": "grid_advection", "name": "n", "parameters": { "target": "dust", "solver": "gas" } },)"})
    EXPECT_THAT(
        ToldOfFlame(gas, R"({ "type": "channel_scalar", "name": "dust" },)" + node + gas),
        ElementsAre(HasSubstr("warning: channel_scalar \"dust\": 'n' works on it, and no "
                              "emitter, operator or cache that works puts anything into it")))
        << node;
}

TEST(FireHints, DensitiesThatPileUpOrThatNoGasReads) {
  const std::string gas = R"({ "type": "fluid", "name": "gas")", forces = R"("forces": [])";
  const auto told = [&](const std::string& field, const std::string& mix,
                        const std::string& link = R"("density_channel": "density", )") {
    std::string text = gas + R"(, "position": [-100, 0, -100], "parameters": { )" + link;
    return ToldOfFlame(gas + R"(, "position": [-100, 0, -100], "parameters": { )",
                       R"({ "type": "channel_scalar", "name": "density", "parameters": { )" +
                           field +
                           R"( } }, { "type": "grid_variabledensity", "name": "mix", "parameters": {
  "target": "density", "temperature": "heat", "admixture": ")" +
                           mix + " } }," + text);
  };
  const std::string cleared = R"("clear_each_step": true, "affects_bounds": false)";
  EXPECT_THAT(told(cleared, R"(smoke")"), IsEmpty());
  EXPECT_THAT(
      told(R"("affects_bounds": false)", R"(smoke")"),
      ElementsAre(HasSubstr("warning: channel_scalar \"density\": 'clear_each_step' is off, "
                            "and 'mix' adds its density in each step: it piles up")));
  EXPECT_THAT(told(cleared, R"(smoke")", ""),
              ElementsAre(HasSubstr("no fluid has it as its 'density_channel'")));
  EXPECT_THAT(told(cleared, R"(smoke", "other_density": 1.184)"),
              ElementsAre(HasSubstr("'other_density' is as heavy as 'base_density'")));
}

}  // namespace MELDO_GLOBAL::app
