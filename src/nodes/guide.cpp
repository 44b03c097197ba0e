#include "nodes/guide.h"

#include <vector>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

// Lines that many examples share.
constexpr std::string_view kBall =
    R"({ "name": "ball", "type": "sphere", "radius": 40, "position": [0, 60, 0] })";
constexpr std::string_view kCube =
    R"({ "name": "cube", "type": "box", "size": [60, 60, 60], "position": [0, 160, 0] })";
constexpr std::string_view kSmoke = R"({ "type": "channel_scalar", "name": "smoke" })";
constexpr std::string_view kHeat =
    R"({ "type": "channel_temp", "name": "heat", "parameters": { "value_max": 1000 } })";
constexpr std::string_view kFuel = R"({ "type": "channel_fuel", "name": "fuel" })";
constexpr std::string_view kFire = R"({ "type": "channel_fire", "name": "fire" })";
constexpr std::string_view kBallMesh =
    R"({ "type": "mesh", "name": "ball mesh", "parameters": { "object": "ball" } })";
constexpr std::string_view kBallVolume =
    R"({ "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" } })";
constexpr std::string_view kRate =
    R"({ "type": "emission_setting", "name": "rate", "parameters": { "amount": 3 } })";
constexpr std::string_view kPair =
    R"({ "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } })";
constexpr std::string_view kEmitter =
    R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["pair"] } })";
constexpr std::string_view kGas =
    R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "box_size": [300, 400, 300] } })";

struct Guide {
  i32 id;
  std::string_view purpose;
  std::vector<std::string_view> objects;
  std::vector<std::string_view> nodes;
};

