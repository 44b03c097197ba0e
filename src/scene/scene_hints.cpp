#include "scene/scene_hints.h"

#include "scene/hint_base.h"

namespace MELDO_GLOBAL::app {

void AddHints(const LoadedScene& scene, const ScenePlaces& places, Diagnostics& diagnostics) {
  for (const auto add : {AddShapeHints, AddSettingHints, AddOutputHints, AddFieldHints,
                         AddFireHints, AddConstraintHints, AddBodyHints, AddParticleHints,
                         AddParticleEmitterHints, AddParticleOperatorHints})
    add(scene, places, diagnostics);
}

}  // namespace MELDO_GLOBAL::app
