#include "framework/dead_link.h"

#include "framework/ibase.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool RestsByDeadLink(iBase& object) {
  const host::BaseNode* node = object.Node();
  if (!node || !node->Table() || !object.mScene) return false;
  for (const host::ParameterRow& row : *node->Table()) {
    if (!row.restsWhereDead) continue;
    const host::BaseNode* target = object.mInterface.GetLink(row.id);
    if (!target || object.mScene->FindObject(target, kListAll)) continue;
    object.Deactivate("what it names is switched off or not in its server");
    return true;
  }
  return false;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
