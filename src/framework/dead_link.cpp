#include "framework/dead_link.h"

#include "framework/ibase.h"
#include "framework/scene.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

bool RestsByDeadLink(iBase& object, i32 row) {
  host::BaseNode* target = object.mInterface.GetLink(row);
  if (!target || !object.mScene || object.mScene->FindObject(target, kListAll)) return false;
  object.Deactivate("what it names is switched off or not in its server");
  return true;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
