#include "nodes/media.h"

#include "fluids/rendering/gas_material.h"
#include "fluids/rendering/grid_sampler_shader.h"
#include "fluids/rendering/particle_material.h"
#include "nodes/with_kinds.h"

namespace MELDO_GLOBAL::app {

namespace {

using GasMaterial = ZOLT_RENDERING::GasRenderer_Material;

std::vector<MELDO_SULVA::Scene*> AllOf(const Scenes& scenes) {
  std::vector<MELDO_SULVA::Scene*> all;
  for (const auto& scene : scenes) all.push_back(scene.get());
  return all;
}

const host::ParameterTable& GasRows() {
  return MELDO_SULVA::TableWithKinds(GasMaterial::kPluginId, GasMaterial::Parameters);
}

std::unique_ptr<host::VolumeMaterial> MakeGas(host::BaseNode& node, const Scenes& scenes) {
  return std::make_unique<GasMaterial>(node, AllOf(scenes));
}

}  // namespace

const std::vector<MediumType>& MediumTypes() {
  static const std::vector<MediumType> types = {{GasMaterial::kPluginId, "gas", GasRows, MakeGas}};
  return types;
}

const MediumType* FindMediumType(i32 id) {
  for (const MediumType& type : MediumTypes())
    if (type.id == id) return &type;
  return nullptr;
}

std::vector<std::unique_ptr<host::VolumeMaterial>> MakeMedia(
    const std::vector<host::BaseNode*>& nodes, const Scenes& scenes) {
  std::vector<std::unique_ptr<host::VolumeMaterial>> media;
  for (host::BaseNode* node : nodes)
    media.push_back(FindMediumType(node->Type())->make(*node, scenes));
  return media;
}

const host::ParameterTable& GridSamplerParameters() {
  return MELDO_SULVA::TableWithKinds(host::kGridSamplerShader,
                                     ZOLT_RENDERING::GridSampler_Shader::Parameters);
}

std::vector<std::pair<host::NodeId, std::unique_ptr<host::Shader>>> MakeShaders(
    const std::vector<host::BaseNode*>& nodes, const Scenes& scenes) {
  std::vector<std::pair<host::NodeId, std::unique_ptr<host::Shader>>> shaders;
  for (host::BaseNode* node : nodes)
    shaders.emplace_back(
        node->Id(), std::make_unique<ZOLT_RENDERING::GridSampler_Shader>(*node, AllOf(scenes)));
  return shaders;
}

const host::ParameterTable& ParticleMaterialParameters() {
  return MELDO_SULVA::TableWithKinds(host::kParticleMaterial,
                                     ZOLT_RENDERING::ParticleRenderer_Material::Parameters);
}

std::vector<std::unique_ptr<host::ParticleMaterial>> MakeParticleMaterials(
    const std::vector<host::BaseNode*>& nodes, const Scenes& scenes) {
  std::vector<std::unique_ptr<host::ParticleMaterial>> materials;
  for (host::BaseNode* node : nodes)
    materials.push_back(
        std::make_unique<ZOLT_RENDERING::ParticleRenderer_Material>(*node, AllOf(scenes)));
  return materials;
}

}  // namespace MELDO_GLOBAL::app
