#include "scene/scene_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "host/polygon_object.h"
#include "host/render_objects.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;
using namespace MELDO_GLOBAL::host;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class SceneFile : public testing::Test {
 protected:
  void SetUp() override {
    mFolder =
        fs::temp_directory_path() / (std::string("sulva_scene_file_") +
                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(mFolder);
  }
  void TearDown() override { fs::remove_all(mFolder); }

  void Write(const std::string& name, const std::string& text) {
    std::ofstream(mFolder / name, std::ios::binary) << text;
  }

  /// Loads a scene with the given children of its server.
  LoadedScene& Load(const std::string& children, const std::string& top = "",
                    const std::vector<std::string>& overrides = {}) {
    Write("scene.json", "{ \"sulva\": 1, " + top +
                            " \"nodes\": [ { \"type\": \"server\", \"name\": \"scene\", "
                            "\"children\": [" +
                            children + "] } ] }");
    mDiagnostics = {};
    mScene = LoadScene(mFolder / "scene.json", mDiagnostics, overrides);
    EXPECT_TRUE(mScene.has_value()) << testing::PrintToString(mDiagnostics.Lines());
    if (!mScene) throw std::runtime_error("the scene was refused");
    return *mScene;
  }
  std::vector<std::string> Refusals(const std::vector<std::string>& overrides) {
    mDiagnostics = {};
    EXPECT_FALSE(LoadScene(mFolder / "scene.json", mDiagnostics, overrides));
    return mDiagnostics.Lines();
  }
  BaseNode& Node(const std::string& path) {
    BaseNode* node = mScene->document->FindByName(path);
    if (!node) throw std::runtime_error("no node " + path);
    return *node;
  }
  template <class T>
  T Get(const std::string& path, i32 id) {
    const Value* value = Node(path).Get(id);
    if (!value) throw std::runtime_error("no value");
    return std::get<T>(*value);
  }

  fs::path mFolder;
  Diagnostics mDiagnostics;
  std::optional<LoadedScene> mScene;
};

constexpr i32 kLength = 1000, kRepeats = 1002, kCurve = 1004, kUseFrames = 1008,
              kFluidForces = 1008;

}  // namespace

TEST_F(SceneFile, KindsAreNamedByTypeLabelOrId) {
  Load(R"({"type": "duration", "name": "a"}, {"type": "Duration", "name": "b"},
          {"type": 1028240, "name": "c"}, {"type": "1028240", "name": "d"})");
  for (const char* name : {"a", "b", "c", "d"}) EXPECT_EQ(Node(name).Type(), 1028240);
  EXPECT_EQ(mScene->server->Type(), kServerNode);
}

TEST_F(SceneFile, UnnamedNodesTakeTheirLabelAndStayUniqueAmongSiblings) {
  Load(R"({"type": "duration"}, {"type": "duration", "name": "Duration 2"}, {"type": "duration"},
          {"type": "group", "children": [{"type": "duration"}]})");
  std::vector<std::string> names;
  for (const BaseNode* child : mScene->server->Children()) names.push_back(child->Name());
  EXPECT_THAT(names, ElementsAre("Duration", "Duration 2", "Duration 3", "Node Group"));
  EXPECT_EQ(Node("Node Group/Duration").Parent()->Name(), "Node Group");
}

TEST_F(SceneFile, ValuesOfEveryKindByNameAndById) {
  Load(R"({"type": "duration", "name": "w", "enabled": false, "parameters": {
             "length": 2, "1002": 3, "use_frames": true, "curve": [[0, 1], [0.5, 0.25]]}},
          {"type": "fluid", "name": "gas", "parameters": {
             "forces": ["scene/x", {"node": "y", "flags": 6}]}},
          {"type": "force_gravity", "name": "x"}, {"type": "force_gravity", "name": "y"})",
       R"("fps": 24, "range": [5, 9],)");
  EXPECT_EQ(mScene->document->fps, 24);
  EXPECT_EQ(mScene->document->previewMin, 5);
  EXPECT_EQ(mScene->document->previewMax, 9);
  EXPECT_DOUBLE_EQ(mScene->document->Time(), 5.0 / 24);
  EXPECT_FALSE(Node("w").IsEnabled());
  EXPECT_EQ(Get<double>("w", kLength), 2.0);
  EXPECT_EQ(Get<i32>("w", kRepeats), 3);
  EXPECT_EQ(Get<i32>("w", kUseFrames), 1);
  EXPECT_EQ(Get<SplineData>("w", kCurve).Evaluate(0.25), 0.625);
  const InExcludeData list = Get<InExcludeData>("gas", kFluidForces);
  EXPECT_THAT(list.entries, ElementsAre(InExcludeData::Entry{Node("x").Id(), 0},
                                        InExcludeData::Entry{Node("y").Id(), 6}));
  EXPECT_EQ(Get<double>("w", 1003), 10.0) << "a value that isn't given keeps its default";
}

