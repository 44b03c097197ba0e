// Bodies that sleep until something touches them.
#pragma once
#include <vector>

#include "fluids/volume/volume_base.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Finds which sleeping bodies particles touch while they move, and wakes those behind the motion.
class HitWatch {
 public:
  /// Takes the obstacles whose bodies await a touch.
  void Collect(const std::vector<VolumeBase*>& obstacles);
  bool IsEmpty() const { return mSleepers.empty(); }
  /// A particle was stopped at a place in simulation units: all bodies whose surface is less than a
  /// cell off it count as touched. Any thread.
  void Note(const Vec3d& contact);
  /// On the pipeline thread.
  void Wake();

 private:
  struct Sleeper {
    const VolumeBase* volume;
    u8 isTouched = 0;
  };
  std::vector<Sleeper> mSleepers;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
