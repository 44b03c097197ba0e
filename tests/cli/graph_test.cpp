// The listing of `sulva graph` and the data behind its page.
#include "cli/graph_data.h"

#include "cli/run_folder.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using Json = nlohmann::ordered_json;

namespace {

const char* const kScene = R"({ "sulva": 1,
  "objects": [ { "name": "ball", "type": "sphere", "radius": 20 } ],
  "nodes": [ { "type": "server", "name": "scene", "children": [
    { "type": "mesh", "name": "skin", "parameters": { "object": "ball" } },
    { "type": "volume", "name": "solid", "parameters": { "mesh": "skin" }, "obstacle": { "friction": 0.7 } },
    { "type": "channel_scalar", "name": "smoke", "enabled": false },
    { "type": "emission_setting", "name": "rate",
      "parameters": { "amount": { "keys": [[0, 1], [10, 4]], "interpolation": "step" }, "mode": "set" } },
    { "type": "fluid", "name": "gas", "parameters": { "box_size": [500, 500, 500], "forces": [] } } ] } ],
  "exports": [ { "format": "vdb", "file": "####.vdb", "grids": { "density": "smoke", "vel": "gas" } } ] })";

}  // namespace

TEST(Graph, HoldsWhatDiffersAndWhoLinksWhom) {
  const RunFolder folder("graph");
  Diagnostics problems;
  const auto scene = LoadScene(folder.Write("small.json", kScene), problems);
  ASSERT_TRUE(scene);
  const Json graph = GraphData(*scene);
  const auto node = [&](const std::string& name) -> const Json& {
    for (const Json& each : graph["nodes"])
      if (each["name"] == name) return each;
    throw std::runtime_error(name + " is no node");
  };
  std::vector<std::string> links;
  for (const Json& link : graph["links"])
    links.push_back(graph["nodes"][link["from"].get<int>()]["name"].get<std::string>() + "." +
                    link["parameter"].get<std::string>() + "=" +
                    graph["nodes"][link["to"].get<int>()]["name"].get<std::string>());
  EXPECT_EQ(links, (std::vector<std::string>{"skin.object=ball", "solid.mesh=skin",
                                             "####.vdb.density=smoke", "####.vdb.vel=gas"}));
  const Json& rate = node("rate")["values"];
  EXPECT_EQ(rate["mode"]["value"], "set");
  EXPECT_EQ(rate["amount"]["keys"], Json::parse("[[0.0, 1.0], [10.0, 4.0]]"));
  EXPECT_FALSE(node("gas")["values"].contains("box_size")) << "it has the default";
  EXPECT_EQ(node("solid")["obstacle"]["friction"]["value"], 0.7);
  EXPECT_FALSE(node("skin").contains("obstacle"));
  EXPECT_EQ(node("smoke")["enabled"], false);
  EXPECT_EQ(node("smoke")["path"], "scene/smoke");
  EXPECT_EQ(node("ball")["group"], "Objects");
  EXPECT_EQ(graph["kinds"]["fluid"]["stages"].front(), 5);
}

TEST(Graph, ListsByStageAndTellsWhatIsWrong) {
  const RunFolder folder("graph_command");
  folder.Write("small.json", kScene);
  ASSERT_EQ(folder.Run({"graph", "small.json"}), 0);
  const std::string list = folder.Answers();
  const auto pressure = list.find("\nstage 10, Pressure"), apart = list.find("\nwithout a stage");
  ASSERT_NE(pressure, std::string::npos);
  EXPECT_LT(list.find("\"gas\"", pressure), apart);
  EXPECT_NE(list.find("\"solid\"  <- skin\n"), std::string::npos);
  EXPECT_NE(list.find("\"smoke\"  (never works: it is switched off)\n"), std::string::npos);
  EXPECT_NE(list.find("\"rate\"  (never read)\n"), std::string::npos);

  folder.Write("still.json", R"({ "sulva": 1, "nodes": [ { "type": "server", "name": "scene",
    "children": [ { "type": "particlegroup", "name": "sparks" },
    { "type": "particle_advection", "name": "stay", "parameters": { "group": "sparks", "motion": "off" } } ] } ] })");
  ASSERT_EQ(folder.Run({"graph", "still.json"}), 0);
  EXPECT_NE(folder.Answers().find("\"stay\"  <- sparks  (it never works: its 'motion' is off)\n"),
            std::string::npos)
      << "as the check has it: " << folder.Errors();

  folder.Write("broken.json", R"({ "sulva": 1, "nodes": [] })");
  EXPECT_EQ(folder.Run({"graph", "broken.json", "--html", "page.html"}), 3);
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "page.html"));
  EXPECT_EQ(folder.Run({"graph", "small.json", "--html", "small.json/page.html"}), 5);
}