TEST_F(SceneFile, AWholeNumberMayBeWrittenAsAReal) {
  Load(R"({"type": "duration", "name": "w", "parameters": {"repeats": 4.0, "use_frames": 0}})", "",
       {"scene.time_mode=fixed_step", "scene.cell_size=1"});
  EXPECT_EQ(Get<i32>("w", kRepeats), 4);
  EXPECT_EQ(Get<i32>("w", kUseFrames), 0);
  EXPECT_EQ(Get<i32>("scene", 1003), 2);
  EXPECT_EQ(Get<double>("scene", 1002), 1.0);
}

TEST_F(SceneFile, LinksPointForwardAndTakeTheCandidateOfTheRightKind) {
  Load(R"({"type": "volume", "name": "v", "parameters": {"mesh": "ball"}},
          {"type": "volume", "name": "n", "parameters": {"mesh": null}},
          {"type": "mesh", "name": "ball", "parameters": {"object": "ball"}},
          {"type": "mesh", "name": "m2", "parameters": {"object": "/ball"}})",
       R"("objects": [{"name": "ball", "type": "sphere"}],)");
  const BaseNode* object = mScene->document->Roots().front();
  EXPECT_EQ(Get<Link>("v", 1003).node, Node("scene/ball").Id());
  EXPECT_EQ(Get<Link>("n", 1003).node, 0u);
  EXPECT_EQ(Get<Link>("scene/ball", 1000).node, object->Id());
  EXPECT_EQ(Get<Link>("m2", 1000).node, object->Id());
}

TEST_F(SceneFile, KeysDriveParametersAndPlacement) {
  Load(R"({"type": "duration", "name": "w", "parameters": {
             "length": {"keys": [[0, 1], [10, 3]]},
             "repeats": {"keys": [[0, 0], [10, 4]], "interpolation": "step"},
             "use_frames": {"keys": [[0, true], [10, false]]}},
           "position": {"keys": [[0, [0, 0, 0]], [10, [8, 0, 4]]], "interpolation": "smooth"}})",
       R"("range": [5, 20],)");
  EXPECT_EQ(Get<double>("w", kLength), 2.0) << "the scene stands at its first frame";
  EXPECT_EQ(Get<i32>("w", kUseFrames), 1) << "a switch holds until its next key";
  EXPECT_EQ(Node("w").GlobalMatrix().offset, (Vec3d{4, 0, 2}));
  mScene->document->SetFrame(9);
  EXPECT_EQ(Get<i32>("w", kRepeats), 0);
  mScene->document->SetFrame(12);
  EXPECT_EQ(Get<double>("w", kLength), 3.0);
  EXPECT_EQ(Get<i32>("w", kRepeats), 4);
  EXPECT_EQ(Get<i32>("w", kUseFrames), 0);
  EXPECT_EQ(Node("w").GlobalMatrix().offset, (Vec3d{8, 0, 4}));
}

