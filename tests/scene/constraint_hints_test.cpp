// Notes and warnings of constraints that hold nothing back, or everything.
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

/// What is told of a source of smoke that a constraint limits, with other nodes beside it.
std::vector<std::string> Told(const std::string& constraint, const std::string& others = "",
                              const std::string& list = R"(["where"])") {
  const std::string text =
      R"({ "sulva": 1, "range": [0, 4],
 "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 60, 0] } ],
 "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.1 }, "children": [
  { "type": "channel_scalar", "name": "smoke" },
  { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
  { "type": "volume", "name": "shape", "parameters": { "mesh": "skin" } },
  { "type": "emission_setting", "name": "rate" },
  { "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } },
  { "type": "gridemitter", "name": "source", "parameters": { "volume": "shape", "channels": ["pair"], "constraints": )" +
      list + R"( } },
  { "type": "grid_advection", "name": "move", "parameters": { "target": "smoke", "solver": "gas" } }, { "type": "grid_advection", "name": "carry", "parameters": { "target": "gas", "solver": "gas" } },
  )" + others +
      R"({ "name": "where", )" + constraint + R"( },
  { "type": "fluid", "name": "gas", "position": [-100, 0, -100], "parameters": { "box_size": [200, 200, 200], "forces": null } } ] } ] })";
  const RunFolder folder("constraint_hints");
  Diagnostics diagnostics;
  LoadScene(folder.Write("s.json", text), diagnostics);
  return diagnostics.Lines();
}

TEST(ConstraintHints, TellWhatHoldsNothingBackOrEverything) {
  const std::string falloff = R"("type": "constraint_quadratic")";
  EXPECT_THAT(Told(falloff), IsEmpty());
  EXPECT_THAT(Told(falloff, "", "[]"),
              ElementsAre(HasSubstr("no node that is switched on reads it")));
  const std::pair<std::string, std::string> cases[] = {
      {falloff + R"(, "parameters": { "strength": 0 })", "'strength' is 0: it lets nothing pass"},
      {falloff + R"(, "parameters": { "output_low": 2, "output_high": 2, "strength": 0.5 })",
       "'output_low' and 'output_high' are 2 both: it is 1, whatever it measures"},
      {falloff + R"(, "parameters": { "input_low": 1 })",
       "'input_low' and 'input_high' are 1 both: it comes to the same, whatever it measures"},
      {falloff + R"(, "parameters": { "input_low": 0.7, "input_high": 0.2 })",
       "'input_low' is above 'input_high': it is a step"},
      {R"("type": "constraint_gradient")", "it has no 'gradient', and lets everything pass"},
      {R"("type": "constraint_noise", "parameters": { "scale": 0 })", "lets everything pass"},
      {R"("type": "constraint_noise", "parameters": { "scale": 4 })",
       "'scale' is 4, and a cell is 10 long: its patches are finer than what is simulated"},
      {R"("type": "constraint_volume", "parameters": { "volume": "gas" })",
       "'gas' is a gas and has no surface: it lets everything pass"},
      {R"("type": "constraint_gridvalue")", "it has no channel; name one under 'channel'"},
      {R"("type": "constraint_particle_collision")",
       "'constraints': 'where' looks at particles, and is asked here about places"}};
  for (const auto& [constraint, text] : cases)
    EXPECT_THAT(Told(constraint), ElementsAre(HasSubstr(text))) << constraint;
  // Keys bring another value, and a recording asks of particles.
  EXPECT_THAT(Told(falloff + R"(, "parameters": { "strength": { "keys": [[0, 0], [3, 1]] } })"),
              IsEmpty());
  EXPECT_THAT(Told(R"("type": "constraint_particle_collision")",
                   R"({ "type": "particlegroup", "name": "dust" },
                      { "type": "cache_particle", "name": "recording", "parameters": { "mode": "record", "constraints": ["where"] } },)",
                   "[]"),
              Not(Contains(HasSubstr("looks at particles"))));
}

TEST(ConstraintHints, TellWhatLimitsOfBodiesDoNothing) {
  const RunFolder folder("body_limit_hints");
  const auto told = [&](const std::string& obstacle) {
    Diagnostics diagnostics;
    const std::string text = R"({ "sulva": 1, "range": [0, 4],
 "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 60, 0], "obstacle": )" +
                             obstacle + R"( } ],
 "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.1 }, "children": [
  { "type": "constraint_particle_collision", "name": "hit" },
  { "type": "constraint_quadratic", "name": "near" },
  { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } } ] } ] })";
    LoadScene(folder.Write("s.json", text), diagnostics);
    std::vector<std::string> lines;
    for (const std::string& line : diagnostics.Lines())
      if (line.find("_constraints'") != std::string::npos) lines.push_back(line);
    return lines;
  };
  EXPECT_THAT(told(R"({ "mass": 2, "friction_constraints": ["near"], "linear_damping": 0.5,
                        "linear_damping_constraints": ["near"] })"),
              IsEmpty());
  EXPECT_THAT(told(R"({ "mass": 2, "restitution_constraints": ["hit"] })"),
              ElementsAre(HasSubstr("'restitution_constraints': 'hit' looks at particles")));
  EXPECT_THAT(told(R"({ "mass": 2, "angular_damping_constraints": ["near"] })"),
              ElementsAre(HasSubstr("has no effect: 'angular_damping' is 0")));
  EXPECT_THAT(told(R"({ "linear_damping": 1, "linear_damping_constraints": ["near"] })"),
              ElementsAre(HasSubstr("without a mass it doesn't move")));
  EXPECT_THAT(told(R"({ "rolling_friction_constraints": ["near"] })"),
              ElementsAre(HasSubstr("no obstacle has a mass, so nothing touches it")));
}

TEST(ConstraintHints, AForceOnParticlesAsksOfThem) {
  const std::string flag = R"("type": "constraint_particle_collision")";
  const std::string force =
      R"({ "type": "force_gravity", "name": "wind", "parameters": { "constraints": ["where"] } },)";
  EXPECT_THAT(Told(flag, force, "[]"), Contains(HasSubstr("is asked here about places")));
  EXPECT_THAT(Told(flag, force + R"({ "type": "particlegroup", "name": "dust" },
                        { "type": "particle_forces", "name": "push", "parameters": { "groups": ["dust"] } },)",
                   "[]"),
              Not(Contains(HasSubstr("is asked here about places"))));
}

}  // namespace
}  // namespace MELDO_GLOBAL::app
