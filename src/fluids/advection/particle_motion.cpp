#include "fluids/advection/particle_motion.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

void ParticleMotion::RequireColumns(ParticleColumns& particles) const {
  particles.Require<Vec3d>(property_id::kOldPosition);
  if (isFirst) particles.Require<Vec3d>(property_id::kFrameStart);
  if (integrator == kVelocityVerlet) particles.Require<Vec3d>(property_id::kPositionBefore);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