TEST_F(SceneFile, ObjectsOfEveryType) {
  Write("t.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  Write("f.0003.obj", "v 0 0 0\nv 5 0 0\nv 0 1 0\nf 1 2 3\n");
  Load("", R"("range": [1, 4], "objects": [
    {"name": "t", "type": "mesh", "file": "t.obj", "position": [1, 2, 3],
     "obstacle": {"friction": 0.5, "mass_mode": "from_density"}},
    {"name": "f", "type": "mesh", "frames": "f.####.obj"},
    {"name": "box", "type": "box", "size": [2, 4, 6]},
    {"type": "sphere", "radius": 3, "segments": 8}, {"type": "plane", "size": [2, 4]},
    {"type": "cylinder", "radius": 1, "height": 2}, {"type": "cone"}, {"type": "torus"},
    {"name": "s", "type": "spline", "closed": true, "smooth": true, "segments": [2, 3],
     "points": [[0, 0, 0], [1, 0, 0], [2, 0, 0], [2, 1, 0], [2, 1, 1]]},
    {"name": "p", "type": "points", "points": [[1, 2, 3]]},
    {"type": "light"}, {"type": "camera", "rotation": [0, 90, 0]}],)");
  const auto geometry = [&](const char* name) -> const Geometry& {
    return dynamic_cast<PolygonObject&>(Node(name)).GetGeometry();
  };
  EXPECT_EQ(geometry("t").points.size(), 3u);
  EXPECT_EQ(Node("t").GlobalMatrix().offset, (Vec3d{1, 2, 3}));
  const BaseNode* tag = Node("t").Tag(kObstacleTag);
  ASSERT_TRUE(tag);
  EXPECT_EQ(std::get<double>(*tag->Get(2013)), 0.5);
  EXPECT_EQ(std::get<i32>(*tag->Get(2008)), 1);
  EXPECT_EQ(std::get<double>(*tag->Get(2012)), 0.4);
  EXPECT_EQ(geometry("f").points[1].x, 5);
  Vec3d low{9, 9, 9}, high = -low;
  for (const Vec3d& p : geometry("box").points) low = Min(low, p), high = Max(high, p);
  EXPECT_EQ(high - low, (Vec3d{2, 4, 6}));
  for (const char* name : {"sphere", "plane", "cylinder", "cone", "torus"})
    EXPECT_FALSE(geometry(name).polygons.empty()) << name;
  const auto& spline = dynamic_cast<SplineObject&>(Node("s"));
  EXPECT_TRUE(spline.closed && spline.smooth);
  EXPECT_EQ(spline.segments, (std::vector<i32>{2, 3}));
  EXPECT_EQ(dynamic_cast<PointsObject&>(Node("p")).points.size(), 1u);
  EXPECT_EQ(Node("light").Type(), kLightObject);
  EXPECT_EQ(Node("camera").Type(), kCameraObject);
}

TEST_F(SceneFile, ExportsNameTheNodesOfTheirGrids) {
  Load(R"({"type": "channel_scalar", "name": "smoke"})",
       R"("exports": [
         {"format": "vdb", "file": "vdb/####.vdb", "grids": {"density": "smoke", "d2": "smoke"}},
         {"format": "png", "file": "####.png", "grids": {"smoke": "scene/smoke"}, "axis": "x"}],)");
  ASSERT_EQ(mScene->exports.size(), 2u);
  const ExportSpec& vdb = mScene->exports[0];
  EXPECT_EQ(vdb.file, "vdb/####.vdb");
  EXPECT_EQ(vdb.grids[1], std::pair(std::string("d2"), Node("smoke").Id()));
  EXPECT_EQ(mScene->exports[1].axis, 'x');
  EXPECT_EQ(mScene->exports[1].where.line, 3u);
}

TEST_F(SceneFile, RenderSectionHoldsItsNodes) {
  Load("",
       R"("objects": [{"type": "light", "name": "lamp", "parameters": {"kind": "spot"}},
                      {"type": "light", "name": "unused"}, {"type": "box", "name": "crate"}],
          "render": {"size": [320, 200], "samples": 5, "files": ["p/##.exr"],
            "camera": {"position": [0, 0, 9],
                       "parameters": {"field_of_view": {"keys": [[0, 20], [10, 40]]}}},
            "lights": ["lamp", {"name": "fill", "position": [1, 0, 0]}],
            "materials": [{"type": "surface", "objects": ["crate"],
                           "parameters": {"roughness": 0.5}}]},)",
       {"fill.brightness=3"});
  ASSERT_TRUE(mScene->render);
  const RenderSpec& render = *mScene->render;
  EXPECT_EQ(render.width, 320);
  EXPECT_EQ(render.height, 200);
  EXPECT_EQ(render.files, std::vector<std::string>{"p/##.exr"});
  EXPECT_EQ(std::get<i32>(*render.settings->Get(kRenderSamples)), 5);
  mScene->document->SetFrame(5);
  EXPECT_EQ(std::get<double>(*render.camera->Get(kCameraFieldOfView)), 30);
  EXPECT_EQ(render.camera->GlobalMatrix().offset.z, 9);
  ASSERT_EQ(render.lights.size(), 2u);
  EXPECT_EQ(render.lights[0], &Node("lamp"));
  EXPECT_EQ(std::get<i32>(*render.lights[0]->Get(kLightKind)), 1);
  EXPECT_EQ(std::get<double>(*render.lights[1]->Get(kLightBrightness)), 3);
  ASSERT_EQ(render.surfaces.size(), 1u);
  EXPECT_EQ(render.surfaces[0].first, Node("crate").Id());
  EXPECT_EQ(std::get<double>(*render.surfaces[0].second->Get(kSurfaceRoughness)), 0.5);
}

