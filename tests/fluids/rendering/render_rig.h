// A box of smoke and fire, a lamp, and the gas material, without pictures.
#pragma once
#include <memory>
#include <string>

#include "fluids/fields/temperature_grid_channel.h"
#include "fluids/rendering/gas_material.h"
#include "fluids/test_scene.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

using namespace MELDO_SULVA;

/// A lamp at a place, or, with `distant`, light along a direction; without falloff.
class TestLight : public host::RenderLight {
 public:
  Vec3d place{}, direction{0, -1, 0}, colour{1, 1, 1};
  bool distant = true;
  bool volumes = true;
  Vec3d blocked{};       ///< what meshes take away everywhere
  double darkBelow = 0;  ///< nothing lower is lit
  host::NodeId node = 0;

  host::NodeId Node() const override { return node; }
  Vec3d Colour() const override { return colour; }
  bool IlluminatesVolumes() const override { return volumes; }
  Illumination Illuminate(const Vec3d& point, bool withShadows) const override {
    Illumination light;
    if (point.y >= darkBelow) light.colour = colour;
    light.direction = DirectionTo(point);
    light.distance = distant ? kFarLight : Length(point - place);
    if (withShadows) {
      light.shadow = blocked;
      light.colour = light.colour * (Vec3d{1, 1, 1} - blocked);
    }
    return light;
  }
  Vec3d DirectionTo(const Vec3d& point) const override {
    return distant ? direction : Normalised(point - place);
  }
};

/// Fields of `cells` cells of 10 host units from the world's origin on.
struct RenderRig {
  explicit RenderRig(const VecInt3D& cells) : size(ToReal(cells) * 10) {
    smoke = &Field<ScalarField>("channel_scalar", "smoke", cells);
    heat = &Field<TemperatureField>("channel_temp", "heat", cells);
    node = &GasRenderer_Material::CreateNode(test.document, "gas");
    node->Set(2200, host::Link{smoke->Node()->Id()});
    material = std::make_unique<GasRenderer_Material>(*node, std::vector<Scene*>{test.scene.get()});
    data.document = &test.document;
  }
  template <class T>
  T& Field(const char* type, const char* name, const VecInt3D& cells) {
    T& channel = test.Add<T>(type, name);
    channel.ReadParameters();
    channel.ApplyBounds({0, 0, 0}, ToReal(cells) * double{test.scene->mDomain.cellSize});
    return channel;
  }
  void LinkFire() { node->Set(2551, host::Link{heat->Node()->Id()}); }
  /// Sets cells from f(centre in host units).
  template <class T, class F>
  static void Fill(T& channel, F&& f) {
    EGrid<double>& g = *channel.mGrid;
    ForEachCell({{0, 0, 0}, g.Dims()}, [&](i32 x, i32 y, i32 z) {
      g(x, y, z) = f((ToReal({x, y, z}) + Vec3d{0.5, 0.5, 0.5}) * g.mLayout.worldCell);
    });
  }
  TestLight& AddLight(const Vec3d& direction) {
    auto light = std::make_shared<TestLight>();
    light->direction = direction;
    data.lights.push_back(light);
    return *light;
  }
  bool Init() { return material->InitRender(data); }

  struct Seen {
    Vec3d colour, transmission, scattering, emission;
    double depth;
  };
  /// A camera ray from outside through the middle, along x, or the one given.
  Seen See(double u = 0.5) const { return See({-50, size.y / 2, size.z / 2}, {1, 0, 0}, u); }
  Seen See(const Vec3d& origin, const Vec3d& direction, double u = 0.5, u32 flags = 0,
           const host::HitRecord* hit = nullptr) const {
    host::RenderRay ray{origin, Normalised(direction), flags, 0, 17, u};
    host::VolumeRecord record{ray, hit};
    material->Volumetric(record, data);
    return {record.colour, record.transmission, record.scattering, record.emission, record.depth};
  }
  Vec3d Shadow(const Vec3d& origin, const Vec3d& direction, double length) const {
    host::RenderRay ray{origin, Normalised(direction), 0, 0, 23, 0.5};
    host::TransparencyRecord record{ray, length};
    material->Transparency(record, data);
    return record.transparency;
  }

  TestScene test{0.1};
  Vec3d size;
  ScalarField* smoke;
  TemperatureField* heat;
  host::BaseNode* node;
  std::unique_ptr<GasRenderer_Material> material;
  host::RenderData data;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
