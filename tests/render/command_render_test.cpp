// The render command: exit codes, files, selection of frames.
#include <OpenEXR/ImfArray.h>
#include <OpenEXR/ImfRgbaFile.h>

#include <set>

#include "cli/command_line.h"
#include "host/exit_codes.h"
#include "render/render_scene.h"

namespace fs = std::filesystem;
using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::app;

namespace {

constexpr const char* kScene = R"({ "sulva": 1, "range": [2, 5],
  "objects": [ { "type": "sphere", "name": "ball" } ],
  "nodes": [ { "type": "server", "name": "scene" } ],
  "render": { "size": [32, 20], "samples": 2, "camera": { "position": [0, 60, 300] } } })";

/// Smoke that rises from a ball and is recorded.
constexpr const char* kSmoke = R"({ "sulva": 1, "range": [2, 6],
  "objects": [ { "name": "ball", "type": "sphere", "radius": 30, "segments": 16, "position": [0, 50, 0] } ],
  "nodes": [ { "type": "server", "name": "scene", "parameters": { "cell_size": 0.2 }, "children": [
    { "type": "channel_scalar", "name": "smoke" },
    { "type": "mesh", "name": "ball mesh", "parameters": { "object": "ball" } },
    { "type": "volume", "name": "ball volume", "parameters": { "mesh": "ball mesh" } },
    { "type": "emission_setting", "name": "rate", "parameters": { "amount": 20 } },
    { "type": "channelsettings", "name": "pair", "parameters": { "channel": "smoke", "settings": "rate" } },
    { "type": "gridemitter", "name": "source", "parameters": { "volume": "ball volume", "channels": ["pair"] } },
    { "type": "force_gravity", "name": "lift", "parameters": { "acceleration": [0, 2, 0] } },
    { "type": "grid_advection", "name": "move smoke", "parameters": { "target": "smoke", "solver": "gas" } },
    { "type": "grid_advection", "name": "move gas", "parameters": { "target": "gas", "solver": "gas" } },
    { "type": "fluid", "name": "gas", "position": [-100, 0, -100],
      "parameters": { "box_size": [200, 200, 200], "linear_solver": 0, "forces": ["lift"] } },
    { "type": "cache", "name": "recording", "enabled": true, "parameters": { "mode": "record", "objects": ["smoke", "gas"] } }
  ] } ],
  "render": { "size": [32, 24], "samples": 2,
    "camera": { "position": [0, 100, 500], "parameters": { "target": [0, 90, 0] } },
    "lights": [ { "position": [300, 300, 100] } ],
    "materials": [ { "type": "gas", "name": "look", "parameters": { "smoke": "smoke", "absorption": 0.2 } } ] } })";

struct Answer {
  int code;
  std::string err;
};

class RenderCommand : public testing::Test {
 protected:
  RenderCommand() { std::ofstream(folder / "scene.json") << kScene; }

  Answer Render(std::vector<std::string> options, const std::string& scene = "scene.json") {
    std::vector<std::string> words = {"sulva", "render", (folder / scene).string()};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    testing::internal::CaptureStderr();
    const int code = Main(static_cast<int>(arguments.size()), arguments.data());
    return {code, testing::internal::GetCapturedStderr()};
  }
  void Run(std::vector<std::string> words) {
    words.insert(words.begin(), {"sulva", "run"});
    words.push_back("--quiet");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    ASSERT_EQ(Main(static_cast<int>(arguments.size()), arguments.data()), kExitDone);
  }
  std::string Out(const std::string& name) const { return (folder / name).string(); }
  static std::string Read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  RenderFolder folder;
};

}  // namespace

TEST_F(RenderCommand, WritesTheSelectedFrames) {
  ASSERT_EQ(Render({"--frames", "3:4", "--out", Out("out"), "--exr"}).code, kExitDone);
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder / "out/render"))
    names.insert(entry.path().filename());
  EXPECT_EQ(names, (std::set<std::string>{"0003.png", "0003.exr", "0004.png", "0004.exr"}));
}

TEST_F(RenderCommand, RepeatsByteForByte) {
  for (const char* threads : {"1", "2"})
    ASSERT_EQ(Render({"--frames", "3", "--threads", threads, "--out", Out(threads)}).code,
              kExitDone);
  host::SetThreadCount(0);
  const std::string picture = Read(folder / "1/render/0003.png");
  EXPECT_FALSE(picture.empty());
  EXPECT_TRUE(picture == Read(folder / "2/render/0003.png"));
}