TEST_F(SceneFile, OverridesAreValuesOfTheFileOrPlainText) {
  Load(R"({"type": "duration", "name": "a.b", "parameters": {
             "length": {"keys": [[0, 1], [10, 3]]}}},
          {"type": "fluid", "name": "gas", "parameters": {"forces": ["x"]}},
          {"type": "force_gravity", "name": "x"}, {"type": "force_gravity", "name": "x.y"},
          {"type": "volume", "name": "v"}, {"type": "mesh", "name": "m=1"})",
       "", {"a.b.length=7", "a.b.1002=2", "gas.forces=[\"x.y\"]", "v.mesh=null"});
  mScene->document->SetFrame(10);
  EXPECT_EQ(Get<double>("a.b", kLength), 7.0) << "the value from outside beats the keys";
  EXPECT_EQ(Get<i32>("a.b", kRepeats), 2);
  EXPECT_EQ(Get<InExcludeData>("gas", kFluidForces).entries.front().node, Node("x.y").Id());
}

TEST_F(SceneFile, OverridesOfTextsNeedNoQuotes) {
  constexpr i32 kName = 1504, kObject = 1000;
  const std::string objects = R"("objects": [{"name": "12", "type": "box"}],)";
  for (const char* text : {"12", "true", "null", "[1, 2]", "{\"a\": 1}", "3 // x", "a=b"}) {
    Load(R"({"type": "mesh", "name": "m"})", objects,
         {std::string("scene.cache_name=") + text, "m.object=12"});
    EXPECT_EQ(Get<std::string>("scene", kName), text);
    EXPECT_EQ(Get<Link>("m", kObject).node, Node("12").Id());
  }
  Load("", "", {"scene.cache_name=\"in quotes\""});
  EXPECT_EQ(Get<std::string>("scene", kName), "in quotes");
}

TEST_F(SceneFile, OverridesOfASharedNameMeanTheNodeWithTheParameter) {
  Load(R"({"type": "duration", "name": "puff"}, {"type": "rate", "name": "w", "children": [
            {"type": "duration", "name": "w"}]})",
       R"("objects": [{"name": "puff", "type": "box"}],)", {"puff.length=3", "w.repeats=2"});
  EXPECT_EQ(Get<double>("scene/puff", kLength), 3);
  EXPECT_EQ(Get<i32>("w/w", kRepeats), 2);
}

TEST_F(SceneFile, OverridesAreCheckedAndNameTheOption) {
  Load(R"({"type": "duration", "name": "w"})", R"("objects": [{"name": "o", "type": "box"}],)");
  EXPECT_THAT(
      Refusals({"w.lenght=1", "ww.length=1", "w.repeats=-1", "w.length=long", "nonsense",
                "o.size=3", "scene.use_preview_range=false"}),
      ElementsAre(
          "--set w.lenght=1: error: duration \"w\": unknown parameter 'lenght'; did you mean "
          "'length'?",
          "--set ww.length=1: error: node: no node or object is named 'ww'; did you mean 'w'?",
          "--set w.repeats=-1: error: duration \"w\": 'repeats': -1 is out of range; expected at "
          "least 0",
          "--set w.length=long: error: duration \"w\": 'length': expected a number, got text",
          "--set nonsense: error: expected NODE.PARAMETER=VALUE",
          "--set o.size=3: error: mesh object \"o\": it has no parameters"));
}

