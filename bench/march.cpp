// bench_march [N]: rays through a cloud of N^3 cells (96), in million samples a second and
// nanoseconds a sample; and what a picture's preparation takes.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "fluids/rendering/gas_material.h"
#include "framework/sulva_scene.h"
#include "host/noise.h"
#include "nodes/catalogue.h"
#include "timing.h"

using namespace MELDO_GLOBAL;
using namespace MELDO_GLOBAL::MELDO_SULVA;
using namespace MELDO_GLOBAL::ZOLT_RENDERING;

namespace {

class Sun : public host::RenderLight {
 public:
  host::NodeId Node() const override { return 0; }
  Vec3d Colour() const override { return {1, 1, 1}; }
  bool IlluminatesVolumes() const override { return true; }
  Illumination Illuminate(const Vec3d&, bool) const override {
    return {{1, 1, 1}, mDirection, kFarLight, {}};
  }
  Vec3d DirectionTo(const Vec3d&) const override { return mDirection; }

 private:
  Vec3d mDirection = Normalised(Vec3d{-1, -2, 0.5});
};

struct Cloud {
  explicit Cloud(i32 n) : cells(n) {
    host::BaseNode& server = CreateNode(document, *FindKind("server"), "sim", nullptr);
    scene = CreateScene(server);
    scene->UpdateDomain(100, 1, 0.03);
    smoke = Add(server, "channel_scalar", "smoke");
    heat = Add(server, "channel_temp", "heat");
    const host::Noise noise(7);
    Fill(*smoke, [&](const Vec3d& p, double d) {
      return d < 0.4 ? std::max(0.0, 0.6 + noise.Evaluate(host::NoiseType::Fbm, p * 8, 3)) : 0.0;
    });
    Fill(*heat, [&](const Vec3d&, double d) { return std::max(0.0, 2500 * (1 - 4 * d)); });
    node = &GasRenderer_Material::CreateNode(document, "gas");
    node->Set(2200, host::Link{smoke->Node()->Id()});
    // Thin enough for rays to go through.
    for (const i32 id : {2351, 2352, 2453}) node->Set(id, 0.002);
    data.document = &document;
    data.lights.push_back(std::make_shared<Sun>());
  }
  ScalarField* Add(host::BaseNode& server, const char* type, const char* name) {
    host::BaseNode& made = CreateNode(document, *FindKind(type), name, &server);
    scene->CreateObject(&made, made.Type());
    auto* channel = dynamic_cast<ScalarField*>(scene->FindObject(&made, kListAll));
    channel->ReadParameters();
    const double size = cells * double{scene->mDomain.cellSize};
    channel->ApplyBounds({0, 0, 0}, {size, size, size});
    return channel;
  }
  template <class F>
  void Fill(ScalarField& channel, F&& f) {
    EGrid<double>& g = *channel.mGrid;
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
      const Vec3d p = (ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) / double(cells);
      g(x, y, z) = f(p, Length(p - Vec3d{0.5, 0.5, 0.5}));
    });
  }

  i32 cells;
  host::Document document;
  std::unique_ptr<SulvaScene> scene;
  ScalarField *smoke, *heat;
  host::BaseNode* node;
  host::RenderData data;
};

/// Parallel rays through the whole box.
template <class F>
void ForEachRay(const WorldBox& box, F&& f) {
  constexpr int n = 96;
  const Vec3d size = box.max - box.min;
  for (int y = 0; y < n; ++y)
    for (int z = 0; z < n; ++z) {
      const Vec3d from = box.min + Vec3d{0, (y + 0.5) / n, (z + 0.5) / n} * size;
      f(VolumeRay(from, from + Vec3d{size.x, 0, 0}), (y * 31 + z * 17) % 97 / 97.0);
    }
}

void TimeRays(Cloud& cloud, const char* what) {
  GasRenderer_Material material(*cloud.node, {cloud.scene.get()});
  const double set = Best([&] { material.InitRender(cloud.data); });
  const RayMarcher& marcher = *material.Marcher();
  i64 places = 0, inside = 0;
  const auto march = [&] {
    places = inside = 0;
    ForEachRay(marcher.Bounds(), [&](const VolumeRay& ray, double u) {
      MarchResult result;
      MarchRecord record;
      marcher.MarchRay(result, record, ray, u, cloud.data, 0);
      places += record.places;
      inside += static_cast<i64>(record.count[0]);
    });
  };
  const double seen = Best(march);
  Vec3d sum{};
  const double shadow = Best([&] {
    ForEachRay(marcher.Bounds(), [&](const VolumeRay& ray, double u) {
      Vec3d colour{1, 1, 1};
      marcher.ShadowRay(colour, ray, marcher.ObjectShadow(), u);
      sum += colour;
    });
  });
  fmt::print(
      "{:28} set-up {:6.3f} s  march {:6.2f} M/s ({:4.0f} ns, {:2.0f}% in smoke)  "
      "shadow {:6.2f} M/s\n",
      what, set, places / seen * 1e-6, seen / places * 1e9, 100.0 * inside / places,
      places / shadow * 1e-6);
  if (!marcher.HasMultipleScattering()) return;
  const double spread = Best([&] {
    ForEachRay(marcher.Bounds(), [&](const VolumeRay& ray, double u) {
      marcher.AddMultipleScattering(sum, ray, u, 0);
    });
  });
  fmt::print("{:28} spread {:6.2f} M/s\n", "", places / spread * 1e-6);
}

}  // namespace

int main(int argc, char** argv) {
  Cloud cloud(argc > 1 ? std::clamp(std::atoi(argv[1]), 8, 512) : 96);
  fmt::print("{}^3 cells, {} threads for the set-up, 1 for the rays\n", cloud.cells,
             host::ThreadCount());
  TimeRays(cloud, "smoke, one lamp");
  cloud.node->Set(2156, i32{1});
  TimeRays(cloud, "the same, cubic filter");
  cloud.node->Set(2156, i32{0});
  cloud.data.lights.push_back(std::make_shared<Sun>());
  TimeRays(cloud, "smoke, two lamps");
  cloud.node->Set(2551, host::Link{cloud.heat->Node()->Id()});
  TimeRays(cloud, "smoke and fire, two lamps");
  cloud.node->Set(2757, 1.0);
  TimeRays(cloud, "the fire lights the smoke");
  cloud.node->Set(2400, i32{1});
  TimeRays(cloud, "multiple scattering");
  return 0;
}
