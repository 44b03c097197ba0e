#include "rigid/body_motion.h"

#include "framework/state_archive.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void BodyMotion::Persist(StateArchive& archive) {
  archive(centre, axes, isKeyed, linear, angular, calm, activation, isFrozen, hasLeft, previousMass,
          mass, force, torque, contactLinear, contactAngular, impulse, turn, fluidForce, isCarried,
          isNew, isLulled, lull, breeze, volume, waits, touches);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