// clang-format off
const std::vector<Guide>& Guides() {
  static const std::vector<Guide> guides = {
      {1028106, "turns a mesh into inside and outside: a place to emit from, or an obstacle",
       {kBall},
       {kBallMesh,
        R"({ "type": "volume", "name": "shell", "parameters": { "mesh": "ball mesh", "shell_thickness": 0.3 } })",
        kSmoke, kRate, kPair,
        R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "shell", "channels": ["pair"] } })"}},
      {1028240, "says when something happens and how strongly: emission, forces, operators",
       {kBall},
       {R"({ "type": "duration", "name": "puff", "parameters": { "start": 0.2, "length": 1.5, "curve": [[0, 1], [0.7, 1], [1, 0]] } })",
        R"({ "type": "emission_setting", "name": "rate", "parameters": { "amount": 3, "duration": "puff" } })",
        kSmoke, kPair, kBallMesh, kBallVolume, kEmitter}},
      {1300000, "owns one simulation: its cell size, its time steps and all of its nodes", {}, {kSmoke, kGas}},
      {1300001, "blurs a field: soft edges, no single bright cells",
       {},
       {kSmoke,
        R"({ "type": "grid_diffusion", "name": "soften", "parameters": { "channel": "smoke", "mode": "smooth", "strength": 8 } })"}},
      {1300002, "the gas itself: the box that it may fill, its walls, its forces and its pressure",
       {},
       {R"({ "type": "force_gravity", "name": "draught", "parameters": { "acceleration": [0, 1, 0] } })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150],)",
        R"(  "parameters": { "box_size": [300, 400, 300], "wall_high_y": "open", "forces": ["draught"], "linear_solver": "multigrid" } })"}},
      {1300005, "fills a volume with smoke, heat or fuel in every step",
       {kBall},
       {kSmoke, kBallMesh, kBallVolume, kRate, kPair, kEmitter}},
      {1300008, "gives the vertices of a mesh to a field, each with a soft blob round it",
       {kBall},
       {kSmoke, kBallMesh,
        R"({ "type": "channelvalue", "name": "dust", "parameters": { "channel": "smoke", "value": 0.5 } })",
        R"({ "type": "properties_particles", "name": "dusty", "parameters": { "source": "ball mesh", "values": ["dust"], "radius": 2 } })"}},
      {1300010, "gives a direction for each place, such as away from a centre",
       {kBall},
       {R"({ "type": "alignment", "name": "outwards", "parameters": { "mode": "radial", "centre": "ball" } })",
        R"({ "type": "force_gravity", "name": "blast", "parameters": { "alignment": "outwards", "strength": 0.5 } })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["blast"] } })"}},
      {1300011, "a number that several nodes share: change it once, all of them follow",
       {},
       {R"({ "type": "rate", "name": "strength", "parameters": { "rate": 4 } })",
        R"({ "type": "emission_setting", "name": "left", "parameters": { "rate": "strength" } })",
        R"({ "type": "emission_setting", "name": "right", "parameters": { "rate": "strength" } })"}},
      {1300012, "joins a field with the settings of what is emitted into it", {kBall},
       {kSmoke, kRate, kPair, kBallMesh, kBallVolume, kEmitter}},
      {1300013, "a value for a field, as points carry it into the grid",
       {kBall},
       {kHeat, kBallMesh,
        R"({ "type": "channelvalue", "name": "warm", "parameters": { "channel": "heat", "value": 300 } })",
        R"({ "type": "properties_particles", "name": "warm skin", "parameters": { "source": "ball mesh", "values": ["warm"] } })"}},
      {1300014, "pushes all of the gas: wind, a draught, gravity",
       {},
       {R"({ "type": "force_gravity", "name": "wind", "parameters": { "acceleration": [2, 0, 0] } })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150],)",
        R"(  "parameters": { "wall_low_x": "open", "wall_high_x": "open", "forces": ["wind"] } })"}},
      {1300015, "lets hot gas rise and heavy smoke sink",
       {},
       {kSmoke, kHeat,
        R"({ "type": "force_buoyancy", "name": "lift",)",
        R"(  "parameters": { "temperature_channel": "heat", "density_channel": "smoke", "temperature_coefficient": 0.03 } })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["lift"] } })"}},
      {1300016, "gives back the small eddies that the grid smooths away: curls and flicker",
       {},
       {R"({ "type": "force_swirling", "name": "curls", "parameters": { "strength": 2 } })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["curls"] } })"}},
      {1300024, "how much is emitted, when, and how it combines with what a cell holds",
       {kBall},
       {kSmoke,
        R"({ "type": "emission_setting", "name": "rate", "parameters": { "amount": 0.8, "mode": "set", "absolute": true } })",
        kPair, kBallMesh, kBallVolume, kEmitter}},
      {1300027, "a field of numbers that the gas carries, such as smoke",
       {},
       {R"({ "type": "channel_scalar", "name": "smoke", "parameters": { "value_max": 2 } })",
        R"({ "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas" } })",
        kGas}},
      {1300028, "a field of what burns",
       {},
       {R"({ "type": "channel_fuel", "name": "fuel", "parameters": { "ignition": 500, "value_max": 3 } })", kFire, kHeat,
        R"({ "type": "grid_combustion_fire", "name": "burn", "parameters": { "fuel": "fuel", "fire": "fire", "temperature": "heat" } })"}},
      {1300029, "a field of the age of flames: 1 where it burns, then down to 0",
       {},
       {kFuel, kHeat,
        R"({ "type": "channel_fire", "name": "fire", "parameters": { "ignition": 900, "burn_time": 0.5, "fade_time": 0.3 } })",
        R"({ "type": "grid_combustion_fire", "name": "burn", "parameters": { "fuel": "fuel", "fire": "fire", "temperature": "heat" } })",
        R"({ "type": "grid_cooling", "name": "cool", "parameters": { "temperature": "heat", "fire": "fire", "rate": 0.12 } })"}},
      {1300030, "a field of vectors that the gas carries, such as the colour of smoke",
       {kBall},
       {R"({ "type": "channel_vector", "name": "colour" })",
        R"({ "type": "emission_setting", "name": "red", "parameters": { "vector_amount": [3, 0.2, 0.1] } })",
        R"({ "type": "channelsettings", "name": "paint", "parameters": { "channel": "colour", "settings": "red" } })",
        kBallMesh, kBallVolume,
        R"({ "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["paint"] } })"}},
      {1300041, "lets heat fade and flames age: how high they reach",
       {},
       {kHeat, kFire,
        R"({ "type": "grid_cooling", "name": "cool", "parameters": { "temperature": "heat", "fire": "fire", "rate": 0.12 } })"}},
      {1300042, "burns fuel into fire, heat and smoke, and swells the gas",
       {},
       {kFuel, kFire, kHeat, kSmoke, kGas,
        R"({ "type": "grid_combustion_fire", "name": "burn",)",
        R"(  "parameters": { "fuel": "fuel", "fire": "fire", "temperature": "heat", "smoke": "smoke", "solver": "gas", "burn_rate": 5, "heat": 1800 } })"}},
      {1300063, "gives a picture other values than a field holds, through a ramp",
       {},
       {kSmoke,
        R"({ "type": "channelop_remap", "name": "crisp", "parameters": { "gradient": [[0.2, [0, 0, 0]], [0.4, [1, 1, 1]]] } })"}},
      {1300098, "records fields, volumes and the gas, a file a frame, and plays them back",
       {},
       {kSmoke, kGas,
        R"({ "type": "cache", "name": "recording", "parameters": { "mode": "record", "compression": "fast", "objects": ["smoke", "gas"] } })"}},
      {1300111, "makes a volume solid for the gas (the key \"obstacle\" of a node, no node itself)",
       {kBall},
       {kBallMesh,
        R"({ "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" },)",
        R"(  "obstacle": { "linear_velocity_transfer": 1 } })", kGas}},
      {1300112, "a field of heat, in kelvin above the still air",
       {},
       {R"({ "type": "channel_temp", "name": "heat", "parameters": { "value_max": 1000 } })",
        R"({ "type": "force_buoyancy", "name": "lift", "parameters": { "temperature_channel": "heat" } })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["lift"] } })"}},
      {1300116, "lets a field fade away: smoke that thins out",
       {},
       {kSmoke,
        R"({ "type": "grid_dissipate", "name": "thin smoke", "parameters": { "channel": "smoke", "rate": 3 } })"}},
      {1300121, "works on every cell of a field through the operators of its list",
       {},
       {kSmoke,
        R"({ "type": "grid_celliterator", "name": "each cell", "parameters": { "channel": "smoke" } })"}},
      {1300122, "moves a field, or the velocity itself, along with the flow",
       {},
       {kSmoke, kGas,
        R"({ "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas", "path_integration": "heun" } })",
        R"({ "type": "grid_advection", "name": "move gas", "parameters": { "target": "gas", "solver": "gas" } })"}},
      {1300125, "gives the gas a density of its own in each cell: a heavy gas flows along the ground",
       {},
       {kHeat,
        R"({ "type": "channel_scalar", "name": "density", "parameters": { "clear_each_step": true, "affects_bounds": false, "value_max": 10 } })",
        R"({ "type": "grid_variabledensity", "name": "mix", "parameters": { "target": "density", "temperature": "heat" } })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "density_channel": "density" } })"}},
      {1300133, "one volume of several meshes: a whole sculpture as one obstacle or source",
       {kBall, kCube},
       {kBallMesh, R"({ "type": "mesh", "name": "cube mesh", "parameters": { "object": "cube" } })",
        R"({ "type": "volume_multi", "name": "both", "parameters": { "meshes": ["ball mesh", "cube mesh"] }, "obstacle": {} })",
        kGas}},
      {1300135, "works out how strongly a mesh is bent at its vertices",
       {kBall},
       {kBallMesh, R"({ "type": "mop_curvature", "name": "bend", "parameters": { "target": "ball mesh" } })"}},
      {1300136, "rounds off a mesh before it becomes a volume",
       {kCube},
       {R"({ "type": "mesh", "name": "cube mesh", "parameters": { "object": "cube" } })",
        R"({ "type": "mop_smoothing", "name": "round off", "parameters": { "target": "cube mesh", "iterations": 3 } })",
        R"({ "type": "volume", "name": "cube volume", "parameters": { "mesh": "cube mesh" } })"}},
      {1300143, "reads the polygons of a host object, as they move and deform", {kBall},
       {kBallMesh, kBallVolume}},
      {1300144, "reads the polygons of several host objects into one mesh",
       {kBall, kCube},
       {R"({ "type": "mesh_multi", "name": "pile", "parameters": { "objects": ["ball", "cube"] } })",
        R"({ "type": "volume_multi", "name": "pile volume", "parameters": { "meshes": ["pile"] } })"}},
      {1300150,
       "keeps nodes together; named in a list it stands for its children, in a link for its one child",
       {},
       {R"({ "type": "group", "name": "forces", "children": [)",
        R"(  { "type": "force_swirling", "name": "curls" },)",
        R"(  { "type": "force_gravity", "name": "wind", "parameters": { "acceleration": [1, 0, 0] } } ] })",
        R"({ "type": "fluid", "name": "gas", "position": [-150, 0, -150], "parameters": { "forces": ["forces"] } })"}},
  };
  return guides;
}