// A scene with every kind of value, with a few bytes changed: the loader answers, whatever it is.
TEST_F(SceneFile, MutatedScenesNeverBreakTheLoader) {
  const std::string whole = R"({"sulva": 1, "range": [0, 3], "objects": [
    {"name": "b", "type": "sphere", "radius": 3, "segments": 4, "position": [1, 2, 3],
     "obstacle": {"mass": {"keys": [[0, 1]]}}}, {"type": "spline", "points": [[0,0,0],[1,1,1]]}],
    "nodes": [{"type": "server", "children": [{"type": "mesh", "parameters": {"object": "b"}},
    {"type": "duration", "parameters": {"curve": [[0, 1]], "1000": 2, "use_frames": true}},
    {"type": "fluid", "parameters": {"forces": ["x", {"node": "x", "flags": 2}]}},
    {"type": "force_gravity", "name": "x"}]}],
    "exports": [{"format": "png", "file": "#.png", "grids": {"a": "b"}, "axis": "x"}],
    "render": {"size": [9, 8], "camera": {"parameters": {"target": [0, 0, 1]}}, "files": ["#.exr"],
     "lights": [{"name": "l"}], "materials": [{"type": "surface", "objects": ["b"]}]}})";
  u64 state = 88172645463325252ull;
  const auto random = [&](std::size_t n) {
    state ^= state << 13, state ^= state >> 7, state ^= state << 17;
    return static_cast<std::size_t>(state % n);
  };
  const std::string alphabet = "{}[]\",:0123456789-.enull#/ ";
  int accepted = 0;
  for (int round = 0; round < 1500; ++round) {
    std::string text = whole;
    for (std::size_t edits = 1 + random(2); edits > 0; --edits) {
      // Whole words moved about find more than single letters do.
      const std::size_t from = random(text.size()), to = random(text.size());
      if (random(3) == 0) {
        text[to] = alphabet[random(alphabet.size())];
      } else if (random(2) == 0) {
        text.insert(to, text.substr(from, 1 + random(20)));
      } else {
        text.erase(to, 1 + random(12));
      }
    }
    Write("scene.json", text);
    Diagnostics diagnostics;
    const auto scene = LoadScene(mFolder / "scene.json", diagnostics);
    ASSERT_NE(scene.has_value(), diagnostics.HasErrors()) << text;
    accepted += scene.has_value();
  }
  EXPECT_LT(accepted, 1500);
}

TEST_F(SceneFile, NamesMeanNodesOfTheOwnServerFirst) {
  const auto emitter = [](const char* server) {
    return std::string(R"({ "type": "server", "name": ")") + server + R"(", "children": [
      { "type": "channel_scalar", "name": "smoke" },
      { "type": "grid_dissipate", "name": "fade", "parameters": { "channel": "smoke" } } ] })";
  };
  Write("two.json", R"({ "sulva": 1, "nodes": [ )" + emitter("a") + ", " + emitter("b") + " ] }");
  mScene = LoadScene(mFolder / "two.json", mDiagnostics,
                     {"b/fade.channel=smoke", "a/fade.channel=b/smoke"});
  ASSERT_TRUE(mScene) << testing::PrintToString(mDiagnostics.Lines());
  EXPECT_EQ(Get<Link>("b/fade", 1000).node, Node("b/smoke").Id());
  EXPECT_EQ(Get<Link>("a/fade", 1000).node, Node("b/smoke").Id()) << "a path says it";
}

TEST_F(SceneFile, KindsOfParticlesAreFlagsOfTheirOwnEntries) {
  Load(R"({ "type": "force_gravity", "name": "a" },
          { "type": "fluid", "name": "gas", "parameters": { "forces": [
            {"node": "a", "kinds": ["liquid", "passive"]}, {"node": "a", "kinds": ["vorticity"]},
            {"node": "a", "kinds": ["diffuse"]}, {"node": "a", "flags": 5}, "a"] } })");
  std::vector<u32> flags;
  for (const auto& entry : Get<InExcludeData>("scene/gas", kFluidForces).entries) {
    EXPECT_EQ(entry.node, Node("scene/a").Id());
    flags.push_back(entry.flags);
  }
  EXPECT_THAT(flags, ElementsAre(2u, 1u, 4u, 8u, 5u, 0u));
}

