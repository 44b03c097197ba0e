#include "app/render/media.h"

#include "fluids/volume_renderer/gas_material.h"

namespace MELDO_GLOBAL::app {

namespace {

using GasMaterial = ZOLT_RENDERING::C4D_GasRenderer_Material;

std::unique_ptr<host::VolumeMaterial> MakeGas(host::BaseNode& node, const Scenes& scenes) {
  std::vector<MELDO_SULVA::Scene*> all;
  for (const auto& scene : scenes) all.push_back(scene.get());
  return std::make_unique<GasMaterial>(node, std::move(all));
}

}  // namespace

const std::vector<MediumType>& MediumTypes() {
  static const std::vector<MediumType> types = {
      {GasMaterial::kPluginId, "gas", GasMaterial::Parameters, MakeGas}};
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

}  // namespace MELDO_GLOBAL::app
