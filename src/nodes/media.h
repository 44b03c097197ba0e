// Materials that fill space, and shaders, both made from what is in scenes.
#pragma once
#include <memory>
#include <string_view>
#include <vector>

#include "framework/sulva_scene.h"
#include "host/renderer.h"

namespace MELDO_GLOBAL::app {

using Scenes = std::vector<std::unique_ptr<MELDO_SULVA::SulvaScene>>;

/// A type of material that draws what is in scenes.
struct MediumType {
  i32 id;
  std::string_view name;
  const host::ParameterTable& (*rows)();
  /// Node and scenes outlive the material.
  std::unique_ptr<host::VolumeMaterial> (*make)(host::BaseNode& node, const Scenes& scenes);
};

const std::vector<MediumType>& MediumTypes();
/// By id, or null.
const MediumType* FindMediumType(i32 id);

/// The materials of nodes that each have one of these types.
std::vector<std::unique_ptr<host::VolumeMaterial>> MakeMedia(
    const std::vector<host::BaseNode*>& nodes, const Scenes& scenes);

/// The word for grid sampler shaders.
inline constexpr std::string_view kGridSamplerName = "grid_sampler";
const host::ParameterTable& GridSamplerParameters();
/// Shaders of nodes of that type, with their nodes.
std::vector<std::pair<host::NodeId, std::unique_ptr<host::Shader>>> MakeShaders(
    const std::vector<host::BaseNode*>& nodes, const Scenes& scenes);

/// The word for materials of clear bodies.
inline constexpr std::string_view kDielectricName = "dielectric";

/// The word for materials of particles.
inline constexpr std::string_view kParticlesName = "particles";
const host::ParameterTable& ParticleMaterialParameters();
/// The materials of nodes of that type.
std::vector<std::unique_ptr<host::ParticleMaterial>> MakeParticleMaterials(
    const std::vector<host::BaseNode*>& nodes, const Scenes& scenes);

}  // namespace MELDO_GLOBAL::app