TEST_F(SceneFile, TheOrderOfNodesAndMembersIsNoPartOfTheFingerprint) {
  const std::string
      a = R"({ "type": "force_gravity", "name": "a", "parameters": { "strength": 2, "priority": 3 } })",
      swapped =
          R"({ "parameters": { "priority": 3, "strength": 2 }, "name": "a", "type": "force_gravity" })",
      b = R"({ "type": "force_gravity", "name": "b" })",
      gas = R"({ "type": "fluid", "name": "gas", "parameters": { "forces": ["a", "b"] } })",
      turned = R"({ "type": "fluid", "name": "gas", "parameters": { "forces": ["b", "a"] } })";
  const std::string
      objects =
          R"("objects": [ { "name": "x", "type": "box" }, { "name": "y", "type": "sphere" } ],)",
      reversed =
          R"("objects": [ { "name": "y", "type": "sphere" }, { "name": "x", "type": "box" } ],)",
      renamed =
          R"("objects": [ { "name": "y", "type": "box" }, { "name": "x", "type": "sphere" } ],)";
  const auto print = [&](const std::string& children, const std::string& top) {
    return Load(children, top).fingerprint;
  };
  const u64 first = print(a + "," + b + "," + gas, objects);
  EXPECT_EQ(print(gas + "," + b + "," + a, objects), first);
  EXPECT_EQ(print(swapped + "," + b + "," + gas, reversed), first);
  EXPECT_NE(print(a + "," + b + "," + turned, objects), first) << "a list has an order";
  EXPECT_NE(print(a + "," + b + "," + gas, renamed), first);
}

TEST_F(SceneFile, ScriptsAreTextsLinesOrFilesWhoseContentCounts) {
  constexpr i32 kScript = 9002;
  const auto node = [](const std::string& script) {
    return R"({ "type": "force_script", "name": "push", "parameters": { "script": )" + script +
           " } }";
  };
  const std::string head = "function main(op)", body = "return Vector(0, 1, 0)",
                    source = head + "\n" + body + "\nend";
  Load(node("[\"" + head + "\",\n\"" + body + "\",\n\n\"end\"]"));
  EXPECT_EQ(Get<std::string>("scene/push", kScript), source);
  const TextOrigin& lines = *Node("scene/push").OriginOf(kScript);
  EXPECT_EQ(lines.file, (mFolder / "scene.json").string());
  EXPECT_THAT(lines.lines, ElementsAre(1u, 2u, 4u));
  Load(node("\"" + head + "\\n" + body + "\\nend\""));
  EXPECT_EQ(Get<std::string>("scene/push", kScript), source);

  const std::string file = node(R"({ "file": "push.lua" })");
  Write("push.lua", source);
  const u64 first = Load(file).fingerprint;
  EXPECT_EQ(Get<std::string>("scene/push", kScript), source);
  EXPECT_EQ(Node("scene/push").OriginOf(kScript)->LineOf(3), 3u);
  EXPECT_EQ(Load(file).fingerprint, first);
  Write("push.lua", source + "\n-- and more");
  EXPECT_NE(Load(file).fingerprint, first);

  Write("push.lua", "\xEF\xBB\xBF#!/usr/bin/lua\n" + source);
  Load(file);
  EXPECT_EQ(Get<std::string>("scene/push", kScript), "--#!/usr/bin/lua\n" + source);

  // Long texts of the command line differ in their ends too.
  const std::string option = "push.script=" + source + std::string(200, ' ') + "--";
  const u64 set = Load(file, "", {option + " a"}).fingerprint;
  EXPECT_NE(Load(file, "", {option + " b"}).fingerprint, set);
  const std::string folder = "scene.cache_folder=" + std::string(200, 'x');
  const u64 there = Load(file, "", {folder + "a"}).fingerprint;
  EXPECT_NE(Load(file, "", {folder + "b"}).fingerprint, there);
  EXPECT_THAT(Refusals({"push.script=main"}),
              ElementsAre(HasSubstr("'script': syntax error near <eof>")));
}
