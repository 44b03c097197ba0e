#include "app/render/media.h"

namespace MELDO_GLOBAL::app {

const std::vector<MediumType>& MediumTypes() {
  static const std::vector<MediumType> types = {};
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
