// What happens to a particle at the moment at which it hits something.
#pragma once
#include "fluids/particles/particle.h"
#include "framework/ibase.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// A particle met a wall, an obstacle or a volume. Simulation units.
struct ParticleHit {
  Vec3d contact{};         ///< where it stopped
  Vec3d normal{};          ///< unit length, out of the solid
  double penetration = 0;  ///< distance at the end of its way, less the offset of the collision
  double duration = 0;     ///< of the step, s
  Vec3d oldPosition{};     ///< before the substep of the motion
  Vec3d newPosition{};     ///< where the substep would have brought it
};

/// Base of what reacts to collisions. The operator that moves particles calls it from its workers:
/// a class that keeps something has a place for each of them.
class InstantOperator : public iBase {
 public:
  using iBase::iBase;
  i32 GetListIndex() const override { return kListAuxiliary; }
  void GetCategories(u32& mask) const override { mask |= kCategoryInstant; }

  /// Before and after a pass of `caller` over some particles, on the pipeline thread. Workers can't
  /// make columns: `Attach` requires those of all properties that `Apply` adds.
  virtual void Attach(iBase& /*caller*/, ParticleColumns& /*particles*/) {}
  virtual void End() {}
  /// May change the particle's velocity, flags and properties; its position becomes the contact. In
  /// a step it is called once for each solid that a particle meets; what is in the level set of a
  /// flow is one.
  virtual void Apply(const ParticleHit& hit, Particle particle, u32 worker) = 0;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