TEST_F(RenderCommand, PlaysCachesWithoutSimulating) {
  std::ofstream(folder / "smoke.json") << kSmoke;
  const std::string run = Out("run"), plain = Out("plain");
  Run({Out("smoke.json"), "--out", run});

  const Answer simulated = Render({"--frames", "5:6", "--out", plain, "--exr"}, "smoke.json");
  ASSERT_EQ(simulated.code, kExitDone) << simulated.err;
  for (const char* file : {"plain/render/0005.png", "plain/render/0005.exr"}) {
    const std::string bytes = Read(folder / file);
    for (const char* text : {"sulva:fields", "smoke [1]", "sulva:fingerprint", "sulva:frame"})
      EXPECT_NE(bytes.find(text), std::string::npos) << text << " in " << file;
  }
  const Answer played = Render({"--frames", "5:6", "--out", run, "--cached"}, "smoke.json");
  ASSERT_EQ(played.code, kExitDone) << played.err;
  EXPECT_EQ(played.err.find("frame 3"), std::string::npos) << "no frame before is evaluated";
  EXPECT_EQ(played.err.find("warning"), std::string::npos) << played.err;
  for (const char* name : {"render/0005.png", "render/0006.png"})
    EXPECT_TRUE(Read(folder / "plain" / name) == Read(folder / "run" / name)) << name;

  const Answer missing = Render({"--frames", "5:6", "--out", Out("new"), "--cached"}, "smoke.json");
  EXPECT_EQ(missing.code, kExitFile);
  EXPECT_NE(missing.err.find("no cache holds all that the pictures show"), std::string::npos);
}

TEST_F(RenderCommand, GoesOnBehindACheckpoint) {
  std::string text = kSmoke;
  const std::size_t cache = text.find("\"enabled\": true");
  ASSERT_NE(cache, std::string::npos);
  text.replace(cache, 15, "\"enabled\": false");
  std::ofstream(folder / "smoke.json") << text;
  Run({Out("smoke.json"), "--checkpoint", "1", "--out", Out("run")});
  const Answer plain = Render({"--frames", "6", "--out", Out("plain")}, "smoke.json");
  const Answer resumed = Render({"--frames", "6", "--out", Out("run")}, "smoke.json");
  ASSERT_EQ(resumed.code, kExitDone) << resumed.err;
  EXPECT_NE(resumed.err.find("going on behind frame 5"), std::string::npos) << resumed.err;
  EXPECT_TRUE(Read(folder / "plain/render/0006.png") == Read(folder / "run/render/0006.png"));

  // What only pictures are made of may change.
  const Answer thicker =
      Render({"--frames", "6", "--set", "look.density=2", "--out", Out("run")}, "smoke.json");
  ASSERT_EQ(thicker.code, kExitDone) << thicker.err;
  EXPECT_NE(thicker.err.find("going on behind frame 5"), std::string::npos) << thicker.err;
  EXPECT_FALSE(Read(folder / "plain/render/0006.png") == Read(folder / "run/render/0006.png"));
  const Answer coarser =
      Render({"--frames", "6", "--set", "scene.cell_size=0.25", "--out", Out("run")}, "smoke.json");
  EXPECT_EQ(coarser.err.find("going on"), std::string::npos) << coarser.err;

  // Lights are no part of a simulation, and may be renamed.
  text.replace(text.find("{ \"position\": [300, 300, 100] }"), 2, "{ \"name\": \"sun\", ");
  std::ofstream(folder / "smoke.json") << text;
  const Answer renamed = Render({"--frames", "6", "--out", Out("run")}, "smoke.json");
  EXPECT_NE(renamed.err.find("going on behind frame 5"), std::string::npos) << renamed.err;

  // But a checkpoint knows the number of nodes.
  text.replace(text.find("{ \"name\": \"sun\", "), 0, "{}, ");
  std::ofstream(folder / "smoke.json") << text;
  const Answer other = Render({"--frames", "6", "--out", Out("run")}, "smoke.json");
  EXPECT_EQ(other.code, kExitDone) << other.err;
  EXPECT_NE(other.err.find("starting at the first frame"), std::string::npos) << other.err;
  Render({"--frames", "6", "--out", Out("plain")}, "smoke.json");
  EXPECT_TRUE(Read(folder / "plain/render/0006.png") == Read(folder / "run/render/0006.png"));
}

TEST_F(RenderCommand, TakesSizeAndSamplesFromTheCommandLine) {
  ASSERT_EQ(
      Render({"--frames", "2", "--size", "40x10", "--samples", "1", "--out", Out("out")}).code,
      kExitDone);
  const std::string png = Read(folder / "out/render/0002.png");
  ASSERT_GT(png.size(), 24u);
  EXPECT_EQ(static_cast<u8>(png[19]), 40) << "width in the header";
  EXPECT_EQ(static_cast<u8>(png[23]), 10) << "height in the header";
}

