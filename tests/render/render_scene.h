// Small scenes for tests of pictures.
#pragma once
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "render/picture_renderer.h"
#include "scene/scene_file.h"

namespace MELDO_GLOBAL::app {

/// A folder of its own that goes with the test.
class RenderFolder {
 public:
  RenderFolder() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    mPath = std::filesystem::temp_directory_path() /
            ("sulva_" + std::string(test->name()) + std::to_string(::getpid()));
    std::filesystem::create_directories(mPath);
  }
  ~RenderFolder() { std::filesystem::remove_all(mPath); }
  std::filesystem::path operator/(const std::string& name) const { return mPath / name; }

 private:
  std::filesystem::path mPath;
};

/// A scene with these objects and this "render" section, and a server with nothing in it.
inline LoadedScene LoadRenderScene(const std::string& objects, const std::string& render) {
  const RenderFolder folder;
  const auto path = folder / "scene.json";
  std::ofstream(path) << R"({"sulva": 1, "range": [0, 4], "nodes": [{"type": "server"}],)"
                      << "\"objects\": [" << objects << "], \"render\": {" << render << "}}";
  Diagnostics diagnostics;
  auto scene = LoadScene(path, diagnostics);
  for (const std::string& line : diagnostics.Lines()) ADD_FAILURE() << line;
  if (!scene || !scene->render) throw std::runtime_error("the scene is broken");
  return std::move(*scene);
}

inline RenderedPicture Draw(const LoadedScene& scene,
                            const std::vector<host::VolumeMaterial*>& media = {}, i32 frame = 0) {
  host::HostThread thread;
  return RenderPicture(*scene.render, frame, {media, {}, {}}, thread);
}

/// The light at a place of the picture, sky included.
inline Vec3d LightAt(const RenderedPicture& picture, i32 x, i32 y) {
  const auto& pixel = picture.pixels[static_cast<std::size_t>(y) * picture.width + x];
  const auto light = pixel.colour + pixel.sky;
  return {light.x, light.y, light.z};
}

/// A slab of smoke that fills all space between two heights.
class Slab : public host::VolumeMaterial {
 public:
  double low = 100, high = 200;
  double density = 0;                   ///< extinction per host unit
  double depth = 10;                    ///< at which it says that rays meet it
  Vec3d glow{};                         ///< light that each ray through it gets
  std::vector<host::GlowingBox> boxes;  ///< that it says it glows in
  bool hasContent = true;

  bool InitRender(const host::RenderData&) override { return hasContent; }
  void FreeRender() override { ++freed; }
  std::vector<host::GlowingBox> Glow() const override { return boxes; }
  void Volumetric(host::VolumeRecord& record, const host::RenderData&) const override {
    const bool isSurface = record.hit && record.hit->kind == host::HitKind::Surface;
    const double way = Way(record.ray, isSurface ? record.hit->distance : 1e6);
    if (way == 0) return;
    const double t = std::exp(-density * way);
    record.transmission = {t, t, t};
    record.colour = record.emission = record.glow = glow * (0.5 + record.ray.random);
    record.depth = depth;
  }
  void Transparency(host::TransparencyRecord& record, const host::RenderData&) const override {
    const double t = std::exp(-density * Way(record.ray, record.length));
    record.transparency = {t, t, t};
  }
  int freed = 0;

 private:
  double Way(const host::RenderRay& ray, double length) const {
    const double dy = ray.direction.y;
    if (dy == 0) return 0;
    const double a = (low - ray.origin.y) / dy, b = (high - ray.origin.y) / dy;
    return std::max(0.0, std::min(std::max(a, b), length) - std::max(0.0, std::min(a, b)));
  }
};

}  // namespace MELDO_GLOBAL::app