// clang-format on

const Guide* FindGuide(i32 id) {
  for (const Guide& guide : Guides())
    if (guide.id == id) return &guide;
  return nullptr;
}

/// Entries of a list, a line each. A line that goes on in the next has no comma behind it.
std::string Lines(const std::vector<std::string_view>& entries, std::string_view indent) {
  std::string text;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    text.append(indent).append(entries[i]);
    const bool ends = entries[i].ends_with(" }");
    const bool isLast = i + 1 == entries.size();
    const bool goesOn = !isLast && entries[i + 1].starts_with("  ");
    text.append(ends && !isLast && !goesOn ? ",\n" : "\n");
  }
  return text;
}

}  // namespace

std::string_view PurposeOf(i32 id) {
  const Guide* guide = FindGuide(id);
  return guide ? guide->purpose : std::string_view();
}

std::string ExampleOf(i32 id) {
  const Guide* guide = FindGuide(id);
  if (!guide) return {};
  std::string text = "{ \"sulva\": 1,\n";
  if (!guide->objects.empty())
    text += "  \"objects\": [\n" + Lines(guide->objects, "    ") + "  ],\n";
  text +=
      R"(  "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.05 }, "children": [)"
      "\n" +
      Lines(guide->nodes, "    ") + "  ] } ] }\n";
  return text;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