TEST_F(RenderCommand, SaysWhatIsWrong) {
  for (const char* size : {"40", "0x10", "40x", "40x99999", "axb", "4x4x4"})
    EXPECT_EQ(Render({"--size", size}).code, kExitUsage) << size;
  EXPECT_EQ(Render({"--samples", "0"}).code, kExitUsage);
  const Answer frames = Render({"--frames", "4:9", "--out", Out("out")});
  EXPECT_EQ(frames.code, kExitUsage);
  EXPECT_NE(frames.err.find("4:9 lies outside the scene's range 2:5"), std::string::npos);
  const Answer missing = Render({}, "nowhere.json");
  EXPECT_EQ(missing.code, kExitFile);

  std::ofstream(folder / "plain.json") << R"({"sulva": 1, "nodes": [{"type": "server"}]})";
  const Answer plain = Render({}, "plain.json");
  EXPECT_EQ(plain.code, kExitInvalidScene);
  EXPECT_NE(plain.err.find("plain.json:1:1: error: the scene has no 'render' section"),
            std::string::npos);
}

TEST_F(RenderCommand, EndsWhereTheFolderCantBeMade) {
  std::ofstream(folder / "file") << "not a folder";
  const Answer answer = Render({"--frames", "2", "--out", Out("file/out")});
  EXPECT_EQ(answer.code, kExitFile);
  EXPECT_NE(answer.err.find("cannot make the folder"), std::string::npos);
  EXPECT_EQ(answer.err.find("frame 2"), std::string::npos) << "told before anything is simulated";
}

TEST_F(RenderCommand, RefusesPicturesBeyondTheMemory) {
  const Answer answer = Render({"--size", "16384x16384", "--memory", "100M", "--out", Out("out")});
  EXPECT_EQ(answer.code, kExitMemory);
  EXPECT_NE(answer.err.find("16384x16384"), std::string::npos);
}

// Gas without its maps would be drawn wrong: no picture is written.
TEST_F(RenderCommand, RefusesGasBeyondTheMemory) {
  std::string text = kSmoke;
  const std::string look = R"("absorption": 0.2)";
  text.replace(text.find(look), look.size(), look + R"(, "resolution": 8)");
  std::ofstream(folder / "smoke.json") << text;
  const Answer answer =
      Render({"--frames", "6", "--memory", "8M", "--out", Out("out")}, "smoke.json");
  EXPECT_EQ(answer.code, kExitMemory) << answer.err;
  EXPECT_NE(answer.err.find("lower its resolution"), std::string::npos) << answer.err;
  EXPECT_FALSE(fs::exists(folder / "out/render/0006.png"));
}

// A field of the simulation colours a surface.
TEST_F(RenderCommand, GridSamplerColoursASurface) {
  std::string text = kSmoke;
  const auto replace = [&](const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    text.replace(at, from.size(), to);
  };
  // The smoke is thickest in the ball that it comes from; a wall cuts the box behind it.
  replace("\"objects\": [", R"("objects": [ { "name": "wall", "type": "plane", "size": [150, 150],
      "position": [0, 80, 0], "rotation": [90, 0, 0] },)");
  replace(
      R"([ { "type": "gas", "name": "look", "parameters": { "smoke": "smoke", "absorption": 0.2 } } ])",
      R"([ { "type": "grid_sampler", "name": "map", "parameters": { "field": "smoke",
                 "gradient": [[0, [0, 0, 1]], [0.5, [0, 1, 0]], [1, [0, 1, 0]]] } },
               { "type": "surface", "objects": ["wall"], "parameters": { "colour": [0, 0, 0],
                 "emission": [0.4, 0.4, 0.4], "emission_shader": "map" } } ],
             "hidden_objects": ["ball"])");
  std::ofstream(folder / "shader.json") << text;
  const Answer answer = Render({"--out", Out("out"), "--frames", "6", "--exr"}, "shader.json");
  ASSERT_EQ(answer.code, kExitDone) << answer.err;
  EXPECT_EQ(answer.err.find("warning"), std::string::npos) << answer.err;
  Imf::RgbaInputFile file(Out("out/render/0006.exr").c_str());
  Imf::Array2D<Imf::Rgba> rows(24, 32);
  file.setFrameBuffer(&rows[0][0], 1, 32);
  file.readPixels(0, 23);
  const Imf::Rgba smoky = rows[14][16], clear = rows[9][13];
  EXPECT_GT(smoky.g, 2 * smoky.b) << "green where the smoke is";
  EXPECT_NEAR(clear.b, 0.4, 0.02) << "blue where there is none";
  EXPECT_EQ(clear.g, 0);
}
