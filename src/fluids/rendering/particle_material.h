// The material that draws particles.
#pragma once
#include <string_view>
#include <vector>

#include "fluids/particles/particle_group.h"
#include "fluids/particles/particle_property.h"
#include "framework/scene.h"
#include "host/polygon_object.h"
#include "host/render_objects.h"
#include "host/renderer.h"

namespace MELDO_GLOBAL::ZOLT_RENDERING {

/// What the rows of the material say. Gradients point into the node.
struct ParticleLook : host::ParameterHolder {
  /// In place of the number of a property.
  enum Reading : i32 { kNothing = -1, kLife = -2, kSpeed = -3 };
  static constexpr i32 kAllKinds = 4;

  MELDO_SULVA::ParticleGroup* group = nullptr;
  host::PointsObject* points = nullptr;  ///< in place of a group
  i32 kind = kAllKinds;
  double radius = 0.5;  ///< host units
  bool ownRadius = true;
  double radiusScale = 1;
  double leastPixels = 1;
  Vec3d colour{0.8, 0.8, 0.8};
  bool ownColour = true;
  double reflection = 0, roughness = 0.2;
  Vec3d emission{};
  i32 shadeBy = kNothing;
  MELDO_SULVA::iProperty* property = nullptr;  ///< in place of `shadeBy`
  double low = 0, high = 1;
  const host::Gradient* colourGradient = nullptr;
  const host::Gradient* emissionGradient = nullptr;
};

/// Draws the particles of a group, or those of a file, as spheres, with colour and glow by what
/// they carry, blurred by their velocity.
class ParticleRenderer_Material : public host::ParticleMaterial {
 public:
  static constexpr i32 kPluginId = host::kParticleMaterial;
  static const host::ParameterTable& Parameters();

  ParticleRenderer_Material(host::BaseNode& node, std::vector<MELDO_SULVA::Scene*> scenes)
      : mNode(&node), mScenes(std::move(scenes)) {}
  host::SphereCloud Spheres(const host::RenderData& data) const override;

 private:
  host::BaseNode* mNode;
  std::vector<MELDO_SULVA::Scene*> mScenes;
};

}  // namespace MELDO_GLOBAL::ZOLT_RENDERING
