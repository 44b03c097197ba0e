// The ready-made scenes draw what they are there to show: every picture is lit, holds gas or water
// that covers a part of it, and no number that isn't finite.
#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

#include "cli/run_folder.h"
#include "paths.h"

namespace fs = std::filesystem;

namespace MELDO_GLOBAL::app {
namespace {

struct Layers {
  explicit Layers(const fs::path& path) : mFile(path.c_str()) {
    const Imath::Box2i window = mFile.header().dataWindow();
    mWidth = window.max.x + 1;
    mCount = static_cast<std::size_t>(mWidth) * (window.max.y + 1);
  }
  std::vector<float> Read(const char* channel) {
    std::vector<float> values(mCount);
    Imf::FrameBuffer buffer;
    buffer.insert(channel, Imf::Slice(Imf::FLOAT, reinterpret_cast<char*>(values.data()),
                                      sizeof(float), sizeof(float) * mWidth));
    mFile.setFrameBuffer(buffer);
    mFile.readPixels(0, mFile.header().dataWindow().max.y);
    return values;
  }

 private:
  Imf::InputFile mFile;
  int mWidth;
  std::size_t mCount;
};

template <class F>
double ShareOf(const std::vector<float>& values, F&& holds) {
  return static_cast<double>(std::count_if(values.begin(), values.end(), holds)) /
         static_cast<double>(values.size());
}

std::vector<fs::path> ReadyScenes() {
  std::vector<fs::path> found;
  for (const auto& entry : fs::directory_iterator(fs::path(SourcePath()) / "scenes"))
    // A replay plays what another scene has recorded.
    if (entry.path().extension() == ".json" && !entry.path().stem().string().starts_with("replay"))
      found.push_back(entry.path());
  std::sort(found.begin(), found.end());
  return found;
}

bool Holds(const fs::path& scene, const std::string& type) {
  std::ifstream file(scene);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.find("\"type\": \"" + type + '"') != std::string::npos;
}

/// The share of pixels that are as blue and bright as drops are; of background and ground none is.
double ShareOfWater(const std::vector<float>& red, const std::vector<float>& blue) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < red.size(); ++i) count += blue[i] > 0.13F && blue[i] > 1.2F * red[i];
  return static_cast<double>(count) / static_cast<double>(red.size());
}

class ReadyPicture : public testing::TestWithParam<fs::path> {};

}  // namespace

TEST_P(ReadyPicture, IsLitAndShowsItsMatter) {
  const std::string name = GetParam().stem().string();
  const RunFolder folder("picture_" + name);
  // In cells as coarse as gas may have, a stream of water is a few drops.
  const bool isWater = Holds(GetParam(), "liquid"), isGas = Holds(GetParam(), "fluid");
  const std::string cells = std::string("scene.cell_size=") + (isWater ? "0.055" : "0.08");
  ASSERT_EQ(folder.Run({"render", GetParam().string(), "--set", cells, "--frames", "20", "--size",
                        "64x36", "--samples", "4", "--exr", "--quiet", "--out", "out"}),
            0)
      << folder.Errors();
  EXPECT_EQ(folder.Errors(), "");
  Layers layers(folder.Path() / "out/render/0020.exr");
  const auto inRange = [](float v) { return v >= 0 && v <= 1; };
  const auto isLight = [](float v) { return v >= 0 && v < 1000; };
  const std::vector<float> red = layers.Read("R"), open = layers.Read("transmittance.G"),
                           fire = layers.Read("emission.R");
  EXPECT_EQ(ShareOf(layers.Read("A"), inRange), 1);
  EXPECT_EQ(ShareOf(open, inRange), 1);
  for (const auto& light : {red, layers.Read("G"), layers.Read("B"), fire})
    EXPECT_EQ(ShareOf(light, isLight), 1);
  EXPECT_GT(ShareOf(red, [](float v) { return v > 0.01; }), 0.1) << "lit";
  const double gas = std::max(ShareOf(open, [](float t) { return t < 0.95; }),
                              ShareOf(fire, [](float v) { return v > 0.05; }));
  const double bodies = ShareOf(red, [](float v) { return v > 0.5; });
  const double shown = isWater ? ShareOfWater(red, layers.Read("B")) : isGas ? gas : bodies;
  EXPECT_GT(shown, 0.002);
  // A basin fills half of it.
  EXPECT_LT(shown, 0.6);
}

INSTANTIATE_TEST_SUITE_P(Scenes, ReadyPicture, testing::ValuesIn(ReadyScenes()),
                         [](const auto& scene) { return scene.param.stem().string(); });

}  // namespace MELDO_GLOBAL::app
